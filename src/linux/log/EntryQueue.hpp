#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "linux/log/EntrySink.hpp"
#include "linux/log/RetryTimer.hpp"

namespace platform_linux {

// Entries on their way to the machine's log. They are sent together, 10 ms after the first of them
// or as soon as there are 16. While the log takes none, 4,096 of them or 1 MiB wait; those that
// come after that are dropped, and an entry in their place says how many.
//
// Used with the mutex held, which its timer takes by itself.
class EntryQueue {
 public:
  EntryQueue(platform::MainQueue &queue, std::mutex &mutex, const std::string &processName,
             LogPaths paths);

  // Takes an entry. It is cut at 64 KiB, between two characters; a line feed becomes a blank.
  void add(std::string_view text);

  // Sends what the log takes now.
  Passage send();

  // Goes on sending until nothing waits, the log is gone or the deadline has passed.
  void sendUntil(std::chrono::steady_clock::time_point deadline);

 private:
  [[nodiscard]] bool hasRoomFor(std::size_t size) const;
  void push(std::string entry);
  void removeFirst(std::size_t count);
  void sayWhatWasDropped();

  EntrySink sink_;
  std::vector<std::string> waiting_;
  std::size_t waitingBytes_ = 0;
  bool isStuck_ = false;       // the last try left entries behind
  std::uint64_t dropped_ = 0;  // since the last of those that wait
  RetryTimer timer_;
};

}  // namespace platform_linux
