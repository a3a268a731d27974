#include "driver/Mechanisms.hpp"

#include <algorithm>
#include <array>

namespace driver {
namespace {

using enum Scheme;
using enum crypto::HashAlgorithm;

constexpr auto kNone = std::nullopt;

constexpr CK_FLAGS kSigns = CKF_SIGN | CKF_VERIFY;
constexpr CK_FLAGS kEncrypts = CKF_ENCRYPT | CKF_DECRYPT;
constexpr CK_FLAGS kCurves = CKF_EC_F_P | CKF_EC_NAMEDCURVE | CKF_EC_UNCOMPRESS;

constexpr Mechanism rsa(CK_MECHANISM_TYPE type, Scheme scheme,
                        std::optional<crypto::HashAlgorithm> hash, CK_FLAGS flags) {
  return {type, scheme, hash, flags, 1024, 4096};
}

constexpr Mechanism ec(CK_MECHANISM_TYPE type, Scheme scheme,
                       std::optional<crypto::HashAlgorithm> hash, CK_FLAGS flags) {
  return {type, scheme, hash, flags | kCurves, 256, 521};
}

constexpr Mechanism digests(CK_MECHANISM_TYPE type, crypto::HashAlgorithm hash) {
  return {type, digest, hash, CKF_DIGEST, 0, 0};
}

constexpr std::array kMechanisms{
    rsa(CKM_RSA_PKCS, rsaPKCS1, kNone, kSigns | kEncrypts),
    rsa(CKM_RSA_X_509, rsaBlock, kNone, kSigns | kEncrypts),
    rsa(CKM_RSA_PKCS_OAEP, rsaOAEP, kNone, kEncrypts),
    rsa(CKM_RSA_PKCS_PSS, rsaPSS, kNone, kSigns),
    rsa(CKM_SHA1_RSA_PKCS, rsaPKCS1, sha1, kSigns),
    rsa(CKM_SHA224_RSA_PKCS, rsaPKCS1, sha224, kSigns),
    rsa(CKM_SHA256_RSA_PKCS, rsaPKCS1, sha256, kSigns),
    rsa(CKM_SHA384_RSA_PKCS, rsaPKCS1, sha384, kSigns),
    rsa(CKM_SHA512_RSA_PKCS, rsaPKCS1, sha512, kSigns),
    rsa(CKM_SHA1_RSA_PKCS_PSS, rsaPSS, sha1, kSigns),
    rsa(CKM_SHA224_RSA_PKCS_PSS, rsaPSS, sha224, kSigns),
    rsa(CKM_SHA256_RSA_PKCS_PSS, rsaPSS, sha256, kSigns),
    rsa(CKM_SHA384_RSA_PKCS_PSS, rsaPSS, sha384, kSigns),
    rsa(CKM_SHA512_RSA_PKCS_PSS, rsaPSS, sha512, kSigns),
    ec(CKM_ECDSA, ecdsa, kNone, kSigns),
    ec(CKM_ECDSA_SHA1, ecdsa, sha1, kSigns),
    ec(CKM_ECDSA_SHA224, ecdsa, sha224, kSigns),
    ec(CKM_ECDSA_SHA256, ecdsa, sha256, kSigns),
    ec(CKM_ECDSA_SHA384, ecdsa, sha384, kSigns),
    ec(CKM_ECDSA_SHA512, ecdsa, sha512, kSigns),
    ec(CKM_ECDH1_DERIVE, ecdh, kNone, CKF_DERIVE),
    Mechanism{CKM_EDDSA, eddsa, kNone, kSigns | kCurves, 255, 256},
    digests(CKM_SHA_1, sha1),
    digests(CKM_SHA224, sha224),
    digests(CKM_SHA256, sha256),
    digests(CKM_SHA384, sha384),
    digests(CKM_SHA512, sha512),
};

}  // namespace

std::span<const Mechanism> mechanisms() {
  return kMechanisms;
}

const Mechanism *mechanismOf(CK_MECHANISM_TYPE type) {
  const auto *const found = std::ranges::find(kMechanisms, type, &Mechanism::type);
  return found == kMechanisms.end() ? nullptr : found;
}

crypto::KeyType keyTypeOf(Scheme scheme) {
  switch (scheme) {
    case rsaPKCS1:
    case rsaBlock:
    case rsaPSS:
    case rsaOAEP:
      return crypto::KeyType::rsa;
    case ecdsa:
    case ecdh:
      return crypto::KeyType::ec;
    case eddsa:
      return crypto::KeyType::ed25519;
    case digest:
      break;
  }
  return crypto::KeyType::other;
}

std::vector<CK_MECHANISM_TYPE> mechanismTypesFor(crypto::KeyType type) {
  std::vector<CK_MECHANISM_TYPE> types;
  for (const Mechanism &mechanism : kMechanisms) {
    if (mechanism.scheme != digest && keyTypeOf(mechanism.scheme) == type) {
      types.push_back(mechanism.type);
    }
  }
  return types;
}

std::optional<crypto::HashAlgorithm> hashOf(CK_MECHANISM_TYPE type) {
  const Mechanism *const mechanism = mechanismOf(type);
  return mechanism == nullptr || mechanism->scheme != digest ? std::nullopt : mechanism->hash;
}

}  // namespace driver
