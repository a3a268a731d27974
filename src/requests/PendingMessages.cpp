#include "requests/PendingMessages.hpp"

#include <new>
#include <utility>

void PendingMessages::insert(const UUID &messageID, Entry entry) {
  erase(messageID);
  const auto &[requester, holder] = entries_.emplace(messageID, std::move(entry)).first->second;
  try {
    Part &held = parts_[holder.get()];
    parts_[requester.get()].asked.insert(messageID);
    ++held.held;
  } catch (const std::bad_alloc &) {
    leave(requester);
    leave(holder);
    entries_.erase(messageID);
    throw;
  }
}

const PendingMessages::Entry *PendingMessages::find(const UUID &messageID) const {
  const auto found = entries_.find(messageID);
  return found == entries_.end() ? nullptr : &found->second;
}

void PendingMessages::erase(const UUID &messageID) {
  auto node = entries_.extract(messageID);
  if (node.empty()) {
    return;
  }
  const auto &[requester, holder] = node.mapped();
  parts_[requester.get()].asked.erase(messageID);
  --parts_[holder.get()].held;
  leave(requester);
  leave(holder);
}

void PendingMessages::eraseAllOf(const QuillWorker::Shared &requester) {
  // each erased entry leaves the set, and the last one takes the part with it
  auto part = parts_.find(requester.get());
  while (part != parts_.end() && !part->second.asked.empty()) {
    erase(UUID(*part->second.asked.begin()));
    part = parts_.find(requester.get());
  }
}

void PendingMessages::eraseAbandoned() {
  for (auto each = entries_.begin(); each != entries_.end();) {
    const auto &[messageID, entry] = *each++;
    if (!entry.requester->g_inbound_connection && !entry.holder->g_inbound_connection) {
      erase(UUID(messageID));
    }
  }
}

std::size_t PendingMessages::countOf(const QuillWorker::Shared &requester) const {
  const auto part = parts_.find(requester.get());
  return part == parts_.end() ? 0 : part->second.asked.size();
}

void PendingMessages::leave(const QuillWorker::Shared &worker) {
  const auto part = parts_.find(worker.get());
  if (part != parts_.end() && part->second.asked.empty() && part->second.held == 0) {
    parts_.erase(part);
  }
}
