#pragma once

#include <string>

#include "base/Secret.hpp"
#include "platform/Clock.hpp"
#include "platform/MainQueue.hpp"
#include "requests/RequestProcessor.hpp"

namespace kfyd {

// A file for root (base::kStateFile) that tells kfyctl what the daemon holds: its start (seconds
// since 1970, UTC) and process, each connection with the hashes of its certificates, the number of
// requests that wait for an answer, what was relayed and refused since the start, and which limits
// were reached how often. Replaced as a whole, within a second of a change and at most once a
// second. The long lists are cut: 1,024 connections, the public ones first, and 16 certificates of
// each.
class StateFile {
 public:
  // Both are borrowed and outlive this.
  StateFile(platform::MainQueue &queue, const RequestProcessor &processor);

  // Starts to write the file. A kfyd without listeners must leave the file to the one that serves.
  void begin();

  // To be called when the file's content may have changed.
  void changed();

 private:
  [[nodiscard]] CleansedBytes content() const;
  void write();

  platform::MainQueue &queue_;
  const RequestProcessor &processor_;
  platform::Clock::Time started_;
  CleansedBytes written_;  // the content at the last attempt
  bool isKept_ = false;
  bool isWaiting_ = false;
  bool hasFailed_ = false;  // at the last attempt
};

}  // namespace kfyd
