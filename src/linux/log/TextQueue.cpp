#include "linux/log/TextQueue.hpp"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

#include "base/Descriptor.hpp"

namespace platform_linux {
namespace {

constexpr std::size_t kMostTextBytes = 1024 * 1024;

bool canWriteNow(int descriptor) {
  pollfd waiting{descriptor, POLLOUT, 0};
  return ::poll(&waiting, 1, 0) > 0 && (waiting.revents & POLLOUT) != 0;
}

}  // namespace

TextQueue::TextQueue(platform::MainQueue &queue, std::mutex &mutex, const std::string &processName,
                     int descriptor)
    : processName_(processName),
      descriptor_(descriptor),
      timer_(queue, mutex, [this] { return send(); }) {}

void TextQueue::add(std::string_view text) {
  if (!isStuck_ && waitingBytes() + text.size() > kMostTextBytes) {
    send();
  }
  // once text was dropped, text is dropped until half of the room is free: see EntryQueue
  if (dropped_ > 0 || waitingBytes() + text.size() > kMostTextBytes) {
    dropped_ += text.size();
  } else {
    waiting_ += text;
  }
  timer_.arm();
}

Passage TextQueue::send() {
  do {
    sayWhatWasDropped();
  } while (waitingBytes() > 0 && writePiece());
  const bool hasMoved = written_ > 0;
  waiting_.erase(0, std::exchange(written_, 0));
  isStuck_ = !waiting_.empty();
  if (!isStuck_) {
    return Passage::complete;
  }
  return hasMoved ? Passage::partial : Passage::stuck;
}

void TextQueue::sendUntil(std::chrono::steady_clock::time_point deadline) {
  Passage passage = send();
  // a descriptor that is reported writable but takes nothing has failed
  while (passage != Passage::complete && base::waitToWrite(descriptor_, deadline)) {
    passage = send();
    if (passage == Passage::stuck) {
      return;
    }
  }
}

// A descriptor that poll calls writable takes PIPE_BUF bytes at once (pipe(7)); one byte more may
// block.
bool TextQueue::writePiece() {
  if (!canWriteNow(descriptor_)) {
    return false;
  }
  const ssize_t count = ::write(descriptor_, waiting_.data() + written_,
                                std::min<std::size_t>(waitingBytes(), PIPE_BUF));
  if (count > 0) {
    written_ += static_cast<std::size_t>(count);
  }
  return count > 0 || (count < 0 && errno == EINTR);
}

void TextQueue::sayWhatWasDropped() {
  if (dropped_ > 0 && waitingBytes() <= kMostTextBytes / 2) {
    waiting_ += processName_ + ": " + std::to_string(std::exchange(dropped_, 0)) +
                " bytes of standard error dropped\n";
  }
}

}  // namespace platform_linux
