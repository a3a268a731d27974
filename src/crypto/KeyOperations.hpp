#pragma once

#include <memory>
#include <optional>

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "base/Secret.hpp"
#include "crypto/PrivateKey.hpp"
#include "crypto/PublicKey.hpp"

namespace crypto {

// The operations of a private key that stays in its place, for example in a token. Each returns
// nothing if the place refuses or the key's type lacks the operation. Each may block, may be called
// from any thread, and must not throw.
class KeyOperations {
 public:
  virtual ~KeyOperations() = default;

  // RSA: signs `data` itself with PKCS #1 v1.5 padding (RFC 8017 8.2.1 from EM on).
  [[nodiscard]] virtual std::optional<Bytes> signPKCS1(ByteView data) = 0;

  // RSA: signs a block that is padded already (RSASP1), as PSS needs it.
  [[nodiscard]] virtual std::optional<Bytes> signBlock(ByteView block) = 0;

  // RSA: the block below a ciphertext (RSADP), its padding still on.
  [[nodiscard]] virtual std::optional<SecretBytes> decryptBlock(ByteView block) = 0;

  // EC: r ‖ s over `digest`, both as long as the curve's order (PKCS #11 v2.40, 2.3.1).
  [[nodiscard]] virtual std::optional<Bytes> signECDSA(ByteView digest) = 0;
};

// A private key for `publicKey` (RSA or EC) that performs its operations by `operations`, which it
// keeps alive. It cannot be exported and cannot agree on a shared point. Nothing, with the reason,
// for a key of another type.
[[nodiscard]] std::optional<PrivateKey> privateKeyDoneBy(std::shared_ptr<KeyOperations> operations,
                                                         const PublicKey &publicKey,
                                                         Error *error = nullptr);

}  // namespace crypto
