#pragma once

#include <memory>
#include <optional>

#include "base/Bytes.hpp"
#include "crypto/RunningDigest.hpp"
#include "driver/Operation.hpp"
#include "driver/OperationKey.hpp"

namespace driver {

// The message of an operation, in one or more parts: its digest if the mechanism has one, otherwise
// the message itself, up to kLongestMessage.
class MessageInput {
 public:
  explicit MessageInput(const Mechanism &mechanism) {
    if (mechanism.hash) {
      digest_.emplace(*mechanism.hash);
    }
  }

  // False, with nothing added, if the message would be too long.
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

  // Returns the digest or the message. Call it once, at the end.
  [[nodiscard]] Bytes finish() { return digest_ ? digest_->finish() : std::move(collected_); }

  // In Base64 this fits into the largest frame that the daemon accepts.
  static constexpr std::size_t kLongestMessage = 1024UL * 1024;

 private:
  std::optional<crypto::RunningDigest> digest_;
  Bytes collected_;
};

class CardToken;

// What signing and verifying share: the key, and the message so far.
class MessageOperation {
 public:
  explicit MessageOperation(OperationKey key) : key_(std::move(key)), input_(*key_.mechanism) {}

  // C_SignUpdate and C_VerifyUpdate.
  [[nodiscard]] Progress add(ByteView part);

 protected:
  OperationKey key_;
  MessageInput input_;
};

// A signature operation, from C_SignInit to its end.
class SignOperation : public MessageOperation {
 public:
  using MessageOperation::MessageOperation;

  // C_SignFinal, or C_Sign with the whole message as `lastPart`. The holder is asked only if its
  // answer fits into the buffer. The answer is returned only if it verifies with the certificate's
  // key: a faulty signature can reveal an RSA key.
  [[nodiscard]] Progress finish(CardToken &token, ByteView lastPart, const OutputBuffer &output);
};

// A verification operation, from C_VerifyInit to its end.
class VerifyOperation : public MessageOperation {
 public:
  using MessageOperation::MessageOperation;

  // C_VerifyFinal, or C_Verify with the whole message as `lastPart`.
  [[nodiscard]] Progress finish(ByteView lastPart, ByteView signature);
};

}  // namespace driver
