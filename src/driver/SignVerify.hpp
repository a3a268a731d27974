#pragma once

#include <memory>
#include <optional>

#include "base/Bytes.hpp"
#include "crypto/RunningDigest.hpp"
#include "driver/Operation.hpp"
#include "driver/OperationKey.hpp"

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

class CardToken;

// A signature that is being made, between C_SignInit and its end.
class SignOperation {
 public:
  explicit SignOperation(OperationKey key) : key_(std::move(key)), input_(*key_.mechanism) {}

  // C_SignUpdate.
  [[nodiscard]] Progress add(ByteView part);

  // C_SignFinal, and C_Sign with all of the message as the last part. The holder is asked only if
  // there is room for what it answers, and its answer is given out only if the certificate's key
  // verifies it: a wrong signature can betray an RSA key.
  [[nodiscard]] Progress finish(CardToken &token, ByteView lastPart, const OutputBuffer &output);

 private:
  OperationKey key_;
  MessageInput input_;
};

// A signature that is being verified, between C_VerifyInit and its end.
class VerifyOperation {
 public:
  explicit VerifyOperation(OperationKey key) : key_(std::move(key)), input_(*key_.mechanism) {}

  // C_VerifyUpdate.
  [[nodiscard]] Progress add(ByteView part);

  // C_VerifyFinal, and C_Verify with all of the message as the last part.
  [[nodiscard]] Progress finish(ByteView lastPart, ByteView signature);

 private:
  OperationKey key_;
  MessageInput input_;
};

}  // namespace driver
