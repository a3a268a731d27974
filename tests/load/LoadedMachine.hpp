#pragma once

#include "load/Crowd.hpp"
#include "system/Machine.hpp"

namespace load {

using system_tests::eventually;
using system_tests::Peer;

// True for the long form, whose figures are worth something: KEYFERRY_LOAD is set.
[[nodiscard]] bool isFull();

// A remote client whose card is otherRSAIdentity()'s; it answers in a thread of its own until it
// goes. One that does not sign answers with what it was asked to sign, which costs it nothing.
class Holder {
 public:
  explicit Holder(bool signs);

 private:
  Peer peer_ = Peer::holder();
  std::jthread thread_;
};

// A machine whose daemon is put under load. It has a journal that is read.
class LoadedMachine : public system_tests::PairedMachine {
 public:
  LoadedMachine();

  // A new socket of a journal, which reads what it is sent or does not.
  void openJournal(bool isRead);

  // What came in at a journal that is read.
  [[nodiscard]] std::size_t journalBytes() const { return journalBytes_; }
  // Waits until the lines of all that was asked so far have come in at a journal that is read.
  void expectJournalKeepsUp();

  // Has data signed, one request after the other, until the time is over; how long each took, in
  // microseconds. Each has exactly one answer, with a signature that verifies if it `isSigned`.
  static std::vector<double> sign(std::chrono::milliseconds time, bool isSigned = true);

  // What the daemon holds.
  [[nodiscard]] std::size_t descriptors() const;
  [[nodiscard]] std::size_t residentKiB() const;
  // Waits until it has no more descriptors than these.
  void expectDescriptors(std::size_t count) const;

 private:
  base::Descriptor journal_;
  std::atomic<std::size_t> journalBytes_ = 0;
  std::atomic<int> refusalLines_ = 0;  // of keys that nobody holds
  std::jthread reader_;
};

// The value that this share of all does not exceed.
[[nodiscard]] double percentile(std::vector<double> values, double share);

}  // namespace load
