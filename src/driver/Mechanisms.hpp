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

// What a mechanism does, its digest aside.
enum class Scheme { digest, rsaPKCS1, rsaRaw, rsaPSS, rsaOAEP, ecdsa, ecdh, eddsa };

// A mechanism that the token offers (PKCS #11 v2.40 mechanisms, chapter 2).
struct Mechanism {
  CK_MECHANISM_TYPE type;
  Scheme scheme;
  std::optional<crypto::HashAlgorithm> hash;  // taken over the message first
  CK_FLAGS flags;                             // CKF_SIGN and the like
  CK_ULONG minBits;                           // of the key
  CK_ULONG maxBits;
};

// All of them. The list is the same whatever card is there.
[[nodiscard]] std::span<const Mechanism> mechanisms();

// Null if the token does not know the type.
[[nodiscard]] const Mechanism *mechanismOf(CK_MECHANISM_TYPE type);

// The kind of key that a scheme works with; `other` for digests.
[[nodiscard]] crypto::KeyType keyTypeOf(Scheme scheme);

// What may be done with a key of this kind: the types of its mechanisms.
[[nodiscard]] std::vector<CK_MECHANISM_TYPE> mechanismTypesFor(crypto::KeyType type);

// The digest that a mechanism type like CKM_SHA256 names.
[[nodiscard]] std::optional<crypto::HashAlgorithm> hashOf(CK_MECHANISM_TYPE type);

// What a program handed over beside a mechanism's type, checked and copied; which member counts
// depends on the scheme.
struct MechanismParameters {
  crypto::PSSParameters pss;
  crypto::OAEPParameters oaep;
  Bytes peerPoint;  // of ECDH: uncompressed, not checked to lie on the curve
};

// Reads them. CKR_MECHANISM_PARAM_INVALID if the scheme wants others. A scheme that wants none
// ignores what is there, as programs leave things behind.
[[nodiscard]] CK_RV readParameters(const CK_MECHANISM &given, const Mechanism &mechanism,
                                   MechanismParameters &parameters);

}  // namespace driver
