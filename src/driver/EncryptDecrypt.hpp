#pragma once

#include <optional>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"
#include "driver/Operation.hpp"
#include "driver/OperationKey.hpp"

namespace driver {

// An encryption operation, from C_EncryptInit to its end. Runs locally with the public key.
class EncryptOperation {
 public:
  explicit EncryptOperation(OperationKey key) : key_(std::move(key)) {}

  // C_EncryptUpdate. Returns no output.
  [[nodiscard]] Progress add(ByteView part);

  // C_EncryptFinal, or C_Encrypt with all of the data as `lastPart`.
  [[nodiscard]] Progress finish(ByteView lastPart, const OutputBuffer &output);

 private:
  [[nodiscard]] std::optional<Bytes> encrypted() const;

  OperationKey key_;
  CleansedBytes data_;
};

class CardToken;

// A decryption operation, from C_DecryptInit to its end.
class DecryptOperation {
 public:
  explicit DecryptOperation(OperationKey key) : key_(std::move(key)) {}

  // C_DecryptUpdate. Returns no output.
  [[nodiscard]] Progress add(ByteView part);

  // C_DecryptFinal, or C_Decrypt with the whole block as `lastPart`. A length query is answered
  // with an upper bound, since the exact length is known only after decryption. If the buffer then
  // turns out too small, the result is kept, so that the holder is asked only once.
  [[nodiscard]] Progress finish(CardToken &token, ByteView lastPart, const OutputBuffer &output);

 private:
  [[nodiscard]] std::optional<SecretBytes> withoutPadding(ByteView block) const;

  OperationKey key_;
  Bytes block_;
  std::optional<SecretBytes> result_;
};

}  // namespace driver
