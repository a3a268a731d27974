#include "crypto/RSAEncryption.hpp"

#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/params.h>
#include <openssl/rsa.h>

#include <array>

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
  Bytes block(static_cast<std::size_t>(EVP_PKEY_get_size(key.native())));
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

std::optional<Bytes> encryptPadded(const PublicKey &key, ByteView data, const char *padding) {
  const std::array parameters{textParameter(OSSL_ASYM_CIPHER_PARAM_PAD_MODE, padding),
                              OSSL_PARAM_construct_end()};
  return encrypt(key, data, parameters.data());
}

}  // namespace

std::optional<Bytes> encryptBlock(const PublicKey &key, ByteView block) {
  return encryptPadded(key, block, OSSL_PKEY_RSA_PAD_MODE_NONE);
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
