#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "client/Backoff.hpp"
#include "client/Connection.hpp"
#include "remote/Address.hpp"
#include "remote/ConnectionAttempts.hpp"
#include "remote/KeyRequests.hpp"
#include "remote/KnownHosts.hpp"
#include "remote/OutageReporter.hpp"
#include "remote/RefusalReporter.hpp"
#include "remote/Services.hpp"
#include "remote/UseQuota.hpp"

namespace remote {

// The connection to one machine and all that it goes through: connecting, checking the server,
// authenticating, inserting the card, answering requests, and connecting again after an end. All
// calls, those of the executor and of Consent included, come on the loop's thread.
class Machine : public std::enable_shared_from_this<Machine> {
 public:
  // `pinned`: the server's fingerprint, if the user has given it. Otherwise the known hosts decide,
  // and at first use the user.
  Machine(Address address, std::optional<Fingerprint> pinned, const Services &services);

  // Does what is due. To be called when the descriptor is readable (or writable while
  // wantsWrite()), at dueAt(), and at once while hasMore().
  void turn();

  // For poll; negative while there is no connection.
  [[nodiscard]] int descriptor() const { return connection_ ? connection_->descriptor() : -1; }
  [[nodiscard]] bool wantsWrite() const { return connection_ && connection_->wantsWrite(); }
  [[nodiscard]] bool hasMore() const { return connection_ && connection_->hasMore(); }
  [[nodiscard]] client::Deadline dueAt() const { return std::min(dueAt_, refusals_.dueAt()); }

  // Begins to end: withdraws the card if it is inserted, then closes the connection.
  void leave();

  // True if nothing more will happen: it has left, or only a person can help.
  [[nodiscard]] bool isFinished() const { return phase_ == Phase::finished; }

  // True if the card was inserted at least once.
  [[nodiscard]] bool hasServed() const { return hasServed_; }

 private:
  enum class Phase {
    waiting,         // for the next attempt
    opening,         // on a thread of its own
    trusting,        // the person is asked whether this is the right server
    pairing,         // the person is asked whether the key is paired now
    connecting,      // `connect` was sent
    authenticating,  // `authenticate` was sent
    inserting,       // `insert` was sent
    serving,
    checking,  // `get_certificates` was sent
    renewing,  // `insert` was sent again
    leaving,   // `remove` was sent
    finished,
  };

  void open();
  void opened(const AttemptOutcome &opened);
  void askForTrust(const Fingerprint &shown);
  void sayUntrusted(const Fingerprint &shown) const;
  void start();
  void handle(const QuillMessage &message);
  void authenticate(const QuillMessage &reply);
  void awaitPairing(const std::string &reason);
  void advisePairing() const;
  void insert(const QuillMessage &reply);
  void serve();
  void checkCard();
  void renewCard(const QuillMessage &reply);
  [[nodiscard]] bool send(const QuillMessage &message);
  void expectReply(Phase phase, const QuillMessage &request);
  void loseConnection(const std::string &reason);
  void retrySoon(const std::string &reason, client::Deadline began);
  void holdOff(const std::string &reason, std::chrono::minutes wait);
  void retryAt(client::Deadline time);
  void giveUp();
  void closeConnection();
  [[nodiscard]] std::string suffix(const char *preposition) const;

  Address address_;
  std::optional<Fingerprint> pinned_;
  const Services &services_;
  client::Backoff backoff_;
  Phase phase_ = Phase::waiting;
  client::Deadline dueAt_ = client::Deadline::min();
  std::shared_ptr<client::Connection> connection_;
  std::shared_ptr<KeyRequests> requests_;  // of this connection, from `insert` on
  UseQuota quota_;                         // like `refusals_` kept across connections
  RefusalReporter refusals_;
  OutageReporter outage_;
  client::Deadline attemptBegan_;
  bool hasServed_ = false;
  bool isReplaced_ = false;    // another device's card has replaced ours
  std::uint64_t attempt_ = 0;  // results of earlier attempts are ignored
  std::optional<UUID> awaitedReply_;
};

}  // namespace remote
