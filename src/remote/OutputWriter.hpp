#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <thread>

#include "base/Bytes.hpp"
#include "client/WaitLimits.hpp"

namespace remote {

// Writes lines to two descriptors from a thread of its own, in the order in which they were added,
// so that a reader who stands still (a full pipe, a stopped pager or terminal) holds up nobody. A
// thread, because a terminal that poll calls writable may block all the same, and the flags of a
// descriptor that other processes share are not ours to change. While one reader stands still the
// lines for the other go on.
class OutputWriter {
 public:
  enum Stream : std::size_t { output, errors };

  enum class Outcome {
    written,  // all of it
    lost,     // a write failed, or lines were dropped because nobody read them
    stuck,    // the reader stands still
  };

  // The descriptors are borrowed. SIGPIPE has to be ignored.
  OutputWriter(int outputDescriptor, int errorDescriptor);

  // Gives the readers kLastWait for what still waits. A thread that is stuck then is left behind.
  ~OutputWriter();
  OutputWriter(const OutputWriter &) = delete;
  OutputWriter &operator=(const OutputWriter &) = delete;

  // Never blocks. While the reader stands still kMostBytes wait, or one line that is longer; lines
  // after that are dropped, and a line in their place says how many. What waits is cleansed when it
  // is written.
  void add(Stream stream, ByteView line);

  // Waits until all is written. Returns what became of the standard output so far.
  [[nodiscard]] Outcome flush(const client::WaitLimits &limits);

  static constexpr std::size_t kMostBytes = std::size_t{256} * 1024;  // a few thousand lines
  static constexpr std::chrono::seconds kLastWait{1};

 private:
  struct State;

  std::shared_ptr<State> state_;  // which a thread that was left behind needs
  std::thread thread_;
};

}  // namespace remote
