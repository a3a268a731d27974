#pragma once

#include <memory>

#include "base/Bytes.hpp"
#include "driver/KeyUse.hpp"
#include "driver/MessageInput.hpp"
#include "driver/Operation.hpp"
#include "driver/Output.hpp"

namespace driver {

class Token;

// A signature that is being made, between C_SignInit and its end.
class Signing {
 public:
  explicit Signing(KeyUse use) : use_(std::move(use)), input_(*use_.mechanism) {}

  // C_SignUpdate.
  [[nodiscard]] Progress add(ByteView part);

  // C_SignFinal, and C_Sign with all of the message as the last part. The holder is asked only if
  // there is room for what it answers, and its answer is given out only if the certificate's key
  // verifies it: a wrong signature can betray an RSA key.
  [[nodiscard]] Progress finish(Token &token, ByteView lastPart, const Output &output);

 private:
  KeyUse use_;
  MessageInput input_;
};

// A signature that is being verified, between C_VerifyInit and its end.
class Verifying {
 public:
  explicit Verifying(KeyUse use) : use_(std::move(use)), input_(*use_.mechanism) {}

  // C_VerifyUpdate.
  [[nodiscard]] Progress add(ByteView part);

  // C_VerifyFinal, and C_Verify with all of the message as the last part.
  [[nodiscard]] Progress finish(ByteView lastPart, ByteView signature);

 private:
  KeyUse use_;
  MessageInput input_;
};

}  // namespace driver
