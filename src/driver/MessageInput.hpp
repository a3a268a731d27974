#pragma once

#include <optional>

#include "base/Bytes.hpp"
#include "crypto/RunningDigest.hpp"
#include "driver/KeyUse.hpp"

namespace driver {

// A message as it comes in, whole or in parts: its digest where the mechanism has one, else the
// message itself, at most kLongestMessage.
class MessageInput {
 public:
  explicit MessageInput(const Mechanism &mechanism) {
    if (mechanism.hash) {
      digest_.emplace(*mechanism.hash);
    }
  }

  // False, with nothing added, if the message gets too long.
  [[nodiscard]] bool add(ByteView part) {
    if (digest_) {
      digest_->add(part);
      return true;
    }
    if (part.size() > kLongestMessage - collected_.size()) {
      return false;
    }
    collected_.insert(collected_.end(), part.begin(), part.end());
    return true;
  }

  // What is signed. To be asked for once, at the end.
  [[nodiscard]] Bytes finish() { return digest_ ? digest_->finish() : std::move(collected_); }

  // In Base64 it still fits into the frames that the daemon takes.
  static constexpr std::size_t kLongestMessage = 1024UL * 1024;

 private:
  std::optional<crypto::RunningDigest> digest_;
  Bytes collected_;
};

}  // namespace driver
