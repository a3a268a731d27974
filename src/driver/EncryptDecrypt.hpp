#pragma once

#include <optional>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"
#include "driver/KeyUse.hpp"
#include "driver/Operation.hpp"

namespace driver {

// An encryption with a public key, between C_EncryptInit and its end. Nobody is asked for it.
class Encrypting {
 public:
  explicit Encrypting(KeyUse use) : use_(std::move(use)) {}

  // C_EncryptUpdate, which gives nothing out yet.
  [[nodiscard]] Progress add(ByteView part);

  // C_EncryptFinal, and C_Encrypt with all of the data as the last part.
  [[nodiscard]] Progress finish(ByteView lastPart, const Output &output);

 private:
  [[nodiscard]] std::optional<Bytes> encrypted() const;

  KeyUse use_;
  CleansedBytes data_;
};

class Token;

// A decryption, between C_DecryptInit and its end.
class Decrypting {
 public:
  explicit Decrypting(KeyUse use) : use_(std::move(use)) {}

  // C_DecryptUpdate, which gives nothing out yet.
  [[nodiscard]] Progress add(ByteView part);

  // C_DecryptFinal, and C_Decrypt with all of the block as the last part. How long the result is
  // only the holder's answer tells. A program that only asks is told an upper bound; for a place
  // that turns out too short the result is kept, so that the holder is asked once.
  [[nodiscard]] Progress finish(Token &token, ByteView lastPart, const Output &output);

 private:
  [[nodiscard]] std::optional<SecretBytes> withoutPadding(ByteView block) const;

  KeyUse use_;
  Bytes block_;
  std::optional<SecretBytes> result_;
};

}  // namespace driver
