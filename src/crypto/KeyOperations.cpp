// A key with its own methods is the only way to give OpenSSL 3 foreign operations without writing a
// provider. OpenSSL has deprecated these methods in favour of providers.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "crypto/KeyOperations.hpp"

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <utility>

#include "crypto/Library.hpp"
#include "crypto/Owned.hpp"

namespace crypto {
namespace {

using Operations = std::shared_ptr<KeyOperations>;

void releaseOperations(void * /*parent*/, void *pointer, CRYPTO_EX_DATA * /*data*/, int /*index*/,
                       long /*argument*/, void * /*pointerArgument*/) {
  const std::unique_ptr<Operations> gone(static_cast<Operations *>(pointer));
}

int rsaPlace() {
  static const int place = RSA_get_ex_new_index(0, nullptr, nullptr, nullptr, releaseOperations);
  return place;
}

int ecPlace() {
  static const int place = EC_KEY_get_ex_new_index(0, nullptr, nullptr, nullptr, releaseOperations);
  return place;
}

KeyOperations &operationsOf(const RSA *key) {
  return **static_cast<Operations *>(RSA_get_ex_data(key, rsaPlace()));
}

KeyOperations &operationsOf(const EC_KEY *key) {
  return **static_cast<Operations *>(EC_KEY_get_ex_data(key, ecPlace()));
}

constexpr int kFailed = -1;

// Fills OpenSSL's buffer, which has room for the modulus, and gives the length.
int filled(ByteView result, std::uint8_t *to, const RSA *key) {
  if (result.size() > static_cast<std::size_t>(RSA_size(key))) {
    return kFailed;
  }
  std::ranges::copy(result, to);
  return static_cast<int>(result.size());
}

int failed() {
  ERR_raise_data(ERR_LIB_RSA, ERR_R_OPERATION_FAIL, "the place of the private key refused");
  return kFailed;
}

int signWithRSA(int length, const std::uint8_t *from, std::uint8_t *to, RSA *key, int padding) {
  const ByteView data(from, static_cast<std::size_t>(length));
  std::optional<Bytes> signature;
  if (padding == RSA_PKCS1_PADDING) {
    signature = operationsOf(key).signPKCS1(data);
  } else if (padding == RSA_NO_PADDING) {
    signature = operationsOf(key).signBlock(data);
  }
  return signature ? filled(*signature, to, key) : failed();
}

int decryptWithRSA(int length, const std::uint8_t *from, std::uint8_t *to, RSA *key, int padding) {
  if (padding != RSA_NO_PADDING) {
    return failed();  // this folder's callers remove the padding themselves
  }
  const auto block =
      operationsOf(key).decryptBlock(ByteView(from, static_cast<std::size_t>(length)));
  return block ? filled(block->reveal(), to, key) : failed();
}

ECDSA_SIG *signWithEC(const std::uint8_t *digest, int length, const BIGNUM * /*inverse*/,
                      const BIGNUM * /*r*/, EC_KEY *key) {
  const auto both = operationsOf(key).signECDSA(ByteView(digest, static_cast<std::size_t>(length)));
  Owned<ECDSA_SIG, ECDSA_SIG_free> signature(ECDSA_SIG_new());
  // The library sizes the buffer for the DER form by the order of the curve, so that numbers must
  // not be longer.
  const std::size_t half =
      (static_cast<std::size_t>(EC_GROUP_order_bits(EC_KEY_get0_group(key))) + 7) / 8;
  if (!both || both->size() != 2 * half || !signature) {
    failed();
    return nullptr;
  }
  const auto size = static_cast<int>(half);
  Owned<BIGNUM, BN_free> r(BN_bin2bn(both->data(), size, nullptr));
  Owned<BIGNUM, BN_free> s(BN_bin2bn(both->data() + half, size, nullptr));
  if (!r || !s || ECDSA_SIG_set0(signature.get(), r.get(), s.get()) != 1) {
    return nullptr;
  }
  // now owned by the signature
  static_cast<void>(r.release());
  static_cast<void>(s.release());
  return signature.release();
}

// Both live as long as the process: keys may outlive everything else.
const RSA_METHOD *rsaMethod() {
  static const RSA_METHOD *const method = [] {
    RSA_METHOD *const made = RSA_meth_dup(RSA_PKCS1_OpenSSL());
    RSA_meth_set1_name(made, "key in another place");
    RSA_meth_set_flags(made, RSA_FLAG_EXT_PKEY | RSA_METHOD_FLAG_NO_CHECK);
    RSA_meth_set_priv_enc(made, signWithRSA);
    RSA_meth_set_priv_dec(made, decryptWithRSA);
    return made;
  }();
  return method;
}

const EC_KEY_METHOD *ecMethod() {
  static const EC_KEY_METHOD *const method = [] {
    EC_KEY_METHOD *const made = EC_KEY_METHOD_new(EC_KEY_OpenSSL());
    int (*sign)(int, const unsigned char *, int, unsigned char *, unsigned int *, const BIGNUM *,
                const BIGNUM *, EC_KEY *) = nullptr;
    EC_KEY_METHOD_get_sign(made, &sign, nullptr, nullptr);
    EC_KEY_METHOD_set_sign(made, sign, /*sign_setup=*/nullptr, signWithEC);
    return made;
  }();
  return method;
}

// The key takes ownership of `operations` with the first call that succeeds.
bool giveTo(RSA *key, std::unique_ptr<Operations> operations) {
  if (key == nullptr || RSA_set_method(key, rsaMethod()) != 1 ||
      RSA_set_ex_data(key, rsaPlace(), operations.get()) != 1) {
    return false;
  }
  static_cast<void>(operations.release());
  return true;
}

bool giveTo(EC_KEY *key, std::unique_ptr<Operations> operations) {
  if (key == nullptr || EC_KEY_set_method(key, ecMethod()) != 1 ||
      EC_KEY_set_ex_data(key, ecPlace(), operations.get()) != 1) {
    return false;
  }
  static_cast<void>(operations.release());
  return true;
}

bool fillWithRSA(EVP_PKEY *key, const EVP_PKEY *publicKey, std::unique_ptr<Operations> operations) {
  const RSA *const original = EVP_PKEY_get0_RSA(publicKey);
  Owned<RSA, RSA_free> copy(original == nullptr ? nullptr : RSAPublicKey_dup(original));
  if (!giveTo(copy.get(), std::move(operations)) || EVP_PKEY_assign_RSA(key, copy.get()) != 1) {
    return false;
  }
  static_cast<void>(copy.release());
  return true;
}

bool fillWithEC(EVP_PKEY *key, const EVP_PKEY *publicKey, std::unique_ptr<Operations> operations) {
  const EC_KEY *const original = EVP_PKEY_get0_EC_KEY(publicKey);
  Owned<EC_KEY, EC_KEY_free> copy(original == nullptr ? nullptr : EC_KEY_dup(original));
  if (!giveTo(copy.get(), std::move(operations)) || EVP_PKEY_assign_EC_KEY(key, copy.get()) != 1) {
    return false;
  }
  static_cast<void>(copy.release());
  return true;
}

}  // namespace

std::optional<PrivateKey> privateKeyDoneBy(std::shared_ptr<KeyOperations> operations,
                                           const PublicKey &publicKey, Error *error) {
  ERR_clear_error();
  const std::shared_ptr<EVP_PKEY> key(EVP_PKEY_new(), EVP_PKEY_free);
  auto given = std::make_unique<Operations>(std::move(operations));
  const bool isFilled =
      key && (publicKey.type() == KeyType::rsa
                  ? fillWithRSA(key.get(), publicKey.native(), std::move(given))
                  : publicKey.type() == KeyType::ec &&
                        fillWithEC(key.get(), publicKey.native(), std::move(given)));
  if (!isFilled) {
    reportLibraryError(error, "no private key of this type can be used where it lies");
    return std::nullopt;
  }
  return PrivateKey(key);
}

}  // namespace crypto
