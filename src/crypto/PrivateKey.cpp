#include "crypto/PrivateKey.hpp"

#include <openssl/ec.h>
#include <openssl/encoder.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "crypto/DerivationBudget.hpp"
#include "crypto/Library.hpp"
#include "crypto/Owned.hpp"

namespace crypto {
namespace {

using Context = Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;

std::shared_ptr<EVP_PKEY> shared(EVP_PKEY *key) {
  return {key, EVP_PKEY_free};
}

Context contextFor(EVP_PKEY *key) {
  ERR_clear_error();
  return Context(EVP_PKEY_CTX_new_from_pkey(libraryContext(), key, nullptr));
}

std::optional<PrivateKey> keyOrReason(EVP_PKEY *key, Error *error, const std::string &what) {
  if (key == nullptr) {
    reportLibraryError(error, what);
    return std::nullopt;
  }
  ERR_clear_error();
  return PrivateKey(shared(key));
}

struct PasswordRequest {
  const SecretText *password = nullptr;
  bool wasAsked = false;
};

// Without a callback the library would ask at the terminal.
int givePassword(char *buffer, int size, int /*isForWriting*/, void *argument) noexcept {
  PasswordRequest &request = *static_cast<PasswordRequest *>(argument);
  request.wasAsked = true;
  if (request.password == nullptr || size < 0) {
    return -1;
  }
  const std::string_view characters = request.password->reveal();
  if (characters.size() > static_cast<std::size_t>(size)) {
    return -1;
  }
  std::ranges::copy(characters, buffer);
  return static_cast<int>(characters.size());
}

Owned<BIO, BIO_free_all> sourceOf(ByteView pem) {
  return Owned<BIO, BIO_free_all>(BIO_new_mem_buf(
      pem.data(),
      static_cast<int>(std::min<std::size_t>(pem.size(), std::numeric_limits<int>::max()))));
}

// What an encrypted key of PKCS #8 in the text asks for past the bounds; empty if there is none.
std::string excessOf(ByteView pem) {
  const auto text = sourceOf(pem);
  const Owned<X509_SIG, X509_SIG_free> encrypted(
      text ? PEM_read_bio_PKCS8(text.get(), nullptr, nullptr, nullptr) : nullptr);
  DerivationBudget budget;
  if (encrypted) {
    const X509_ALGOR *algorithm = nullptr;
    X509_SIG_get0(encrypted.get(), &algorithm, nullptr);
    (void)budget.takeDerivation(algorithm);
  }
  ERR_clear_error();
  return budget.excess();
}

SecretBytes encoded(const EVP_PKEY *key, const char *format) {
  ERR_clear_error();
  const Owned<OSSL_ENCODER_CTX, OSSL_ENCODER_CTX_free> encoder(
      OSSL_ENCODER_CTX_new_for_pkey(key, EVP_PKEY_KEYPAIR, format, "PrivateKeyInfo", nullptr));
  SecretOutput output;
  if (!encoder || OSSL_ENCODER_to_data(encoder.get(), &output.bytes, &output.length) != 1) {
    ERR_clear_error();
    return {};
  }
  return SecretBytes(output.view());
}

}  // namespace

std::optional<PrivateKey> PrivateKey::generateRSA(int bits, Error *error) {
  ERR_clear_error();
  return keyOrReason(
      EVP_PKEY_Q_keygen(libraryContext(), nullptr, "RSA", static_cast<std::size_t>(bits)), error,
      "cannot make an RSA key");
}

std::optional<PrivateKey> PrivateKey::generateP256(Error *error) {
  ERR_clear_error();
  return keyOrReason(EVP_PKEY_Q_keygen(libraryContext(), nullptr, "EC", "P-256"), error,
                     "cannot make an EC key");
}

std::optional<PrivateKey> PrivateKey::fromPKCS8(ByteView der, Error *error) {
  ERR_clear_error();
  const std::uint8_t *end = der.data();
  const Owned<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free> info(
      d2i_PKCS8_PRIV_KEY_INFO(nullptr, &end, static_cast<long>(der.size())));
  const bool isWhole = info && end == der.data() + der.size();
  return keyOrReason(isWhole ? EVP_PKCS82PKEY_ex(info.get(), libraryContext(), nullptr) : nullptr,
                     error, "not a PKCS #8 private key");
}

std::optional<PrivateKey> PrivateKey::fromPEM(ByteView pem, const SecretText *password,
                                              Error *error) {
  ERR_clear_error();
  if (const std::string excess = excessOf(pem); !excess.empty()) {
    base::report(error, "crypto", 0, "the encrypted private key asks for more than " + excess);
    return std::nullopt;
  }
  PasswordRequest request{password};
  const auto text = sourceOf(pem);
  const std::shared_ptr<EVP_PKEY> key =
      shared(text ? PEM_read_bio_PrivateKey_ex(text.get(), nullptr, givePassword, &request,
                                               libraryContext(), nullptr)
                  : nullptr);
  if (key) {
    ERR_clear_error();
    return PrivateKey(key);
  }
  if (request.wasAsked) {
    ERR_clear_error();
    base::report(error, "password", 0,
                 password == nullptr ? "the private key is encrypted and no password was given"
                                     : "the password does not fit the private key");
  } else {
    reportLibraryError(error, "no private key in the PEM text");
  }
  return std::nullopt;
}

SecretBytes PrivateKey::pkcs8() const {
  return encoded(native(), "DER");
}

SecretBytes PrivateKey::pem() const {
  return encoded(native(), "PEM");
}

std::optional<Bytes> PrivateKey::signRawPKCS1(ByteView data, Error *error) const {
  const Context context = contextFor(native());
  Bytes signature(static_cast<std::size_t>(EVP_PKEY_get_size(native())));
  std::size_t length = signature.size();
  if (!context || EVP_PKEY_sign_init(context.get()) != 1 ||
      EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) != 1 ||
      EVP_PKEY_sign(context.get(), signature.data(), &length, data.data(), data.size()) != 1) {
    reportLibraryError(error, "cannot sign with PKCS #1 padding");
    return std::nullopt;
  }
  signature.resize(length);
  return signature;
}

std::optional<SecretBytes> PrivateKey::rawRSA(ByteView block, Error *error) const {
  const Context context = contextFor(native());
  CleansedBytes result(static_cast<std::size_t>(EVP_PKEY_get_size(native())));
  std::size_t length = result.size();
  if (block.size() != length) {
    base::report(error, "crypto", 0, "the block is not as long as the modulus");
    return std::nullopt;
  }
  if (!context || EVP_PKEY_decrypt_init(context.get()) != 1 ||
      EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_NO_PADDING) != 1 ||
      EVP_PKEY_decrypt(context.get(), result.data(), &length, block.data(), block.size()) != 1) {
    reportLibraryError(error, "the RSA operation failed");
    return std::nullopt;
  }
  result.resize(length);
  return SecretBytes(std::move(result));
}

std::optional<Bytes> PrivateKey::signDigestECDSA(ByteView digest, Error *error) const {
  const Context context = contextFor(native());
  Bytes signature(static_cast<std::size_t>(EVP_PKEY_get_size(native())));
  std::size_t length = signature.size();
  if (publicKey().type() != KeyType::ec || !context || EVP_PKEY_sign_init(context.get()) != 1 ||
      EVP_PKEY_sign(context.get(), signature.data(), &length, digest.data(), digest.size()) != 1) {
    reportLibraryError(error, "cannot sign with ECDSA");
    return std::nullopt;
  }
  signature.resize(length);
  return signature;
}

std::optional<Bytes> PrivateKey::signEd25519(ByteView message, Error *error) const {
  ERR_clear_error();
  const Owned<EVP_MD_CTX, EVP_MD_CTX_free> context(EVP_MD_CTX_new());
  Bytes signature(64);
  std::size_t length = signature.size();
  if (publicKey().type() != KeyType::ed25519 || !context ||
      EVP_DigestSignInit_ex(context.get(), nullptr, nullptr, libraryContext(), nullptr, native(),
                            nullptr) != 1 ||
      EVP_DigestSign(context.get(), signature.data(), &length, message.data(), message.size()) !=
          1) {
    reportLibraryError(error, "cannot sign with Ed25519");
    return std::nullopt;
  }
  return signature;
}

std::optional<SecretBytes> PrivateKey::deriveECDH(ByteView peerPoint, Error *error) const {
  const Context context = contextFor(native());
  const std::shared_ptr<EVP_PKEY> peer = shared(EVP_PKEY_new());
  constexpr std::uint8_t kUncompressed = 4;
  std::size_t length = 0;
  if (publicKey().type() != KeyType::ec || peerPoint.empty() || peerPoint[0] != kUncompressed ||
      !peer || EVP_PKEY_copy_parameters(peer.get(), native()) != 1 ||
      EVP_PKEY_set1_encoded_public_key(peer.get(), peerPoint.data(), peerPoint.size()) != 1) {
    reportLibraryError(error, "not an uncompressed point on this key's curve");
    return std::nullopt;
  }
  if (!context || EVP_PKEY_derive_init(context.get()) != 1 ||
      EVP_PKEY_derive_set_peer(context.get(), peer.get()) != 1 ||
      EVP_PKEY_derive(context.get(), nullptr, &length) != 1) {
    reportLibraryError(error, "cannot agree on a shared point");
    return std::nullopt;
  }
  CleansedBytes coordinate(length);
  if (EVP_PKEY_derive(context.get(), coordinate.data(), &length) != 1) {
    reportLibraryError(error, "cannot agree on a shared point");
    return std::nullopt;
  }
  coordinate.resize(length);
  return SecretBytes(std::move(coordinate));
}

}  // namespace crypto
