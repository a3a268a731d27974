#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <thread>

#include "base/Bytes.hpp"
#include "client/WaitLimits.hpp"

namespace remote {

// Writes lines to two descriptors on a thread of its own, in the order in which they were added. So
// a reader that has stopped (a full pipe, a stopped pager or terminal) blocks nobody, not even the
// other descriptor's lines. It takes a thread: a terminal may block although poll calls it
// writable, and O_NONBLOCK would change the descriptor for other processes that share it.
class OutputWriter {
 public:
  enum Stream : std::size_t { output, errors };

  enum class Outcome {
    written,  // everything
    lost,     // a write failed, or lines were dropped because nobody read them
    stuck,    // the reader has stopped
  };

  // The descriptors are borrowed. SIGPIPE has to be ignored.
  OutputWriter(int outputDescriptor, int errorDescriptor);

  // Waits kLastWait for the readers. A thread that is still blocked then is left behind.
  ~OutputWriter();
  OutputWriter(const OutputWriter &) = delete;
  OutputWriter &operator=(const OutputWriter &) = delete;

  // Never blocks. While the reader has stopped, at most kMostBytes wait, or one longer line.
  // Further lines are dropped, and one line says how many. Lines are cleansed once they are
  // written.
  void add(Stream stream, ByteView line);

  // Waits until everything is written. Returns whether all of standard output was.
  [[nodiscard]] Outcome flush(const client::WaitLimits &limits);

  static constexpr std::size_t kMostBytes = std::size_t{256} * 1024;  // a few thousand lines
  static constexpr std::chrono::seconds kLastWait{1};

 private:
  struct State;

  std::shared_ptr<State> state_;  // shared with a thread that may be left behind
  std::thread thread_;
};

}  // namespace remote
