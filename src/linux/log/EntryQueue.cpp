#include "linux/log/EntryQueue.hpp"

#include <algorithm>
#include <utility>

#include "platform/UnifiedLog.hpp"

namespace platform_linux {
namespace {

using platform::kLongestEntry;

constexpr std::size_t kMostEntries = 4096;

// So many leave at once. Under load hundreds would come together in 10 ms, and sending them would
// keep everybody waiting for a millisecond.
constexpr std::size_t kSentAtOnce = 16;

constexpr std::size_t kMostEntryBytes = 1024 * 1024;

// At most the longest entry, without half a character (UTF-8, RFC 3629) at its end.
std::string_view cut(std::string_view text) {
  if (text.size() <= kLongestEntry) {
    return text;
  }
  std::size_t end = kLongestEntry;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
    --end;
  }
  return text.substr(0, end);
}

}  // namespace

EntryQueue::EntryQueue(platform::MainQueue &queue, std::mutex &mutex,
                       const std::string &processName, LogPaths paths)
    : sink_(processName, std::move(paths)), timer_(queue, mutex, [this] { return send(); }) {}

void EntryQueue::add(std::string_view text) {
  std::string entry(cut(text));
  // in the journal's protocol what follows a line feed is a field, in a file an entry of its own
  std::ranges::replace(entry, '\n', ' ');
  if (!isStuck_ && !hasRoomFor(entry.size())) {
    send();
  }
  // Once an entry was dropped, entries are dropped until half of the room is free. Otherwise the
  // log would fill with counts.
  if (dropped_ > 0 || !hasRoomFor(entry.size())) {
    ++dropped_;
  } else {
    push(std::move(entry));
  }
  if (!isStuck_ && waiting_.size() >= kSentAtOnce) {
    send();
  }
  timer_.arm();
}

Passage EntryQueue::send() {
  bool hasMoved = false;
  // the second round is for the count of the dropped ones
  for (int round = 0; round < 2; ++round) {
    sayWhatWasDropped();
    const EntrySink::Sent sent = sink_.send(waiting_);
    hasMoved = hasMoved || sent.gone > 0;
    removeFirst(sent.gone);
    dropped_ += sent.lost;
  }
  isStuck_ = !waiting_.empty();
  if (!isStuck_) {
    return Passage::complete;
  }
  return hasMoved ? Passage::partial : Passage::stuck;
}

void EntryQueue::sendUntil(std::chrono::steady_clock::time_point deadline) {
  Passage passage = send();
  // a socket that is reported writable but takes nothing has failed
  while (passage != Passage::complete && sink_.descriptor() >= 0 &&
         base::waitToWrite(sink_.descriptor(), deadline)) {
    passage = send();
    if (passage == Passage::stuck) {
      return;
    }
  }
}

bool EntryQueue::hasRoomFor(std::size_t size) const {
  return waiting_.size() < kMostEntries && waitingBytes_ + size <= kMostEntryBytes;
}

void EntryQueue::push(std::string entry) {
  waitingBytes_ += entry.size();
  waiting_.push_back(std::move(entry));
}

void EntryQueue::removeFirst(std::size_t count) {
  const auto end = waiting_.begin() + static_cast<std::ptrdiff_t>(count);
  std::for_each(waiting_.begin(), end,
                [this](const std::string &entry) { waitingBytes_ -= entry.size(); });
  waiting_.erase(waiting_.begin(), end);
}

void EntryQueue::sayWhatWasDropped() {
  if (dropped_ > 0 && waiting_.size() <= kMostEntries / 2 && waitingBytes_ <= kMostEntryBytes / 2) {
    push(std::to_string(std::exchange(dropped_, 0)) + " entries dropped");
  }
}

}  // namespace platform_linux
