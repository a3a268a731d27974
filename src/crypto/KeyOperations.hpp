#pragma once

#include <memory>
#include <optional>

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "base/Secret.hpp"
#include "crypto/PrivateKey.hpp"
#include "crypto/PublicKey.hpp"

namespace crypto {

// What a private key does that never leaves its place, a token for example. Each operation gives
// nothing if the place refuses it or the key's type does not know it, may block, and may be called
// from any thread; it must not throw.
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

// The private key to `publicKey` (RSA or EC) whose every operation is done by `operations`, which
// it keeps alive. It can do what any key can but be written out or agree on a shared point.
// Nothing, with the reason, for a key of another type.
[[nodiscard]] std::optional<PrivateKey> privateKeyDoneBy(std::shared_ptr<KeyOperations> operations,
                                                         const PublicKey &publicKey,
                                                         Error *error = nullptr);

}  // namespace crypto
