#include "crypto/DerivationBudget.hpp"

#include <openssl/asn1.h>
#include <openssl/x509.h>

#include <algorithm>

#include "crypto/Owned.hpp"
#include "crypto/Pkcs12.hpp"

namespace crypto {
namespace {

constexpr std::uint64_t kTooMany = kPkcs12Rounds + 1;

// A factor of the work. A number that is negative or above the bound becomes one above it, so that
// a product of three does not overflow. Zero counts as one: setting a derivation up costs time too.
std::uint64_t countOf(const ASN1_INTEGER *number) {
  std::uint64_t count = 0;
  return ASN1_INTEGER_get_uint64(&count, number) == 1
             ? std::clamp<std::uint64_t>(count, 1, kTooMany)
             : kTooMany;
}

// An algorithm's parameters; null if they have another form.
template <typename Parameters, auto Release>
Owned<Parameters, Release> parametersOf(const ASN1_TYPE *value, const ASN1_ITEM *form) {
  return Owned<Parameters, Release>(
      static_cast<Parameters *>(ASN1_TYPE_unpack_sequence(form, value)));
}

}  // namespace

bool DerivationBudget::takeRounds(std::uint64_t count) {
  rounds_ += count;
  if (rounds_ > kPkcs12Rounds) {
    excess_ = std::to_string(kPkcs12Rounds) + " rounds of key derivation";
  }
  return excess_.empty();
}

bool DerivationBudget::takeRounds(const ASN1_INTEGER *rounds) {
  return takeRounds(rounds == nullptr ? 1 : countOf(rounds));
}

// ROMix (RFC 7914 section 5) mixes a block of 128·r bytes 2·N times, for each of p lanes, over a
// table of N blocks. For N·r·p that is two blocks of 128 bytes each, which takes about as long as a
// round of PBKDF2 with SHA-256.
bool DerivationBudget::takeScrypt(const ASN1_TYPE *parameters) {
  const auto scrypt =
      parametersOf<SCRYPT_PARAMS, SCRYPT_PARAMS_free>(parameters, ASN1_ITEM_rptr(SCRYPT_PARAMS));
  if (!scrypt) {
    return true;
  }
  const std::uint64_t cost = countOf(scrypt->costParameter);
  const std::uint64_t blockSize = countOf(scrypt->blockSize);
  const std::uint64_t lanes = countOf(scrypt->parallelizationParameter);
  constexpr std::uint64_t kUnit = 128;
  // the table, the lanes and two working blocks
  if (kUnit * blockSize * (cost + lanes + 2) > kPkcs12ScryptMemory) {
    excess_ = std::to_string(kPkcs12ScryptMemory) + " bytes of memory for a key derivation";
    return false;
  }
  return takeRounds(cost * blockSize * lanes);
}

bool DerivationBudget::takeDerivation(const X509_ALGOR *algorithm) {
  if (OBJ_obj2nid(algorithm->algorithm) != NID_pbes2) {
    const auto parameters =
        parametersOf<PBEPARAM, PBEPARAM_free>(algorithm->parameter, ASN1_ITEM_rptr(PBEPARAM));
    return !parameters || takeRounds(parameters->iter);
  }
  const auto scheme =
      parametersOf<PBE2PARAM, PBE2PARAM_free>(algorithm->parameter, ASN1_ITEM_rptr(PBE2PARAM));
  if (!scheme) {
    return true;
  }
  const X509_ALGOR *function = scheme->keyfunc;
  if (OBJ_obj2nid(function->algorithm) == NID_id_scrypt) {
    return takeScrypt(function->parameter);
  }
  const auto parameters =
      parametersOf<PBKDF2PARAM, PBKDF2PARAM_free>(function->parameter, ASN1_ITEM_rptr(PBKDF2PARAM));
  return !parameters || takeRounds(parameters->iter);
}

bool DerivationBudget::takeBag() {
  if (++bags_ > kPkcs12Bags) {
    excess_ = std::to_string(kPkcs12Bags) + " bags";
  }
  return excess_.empty();
}

}  // namespace crypto
