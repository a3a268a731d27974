#include "crypto/PSS.hpp"

#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/params.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "crypto/Library.hpp"
#include "crypto/Owned.hpp"
#include "crypto/Padding.hpp"

namespace crypto {
namespace {

constexpr std::uint8_t kTrailer = 0xBC;

OSSL_PARAM textParameter(const char *name, const char *text) {
  // the library only reads, but its structure is shared with calls that write
  return OSSL_PARAM_construct_utf8_string(name, const_cast<char *>(text), 0);
}

// H of RFC 8017 9.1.1, steps 5 and 6: eight zeros, the message's digest and the salt.
Bytes hashOfSalted(ByteView digest, ByteView salt, HashAlgorithm hash) {
  Bytes input(8);
  input.insert(input.end(), digest.begin(), digest.end());
  input.insert(input.end(), salt.begin(), salt.end());
  return digestOf(hash, input);
}

}  // namespace

std::optional<Bytes> padPSS(ByteView digest, const PSSParameters &parameters, int modulusBits) {
  const auto usedBits = static_cast<std::size_t>(modulusBits) - 1;
  const std::size_t size = digestSize(parameters.hash);
  const std::size_t encodedSize = (usedBits + 7) / 8;
  // compared so that no sum of a foreign length can overflow
  if (modulusBits < 16 || digest.size() != size || encodedSize < size + 2 ||
      parameters.saltLength > encodedSize - size - 2) {
    return std::nullopt;
  }
  Bytes salt(parameters.saltLength);
  ::arc4random_buf(salt.data(), salt.size());

  Bytes block((static_cast<std::size_t>(modulusBits) + 7) / 8);
  const std::span<std::uint8_t> encoded = std::span(block).last(encodedSize);
  const std::span<std::uint8_t> masked = encoded.first(encodedSize - size - 1);
  masked[masked.size() - salt.size() - 1] = 1;
  std::ranges::copy(salt, masked.last(salt.size()).begin());
  const Bytes hash = hashOfSalted(digest, salt, parameters.hash);
  layMGF1(masked, hash, parameters.maskHash);
  masked[0] &= static_cast<std::uint8_t>(0xFFU >> (8 * encodedSize - usedBits));
  std::ranges::copy(hash, encoded.subspan(masked.size()).begin());
  encoded.back() = kTrailer;
  return block;
}

bool verifyPSS(const PublicKey &key, ByteView signature, ByteView digest,
               const PSSParameters &parameters) {
  // RFC 8017 8.1.2 step 1; the library takes shorter ones
  if (key.type() != KeyType::rsa || digest.size() != digestSize(parameters.hash) ||
      signature.size() != static_cast<std::size_t>(EVP_PKEY_get_size(key.native()))) {
    return false;
  }
  int saltLength = static_cast<int>(std::min<std::size_t>(parameters.saltLength, 1U << 16U));
  const std::array given{
      textParameter(OSSL_SIGNATURE_PARAM_PAD_MODE, OSSL_PKEY_RSA_PAD_MODE_PSS),
      textParameter(OSSL_SIGNATURE_PARAM_DIGEST, nameOf(parameters.hash)),
      textParameter(OSSL_SIGNATURE_PARAM_MGF1_DIGEST, nameOf(parameters.maskHash)),
      OSSL_PARAM_construct_int(OSSL_SIGNATURE_PARAM_PSS_SALTLEN, &saltLength),
      OSSL_PARAM_construct_end()};
  const Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free> context(
      EVP_PKEY_CTX_new_from_pkey(libraryContext(), key.native(), nullptr));
  const bool isValid = context && EVP_PKEY_verify_init_ex(context.get(), given.data()) == 1 &&
                       EVP_PKEY_verify(context.get(), signature.data(), signature.size(),
                                       digest.data(), digest.size()) == 1;
  ERR_clear_error();
  return isValid;
}

}  // namespace crypto
