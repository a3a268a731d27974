#pragma once

#include <optional>
#include <span>
#include <vector>

#include "base/Bytes.hpp"
#include "crypto/HashAlgorithm.hpp"
#include "crypto/PSS.hpp"
#include "crypto/PublicKey.hpp"
#include "crypto/RSAEncryption.hpp"
#include "driver/Pkcs11.hpp"

namespace driver {

// The algorithm of a mechanism, without its digest.
enum class Scheme { digest, rsaPKCS1, rsaRaw, rsaPSS, rsaOAEP, ecdsa, ecdh, eddsa };

// A mechanism of the token (PKCS #11 v2.40 mechanisms, chapter 2).
struct Mechanism {
  CK_MECHANISM_TYPE type;
  Scheme scheme;
  std::optional<crypto::HashAlgorithm> hash;  // applied to the message first
  CK_FLAGS flags;                             // CK_MECHANISM_INFO flags
  CK_ULONG minBits;                           // key size
  CK_ULONG maxBits;
};

// All mechanisms, independent of the card.
[[nodiscard]] std::span<const Mechanism> mechanisms();

// Null if the token does not support the type.
[[nodiscard]] const Mechanism *mechanismOf(CK_MECHANISM_TYPE type);

// The type of key that a scheme requires; `other` for digests.
[[nodiscard]] crypto::KeyType keyTypeOf(Scheme scheme);

// The mechanisms for a type of key, as in CKA_ALLOWED_MECHANISMS.
[[nodiscard]] std::vector<CK_MECHANISM_TYPE> mechanismTypesFor(crypto::KeyType type);

// The digest of a mechanism such as CKM_SHA256; nothing if it is no digest mechanism.
[[nodiscard]] std::optional<crypto::HashAlgorithm> hashOf(CK_MECHANISM_TYPE type);

// The validated copy of a mechanism's parameters. The scheme determines which member is used.
struct MechanismParameters {
  crypto::PSSParameters pss;
  crypto::OAEPParameters oaep;
  Bytes peerPoint;  // for ECDH: uncompressed; not yet checked to lie on the curve
};

// Reads and validates the parameters. CKR_MECHANISM_PARAM_INVALID if they don't fit the scheme.
// Schemes without parameters ignore them, since some programs pass leftover values.
[[nodiscard]] CK_RV readParameters(const CK_MECHANISM &given, const Mechanism &mechanism,
                                   MechanismParameters &parameters);

}  // namespace driver
