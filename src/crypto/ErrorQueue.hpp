#pragma once

#include <memory>

namespace crypto {

// True once the process has shut the OpenSSL library down, as it does in an exit handler. Nothing
// of this folder may be used from then on, and nothing that it holds may be released. Where the
// library has not been used so far it gets no exit handler: it then works to the very end, at the
// price of memory that nobody gives back.
[[nodiscard]] bool libraryHasEnded();

// For code that is called by a program with OpenSSL errors of its own: takes this thread's error
// queue away, so that it is empty, and puts it back when this goes. A mark alone does not protect
// it: the library empties the whole queue at the start of each handshake, and counts any entry in
// it as the failure of its own last read.
class KeptErrorQueue {
 public:
  KeptErrorQueue();
  ~KeptErrorQueue();
  KeptErrorQueue(const KeptErrorQueue &) = delete;
  KeptErrorQueue &operator=(const KeptErrorQueue &) = delete;

 private:
  struct Entries;
  std::unique_ptr<Entries> entries_;  // null for an empty queue, which is nearly every one
};

}  // namespace crypto
