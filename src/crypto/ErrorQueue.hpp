#pragma once

#include <memory>

namespace crypto {

// True once the process has shut the OpenSSL library down, as it does in an exit handler. Nothing
// of this folder may be used from then on, and nothing that it holds may be released. If the
// library has not been used before, this call keeps it from installing its exit handler. It then
// works to the very end, and its memory is never freed.
[[nodiscard]] bool libraryHasEnded();

// Protects the OpenSSL errors of a program that calls us: moves this thread's error queue away and
// puts it back at the end. A mark in the queue is not enough: the library empties the whole queue
// at the start of each handshake, and takes any entry for a failure of its own last read.
class KeptErrorQueue {
 public:
  KeptErrorQueue();
  ~KeptErrorQueue();
  KeptErrorQueue(const KeptErrorQueue &) = delete;
  KeptErrorQueue &operator=(const KeptErrorQueue &) = delete;

 private:
  struct Entries;
  std::unique_ptr<Entries> entries_;  // null if the queue was empty, as it nearly always is
};

}  // namespace crypto
