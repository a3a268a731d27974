#pragma once

#include "base/Bytes.hpp"
#include "base/Secret.hpp"
#include "driver/KeyUse.hpp"
#include "driver/Operation.hpp"
#include "driver/Output.hpp"

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

}  // namespace driver
