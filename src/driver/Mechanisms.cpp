#include "driver/Mechanisms.hpp"

#include <algorithm>
#include <array>
#include <cstring>

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
    rsa(CKM_RSA_X_509, rsaRaw, kNone, kSigns | kEncrypts),
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

struct MaskRow {
  CK_ULONG type;
  crypto::HashAlgorithm hash;
};

constexpr std::array kMasks{MaskRow{CKG_MGF1_SHA1, crypto::HashAlgorithm::sha1},
                            MaskRow{CKG_MGF1_SHA224, crypto::HashAlgorithm::sha224},
                            MaskRow{CKG_MGF1_SHA256, crypto::HashAlgorithm::sha256},
                            MaskRow{CKG_MGF1_SHA384, crypto::HashAlgorithm::sha384},
                            MaskRow{CKG_MGF1_SHA512, crypto::HashAlgorithm::sha512}};

constexpr CK_ULONG kLongestSalt = 512;  // bytes of the largest modulus
constexpr CK_ULONG kLongestLabel = 64UL * 1024;

std::optional<crypto::HashAlgorithm> maskHashOf(CK_ULONG type) {
  const auto *const row = std::ranges::find(kMasks, type, &MaskRow::type);
  return row == kMasks.end() ? std::nullopt : std::optional(row->hash);
}

// Copied, since the program's structure may be unaligned.
template <typename T>
std::optional<T> structureIn(const CK_MECHANISM &given) {
  if (given.pParameter == nullptr || given.ulParameterLen != sizeof(T)) {
    return std::nullopt;
  }
  T structure;
  std::memcpy(&structure, given.pParameter, sizeof structure);
  return structure;
}

bool readPSS(const CK_MECHANISM &given, const Mechanism &mechanism,
             crypto::PSSParameters &parameters) {
  const auto structure = structureIn<CK_RSA_PKCS_PSS_PARAMS>(given);
  const auto hash = structure ? hashOf(structure->hashAlg) : std::nullopt;
  const auto maskHash = structure ? maskHashOf(structure->mgf) : std::nullopt;
  if (!hash || !maskHash || structure->sLen > kLongestSalt ||
      (mechanism.hash && *mechanism.hash != *hash)) {
    return false;
  }
  parameters = {*hash, *maskHash, structure->sLen};
  return true;
}

bool readOAEP(const CK_MECHANISM &given, crypto::OAEPParameters &parameters) {
  const auto structure = structureIn<CK_RSA_PKCS_OAEP_PARAMS>(given);
  const auto hash = structure ? hashOf(structure->hashAlg) : std::nullopt;
  const auto maskHash = structure ? maskHashOf(structure->mgf) : std::nullopt;
  if (!hash || !maskHash) {
    return false;
  }
  parameters = {*hash, *maskHash, {}};
  if (structure->ulSourceDataLen == 0) {
    return true;  // programs without a label leave `source` at 0 too
  }
  if (structure->source != CKZ_DATA_SPECIFIED || structure->pSourceData == nullptr ||
      structure->ulSourceDataLen > kLongestLabel) {
    return false;
  }
  const auto *const label = static_cast<const std::uint8_t *>(structure->pSourceData);
  parameters.label.assign(label, label + structure->ulSourceDataLen);
  return true;
}

// The peer's point: programs pass either the raw point or a DER OCTET STRING around it. Both begin
// with 0x04, so the size decides.
ByteView pointIn(ByteView bytes) {
  constexpr std::array<std::size_t, 3> kPointSizes{65, 97, 133};
  for (const std::size_t size : kPointSizes) {
    const std::size_t header = size < 128 ? 2 : 3;
    if (bytes.size() == size + header && bytes[0] == 0x04 && bytes[header - 1] == size &&
        (header == 2 || bytes[1] == 0x81)) {
      return bytes.last(size);
    }
  }
  return bytes;
}

bool readECDH(const CK_MECHANISM &given, Bytes &peerPoint) {
  const auto structure = structureIn<CK_ECDH1_DERIVE_PARAMS>(given);
  constexpr CK_ULONG kLongestPoint = 256;
  if (!structure || structure->kdf != CKD_NULL || structure->ulSharedDataLen != 0 ||
      structure->pPublicData == nullptr || structure->ulPublicDataLen > kLongestPoint) {
    return false;
  }
  const ByteView point = pointIn({structure->pPublicData, structure->ulPublicDataLen});
  peerPoint.assign(point.begin(), point.end());
  return true;
}

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
    case rsaRaw:
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

CK_RV readParameters(const CK_MECHANISM &given, const Mechanism &mechanism,
                     MechanismParameters &parameters) {
  bool isGood = true;
  switch (mechanism.scheme) {
    case Scheme::rsaPSS:
      isGood = readPSS(given, mechanism, parameters.pss);
      break;
    case Scheme::rsaOAEP:
      isGood = readOAEP(given, parameters.oaep);
      break;
    case Scheme::ecdh:
      isGood = readECDH(given, parameters.peerPoint);
      break;
    case Scheme::digest:
    case Scheme::rsaPKCS1:
    case Scheme::rsaRaw:
    case Scheme::ecdsa:
    case Scheme::eddsa:
      break;
  }
  return isGood ? CKR_OK : CKR_MECHANISM_PARAM_INVALID;
}

}  // namespace driver
