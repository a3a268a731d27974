#include "requests/PendingMessages.hpp"

#include <utility>
#include <vector>

void PendingMessages::insert(const UUID &messageID, Entry entry) {
  erase(messageID);
  parts_[entry.requester.get()].asked.insert(messageID);
  ++parts_[entry.holder.get()].held;
  entries_.emplace(messageID, std::move(entry));
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
  const auto part = parts_.find(requester.get());
  if (part == parts_.end()) {
    return;
  }
  // a copy, since each erased entry leaves the set
  const std::unordered_set<UUID> asked = part->second.asked;
  for (const UUID &messageID : asked) {
    erase(messageID);
  }
}

void PendingMessages::eraseAbandoned() {
  std::vector<UUID> abandoned;
  for (const auto &[messageID, entry] : entries_) {
    if (!entry.requester->g_inbound_connection && !entry.holder->g_inbound_connection) {
      abandoned.push_back(messageID);
    }
  }
  for (const UUID &messageID : abandoned) {
    erase(messageID);
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
