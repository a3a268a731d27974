#pragma once

#include <openssl/crypto.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "base/Bytes.hpp"

namespace crypto {

template <auto Release>
struct Releaser {
  template <typename T>
  void operator()(T *object) const {
    Release(object);
  }
};

// An OpenSSL object that is released with `Release`; for this folder's own files.
template <typename T, auto Release>
using Owned = std::unique_ptr<T, Releaser<Release>>;

// A secret in memory that OpenSSL has allocated; cleansed at the end.
struct SecretOutput {
  SecretOutput() = default;
  ~SecretOutput() { OPENSSL_clear_free(bytes, length); }
  SecretOutput(const SecretOutput &) = delete;
  SecretOutput &operator=(const SecretOutput &) = delete;

  [[nodiscard]] ByteView view() const { return {bytes, length}; }

  std::uint8_t *bytes = nullptr;
  std::size_t length = 0;
};

}  // namespace crypto
