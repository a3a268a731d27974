#include "driver/MechanismParameters.hpp"

#include <algorithm>
#include <array>
#include <cstring>

namespace driver {
namespace {

struct MaskRow {
  CK_ULONG type;
  crypto::HashAlgorithm hash;
};

constexpr std::array kMasks{MaskRow{CKG_MGF1_SHA1, crypto::HashAlgorithm::sha1},
                            MaskRow{CKG_MGF1_SHA224, crypto::HashAlgorithm::sha224},
                            MaskRow{CKG_MGF1_SHA256, crypto::HashAlgorithm::sha256},
                            MaskRow{CKG_MGF1_SHA384, crypto::HashAlgorithm::sha384},
                            MaskRow{CKG_MGF1_SHA512, crypto::HashAlgorithm::sha512}};

constexpr CK_ULONG kLongestSalt = 512;  // the largest modulus
constexpr CK_ULONG kLongestLabel = 64UL * 1024;

std::optional<crypto::HashAlgorithm> maskHashOf(CK_ULONG type) {
  const auto *const row = std::ranges::find(kMasks, type, &MaskRow::type);
  return row == kMasks.end() ? std::nullopt : std::optional(row->hash);
}

// A copy, since nothing is known of how the program has laid its structure out in memory.
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
    return true;  // programs without a label leave the source's kind at 0 as well
  }
  if (structure->source != CKZ_DATA_SPECIFIED || structure->pSourceData == nullptr ||
      structure->ulSourceDataLen > kLongestLabel) {
    return false;
  }
  const auto *const label = static_cast<const std::uint8_t *>(structure->pSourceData);
  parameters.label.assign(label, label + structure->ulSourceDataLen);
  return true;
}

// The point in what programs hand over, which is the point itself or a DER OCTET STRING of it. A
// point begins like such a string, so its size decides.
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
    case Scheme::rsaBlock:
    case Scheme::ecdsa:
    case Scheme::eddsa:
      break;
  }
  return isGood ? CKR_OK : CKR_MECHANISM_PARAM_INVALID;
}

}  // namespace driver
