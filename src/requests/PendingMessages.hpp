#pragma once

#include <cstddef>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "base/UUID.hpp"
#include "worker/QuillWorker.hpp"

// The relayed requests that wait for an answer, by message ID, each with who asked and who was
// asked. The entries of one connection are found without a search.
class PendingMessages {
 public:
  struct Entry {
    QuillWorker::Shared requester;
    QuillWorker::Shared holder;
  };

  // An entry that is already held under the ID is replaced.
  void insert(const UUID &messageID, Entry entry);

  // Null if there is none; borrowed until the next change.
  [[nodiscard]] const Entry *find(const UUID &messageID) const;

  // Both do nothing if there is nothing to erase.
  void erase(const UUID &messageID);
  void eraseAllOf(const QuillWorker::Shared &requester);

  // Erases the entries whose two ends have both lost their connections: no answer can come, and
  // nobody waits for one.
  void eraseAbandoned();

  [[nodiscard]] std::size_t size() const { return entries_.size(); }
  [[nodiscard]] std::size_t countOf(const QuillWorker::Shared &requester) const;

  // True if an entry names the worker as who asked or as who was asked.
  [[nodiscard]] bool name(const QuillWorker::Shared &worker) const {
    return parts_.contains(worker.get());
  }

 private:
  // A worker's part in the entries, which keep the worker alive.
  struct Part {
    std::unordered_set<UUID> asked;
    std::size_t held = 0;
  };

  void leave(const QuillWorker::Shared &worker);

  std::unordered_map<UUID, Entry> entries_;
  std::unordered_map<const QuillWorker *, Part> parts_;
};
