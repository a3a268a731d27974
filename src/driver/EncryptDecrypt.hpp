#pragma once

#include <optional>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"
#include "driver/Operation.hpp"
#include "driver/OperationKey.hpp"

namespace driver {

// An encryption with a public key, between C_EncryptInit and its end. Nobody is asked for it.
class EncryptOperation {
 public:
  explicit EncryptOperation(OperationKey key) : key_(std::move(key)) {}

  // C_EncryptUpdate, which gives nothing out yet.
  [[nodiscard]] Progress add(ByteView part);

  // C_EncryptFinal, and C_Encrypt with all of the data as the last part.
  [[nodiscard]] Progress finish(ByteView lastPart, const OutputBuffer &output);

 private:
  [[nodiscard]] std::optional<Bytes> encrypted() const;

  OperationKey key_;
  CleansedBytes data_;
};

class CardToken;

// A decryption, between C_DecryptInit and its end.
class DecryptOperation {
 public:
  explicit DecryptOperation(OperationKey key) : key_(std::move(key)) {}

  // C_DecryptUpdate, which gives nothing out yet.
  [[nodiscard]] Progress add(ByteView part);

  // C_DecryptFinal, and C_Decrypt with all of the block as the last part. How long the result is
  // only the holder's answer tells. A program that only asks is told an upper bound; for a place
  // that turns out too short the result is kept, so that the holder is asked once.
  [[nodiscard]] Progress finish(CardToken &token, ByteView lastPart, const OutputBuffer &output);

 private:
  [[nodiscard]] std::optional<SecretBytes> withoutPadding(ByteView block) const;

  OperationKey key_;
  Bytes block_;
  std::optional<SecretBytes> result_;
};

}  // namespace driver
