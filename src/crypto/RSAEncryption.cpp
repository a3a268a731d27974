#include "crypto/RSAEncryption.hpp"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/params.h>
#include <openssl/rsa.h>

#include <array>

#include "crypto/KeyParts.hpp"
#include "crypto/Library.hpp"
#include "crypto/Owned.hpp"

namespace crypto {
namespace {

OSSL_PARAM textParameter(const char *name, const char *text) {
  // the library only reads, but its structure is shared with calls that write
  return OSSL_PARAM_construct_utf8_string(name, const_cast<char *>(text), 0);
}

std::optional<Bytes> encrypt(const PublicKey &key, ByteView data, const OSSL_PARAM *parameters) {
  if (key.type() != KeyType::rsa) {
    return std::nullopt;
  }
  const Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free> context(
      EVP_PKEY_CTX_new_from_pkey(libraryContext(), key.native(), nullptr));
  Bytes block(key.sizeInBytes());
  std::size_t length = block.size();
  const bool isDone =
      context && EVP_PKEY_encrypt_init(context.get()) == 1 &&
      // not with the former call: a host that has made an engine its default gets contexts of the
      // old kind, which take parameters in this way alone
      EVP_PKEY_CTX_set_params(context.get(), parameters) == 1 &&
      EVP_PKEY_encrypt(context.get(), block.data(), &length, data.data(), data.size()) == 1;
  ERR_clear_error();
  block.resize(length);
  return isDone ? std::optional(std::move(block)) : std::nullopt;
}

using Number = Owned<BIGNUM, BN_free>;

Number numberOf(ByteView bytes) {
  return Number(BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr));
}

std::optional<Bytes> encryptPadded(const PublicKey &key, ByteView data, const char *padding) {
  const std::array parameters{textParameter(OSSL_ASYM_CIPHER_PARAM_PAD_MODE, padding),
                              OSSL_PARAM_construct_end()};
  return encrypt(key, data, parameters.data());
}

}  // namespace

// By the numbers themselves, since a driver judges signatures with it: a host that makes an engine
// its default takes over what EVP does with RSA keys, in every context of the library.
std::optional<Bytes> encryptBlock(const PublicKey &key, ByteView block) {
  const auto parts = rsaPartsOf(key);
  if (!parts) {
    return std::nullopt;
  }
  const Number modulus = numberOf(parts->modulus);
  const Number exponent = numberOf(parts->publicExponent);
  const Number base = numberOf(block);
  const Number result(BN_new());
  const Owned<BN_CTX, BN_CTX_free> context(BN_CTX_new_ex(libraryContext()));
  Bytes encrypted(key.sizeInBytes());
  const bool isDone =
      modulus && exponent && base && result && context && block.size() == encrypted.size() &&
      BN_ucmp(base.get(), modulus.get()) < 0 &&
      BN_mod_exp(result.get(), base.get(), exponent.get(), modulus.get(), context.get()) == 1 &&
      BN_bn2binpad(result.get(), encrypted.data(), static_cast<int>(encrypted.size())) >= 0;
  ERR_clear_error();
  return isDone ? std::optional(std::move(encrypted)) : std::nullopt;
}

std::optional<Bytes> encryptPKCS1(const PublicKey &key, ByteView data) {
  return encryptPadded(key, data, OSSL_PKEY_RSA_PAD_MODE_PKCSV15);
}

std::optional<Bytes> encryptOAEP(const PublicKey &key, ByteView data,
                                 const OAEPParameters &parameters) {
  Bytes label = parameters.label;
  const std::array given{
      textParameter(OSSL_ASYM_CIPHER_PARAM_PAD_MODE, OSSL_PKEY_RSA_PAD_MODE_OAEP),
      textParameter(OSSL_ASYM_CIPHER_PARAM_OAEP_DIGEST, nameOf(parameters.hash)),
      textParameter(OSSL_ASYM_CIPHER_PARAM_MGF1_DIGEST, nameOf(parameters.maskHash)),
      // the library takes no empty label, which is what counts without one
      label.empty() ? OSSL_PARAM_construct_end()
                    : OSSL_PARAM_construct_octet_string(OSSL_ASYM_CIPHER_PARAM_OAEP_LABEL,
                                                        label.data(), label.size()),
      OSSL_PARAM_construct_end()};
  return encrypt(key, data, given.data());
}

}  // namespace crypto
