#pragma once

#include <memory>

#include "base/Bytes.hpp"
#include "crypto/HashAlgorithm.hpp"

struct evp_md_ctx_st;

namespace crypto {

// A digest over bytes that come in pieces. Throws std::bad_alloc where the library has no memory,
// the only way in which it can fail.
class RunningDigest {
 public:
  explicit RunningDigest(HashAlgorithm algorithm);

  void add(ByteView part);

  // The digest of all that was added. Nothing may be added after it.
  [[nodiscard]] Bytes finish();

  [[nodiscard]] HashAlgorithm algorithm() const { return algorithm_; }

 private:
  HashAlgorithm algorithm_;
  std::shared_ptr<evp_md_ctx_st> context_;
};

}  // namespace crypto
