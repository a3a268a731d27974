#include "crypto/Pkcs12.hpp"

#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pkcs12.h>
#include <openssl/provider.h>
#include <openssl/x509.h>

#include <optional>
#include <string>
#include <utility>

#include "crypto/DerivationBudget.hpp"
#include "crypto/Library.hpp"
#include "crypto/Owned.hpp"

namespace crypto {
namespace {

using Package = Owned<PKCS12, PKCS12_free>;
using KeyInfo = Owned<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>;

// Bags may contain bags. Real files need no more levels.
constexpr int kNesting = 4;

struct SafesRelease {
  void operator()(STACK_OF(PKCS7) * safes) const { sk_PKCS7_pop_free(safes, PKCS7_free); }
};
struct BagsRelease {
  void operator()(STACK_OF(PKCS12_SAFEBAG) * bags) const {
    sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free);
  }
};
using Safes = std::unique_ptr<STACK_OF(PKCS7), SafesRelease>;
using Bags = std::unique_ptr<STACK_OF(PKCS12_SAFEBAG), BagsRelease>;

// The password for the library, which derives different keys from no password and an empty one.
struct Password {
  const char *characters = nullptr;
  int length = 0;
};

Bytes localKeyIDOf(const PKCS12_SAFEBAG *bag) {
  const ASN1_TYPE *value = PKCS12_SAFEBAG_get0_attr(bag, NID_localKeyID);
  if (value == nullptr || value->type != V_ASN1_OCTET_STRING) {
    return {};
  }
  const std::uint8_t *bytes = ASN1_STRING_get0_data(value->value.octet_string);
  return {bytes, bytes + ASN1_STRING_length(value->value.octet_string)};
}

// A separate library context with the legacy algorithms.
class LegacyContext {
 public:
  LegacyContext()
      : context_(OSSL_LIB_CTX_new()), standard_(load("default")), legacy_(load("legacy")) {}

  // Null if this machine has no legacy provider.
  [[nodiscard]] OSSL_LIB_CTX *get() const {
    return context_ && standard_ && legacy_ ? context_.get() : nullptr;
  }

 private:
  using Provider = Owned<OSSL_PROVIDER, OSSL_PROVIDER_unload>;

  // With a null context the provider would be loaded into the program's default context.
  [[nodiscard]] OSSL_PROVIDER *load(const char *name) const {
    return context_ ? OSSL_PROVIDER_load(context_.get(), name) : nullptr;
  }

  Owned<OSSL_LIB_CTX, OSSL_LIB_CTX_free> context_;
  Provider standard_;
  Provider legacy_;
};

// The cipher of a password-based encryption; null if the library has no name for it.
const char *cipherOf(const X509_ALGOR *algorithm) {
  int cipher = NID_undef;
  if (OBJ_obj2nid(algorithm->algorithm) != NID_pbes2) {
    EVP_PBE_find(EVP_PBE_TYPE_OUTER, OBJ_obj2nid(algorithm->algorithm), &cipher,
                 /*pmnid=*/nullptr, /*pkeygen=*/nullptr);
  } else if (const Owned<PBE2PARAM, PBE2PARAM_free> scheme(static_cast<PBE2PARAM *>(
                 ASN1_TYPE_unpack_sequence(ASN1_ITEM_rptr(PBE2PARAM), algorithm->parameter)));
             scheme) {
    cipher = OBJ_obj2nid(scheme->encryption->algorithm);
  }
  return cipher == NID_undef ? nullptr : OBJ_nid2sn(cipher);
}

// Reads one file.
class Reader {
 public:
  enum class Outcome { read, passwordRefused, excessive, damaged };

  Outcome read(ByteView file, const SecretText *password);
  Pkcs12Content takeContent() { return std::move(content_); }
  [[nodiscard]] const std::string &excess() const { return budget_.excess(); }

 private:
  bool countBags(const STACK_OF(PKCS12_SAFEBAG) * bags, int level);
  bool countSafes(const STACK_OF(PKCS7) * safes);
  bool choosePassword(PKCS12 *package, const SecretText *password);
  OSSL_LIB_CTX *contextFor(const X509_ALGOR *algorithm);
  Bags decrypted(const PKCS7_ENCRYPT *encrypted);
  Outcome readSafe(PKCS7 *safe);
  bool readBags(const STACK_OF(PKCS12_SAFEBAG) * bags, int level);
  bool readBag(const PKCS12_SAFEBAG *bag, int level);
  bool readKey(const PKCS12_SAFEBAG *bag);
  bool readCertificate(const PKCS12_SAFEBAG *bag);

  OSSL_LIB_CTX *context_ = libraryContext();
  std::optional<LegacyContext> legacy_;  // made at its first use
  Password password_;
  DerivationBudget budget_;
  Pkcs12Content content_;
};

bool Reader::countBags(const STACK_OF(PKCS12_SAFEBAG) * bags, int level) {
  for (int index = 0; index < sk_PKCS12_SAFEBAG_num(bags); ++index) {
    const PKCS12_SAFEBAG *bag = sk_PKCS12_SAFEBAG_value(bags, index);
    const int kind = PKCS12_SAFEBAG_get_nid(bag);
    if (!budget_.takeBag()) {
      return false;
    }
    if (kind == NID_pkcs8ShroudedKeyBag) {
      const X509_ALGOR *algorithm = nullptr;
      X509_SIG_get0(PKCS12_SAFEBAG_get0_pkcs8(bag), &algorithm, nullptr);
      if (!budget_.takeDerivation(algorithm)) {
        return false;
      }
    } else if (kind == NID_safeContentsBag && level < kNesting &&
               !countBags(PKCS12_SAFEBAG_get0_safes(bag), level + 1)) {
      return false;
    }
  }
  return true;
}

bool Reader::countSafes(const STACK_OF(PKCS7) * safes) {
  for (int index = 0; index < sk_PKCS7_num(safes); ++index) {
    PKCS7 *safe = sk_PKCS7_value(safes, index);
    if (!budget_.takeBag()) {
      return false;
    }
    if (PKCS7_type_is_encrypted(safe) && safe->d.encrypted != nullptr &&
        !budget_.takeDerivation(safe->d.encrypted->enc_data->algorithm)) {
      return false;
    }
    const Bags bags(PKCS7_type_is_data(safe) ? PKCS12_unpack_p7data(safe) : nullptr);
    if (bags && !countBags(bags.get(), 0)) {
      return false;
    }
  }
  return true;
}

bool Reader::choosePassword(PKCS12 *package, const SecretText *password) {
  if (password != nullptr && !password->empty()) {
    const std::string_view characters = password->reveal();
    password_ = {characters.data(), static_cast<int>(characters.size())};
  }
  if (PKCS12_mac_present(package) != 1 ||
      PKCS12_verify_mac(package, password_.characters, password_.length) == 1) {
    return true;
  }
  if (password_.characters != nullptr) {
    return false;
  }
  password_ = {"", 0};
  return PKCS12_verify_mac(package, password_.characters, password_.length) == 1;
}

// The context that has the cipher. Trying one after the other would derive the key twice.
OSSL_LIB_CTX *Reader::contextFor(const X509_ALGOR *algorithm) {
  const char *name = cipherOf(algorithm);
  const auto isIn = [name](OSSL_LIB_CTX *context) {
    return Owned<EVP_CIPHER, EVP_CIPHER_free>(EVP_CIPHER_fetch(context, name, nullptr)) != nullptr;
  };
  if (name == nullptr || isIn(context_)) {
    return context_;
  }
  if (!legacy_) {
    legacy_.emplace();
  }
  return legacy_->get() != nullptr && isIn(legacy_->get()) ? legacy_->get() : context_;
}

bool Reader::readKey(const PKCS12_SAFEBAG *bag) {
  KeyInfo opened;
  const PKCS8_PRIV_KEY_INFO *info = nullptr;
  if (PKCS12_SAFEBAG_get_nid(bag) == NID_keyBag) {
    info = PKCS12_SAFEBAG_get0_p8inf(bag);
  } else {
    const X509_ALGOR *algorithm = nullptr;
    X509_SIG_get0(PKCS12_SAFEBAG_get0_pkcs8(bag), &algorithm, nullptr);
    opened.reset(PKCS12_decrypt_skey_ex(bag, password_.characters, password_.length,
                                        contextFor(algorithm), nullptr));
    info = opened.get();
  }
  SecretOutput encoded;
  const int length = info == nullptr ? -1 : i2d_PKCS8_PRIV_KEY_INFO(info, &encoded.bytes);
  if (length <= 0) {
    return false;
  }
  encoded.length = static_cast<std::size_t>(length);
  content_.keys.push_back({SecretBytes(encoded.view()), localKeyIDOf(bag)});
  return true;
}

bool Reader::readCertificate(const PKCS12_SAFEBAG *bag) {
  if (PKCS12_SAFEBAG_get_bag_nid(bag) != NID_x509Certificate) {
    return true;
  }
  const Owned<X509, X509_free> certificate(PKCS12_SAFEBAG_get1_cert(bag));
  std::uint8_t *encoded = nullptr;
  const int length = certificate ? i2d_X509(certificate.get(), &encoded) : -1;
  if (length <= 0) {
    return false;
  }
  content_.certificates.push_back({Bytes(encoded, encoded + length), localKeyIDOf(bag)});
  OPENSSL_free(encoded);
  return true;
}

bool Reader::readBag(const PKCS12_SAFEBAG *bag, int level) {
  switch (PKCS12_SAFEBAG_get_nid(bag)) {
    case NID_keyBag:
    case NID_pkcs8ShroudedKeyBag:
      return readKey(bag);
    case NID_certBag:
      return readCertificate(bag);
    case NID_safeContentsBag:
      return level < kNesting && readBags(PKCS12_SAFEBAG_get0_safes(bag), level + 1);
    default:
      return true;  // revocation lists and secrets are not used
  }
}

bool Reader::readBags(const STACK_OF(PKCS12_SAFEBAG) * bags, int level) {
  for (int index = 0; index < sk_PKCS12_SAFEBAG_num(bags); ++index) {
    if (!readBag(sk_PKCS12_SAFEBAG_value(bags, index), level)) {
      return false;
    }
  }
  return true;
}

Bags Reader::decrypted(const PKCS7_ENCRYPT *encrypted) {
  const PKCS7_ENC_CONTENT *content = encrypted == nullptr ? nullptr : encrypted->enc_data;
  // the content is optional (RFC 2315 10.1)
  if (content == nullptr || content->enc_data == nullptr) {
    return nullptr;
  }
  return Bags(static_cast<STACK_OF(PKCS12_SAFEBAG) *>(PKCS12_item_decrypt_d2i_ex(
      content->algorithm, ASN1_ITEM_rptr(PKCS12_SAFEBAGS), password_.characters, password_.length,
      content->enc_data, /*zbuf=*/1, contextFor(content->algorithm), /*propq=*/nullptr)));
}

Reader::Outcome Reader::readSafe(PKCS7 *safe) {
  const bool isEncrypted = PKCS7_type_is_encrypted(safe);
  if (!isEncrypted && !PKCS7_type_is_data(safe)) {
    return Outcome::read;  // encrypted for a public key
  }
  const Bags bags(isEncrypted ? decrypted(safe->d.encrypted) : Bags(PKCS12_unpack_p7data(safe)));
  if (!bags) {
    return Outcome::damaged;
  }
  // unencrypted bags are already counted
  if (isEncrypted && !countBags(bags.get(), 0)) {
    return Outcome::excessive;
  }
  return readBags(bags.get(), 0) ? Outcome::read : Outcome::damaged;
}

Reader::Outcome Reader::read(ByteView file, const SecretText *password) {
  ERR_clear_error();
  PKCS12 *raw = PKCS12_init_ex(NID_pkcs7_data, context_, nullptr);
  const std::uint8_t *end = file.data();
  // on failure d2i_PKCS12 has released the package and cleared the pointer
  const bool isRead =
      raw != nullptr && d2i_PKCS12(&raw, &end, static_cast<long>(file.size())) != nullptr;
  const Package package(raw);
  const Safes safes(isRead ? PKCS12_unpack_authsafes(package.get()) : nullptr);
  if (!safes) {
    return Outcome::damaged;
  }
  const ASN1_INTEGER *macRounds = nullptr;
  PKCS12_get0_mac(nullptr, nullptr, nullptr, &macRounds, package.get());
  const bool hasMac = PKCS12_mac_present(package.get()) == 1;
  if ((hasMac && !budget_.takeRounds(macRounds)) || !countSafes(safes.get())) {
    return Outcome::excessive;
  }
  if (!choosePassword(package.get(), password)) {
    return Outcome::passwordRefused;
  }
  for (int index = 0; index < sk_PKCS7_num(safes.get()); ++index) {
    const Outcome outcome = readSafe(sk_PKCS7_value(safes.get(), index));
    if (outcome != Outcome::read) {
      return outcome;
    }
  }
  return Outcome::read;
}

}  // namespace

std::optional<Pkcs12Content> readPkcs12(ByteView file, const SecretText *password, Error *error) {
  using Outcome = Reader::Outcome;
  Reader reader;
  switch (reader.read(file, password)) {
    case Outcome::read:
      ERR_clear_error();
      return reader.takeContent();
    case Outcome::passwordRefused:
      base::report(error, "password", 0, "the password does not fit the PKCS #12 file");
      break;
    case Outcome::excessive:
      base::report(error, "crypto", 0, "the PKCS #12 file asks for more than " + reader.excess());
      break;
    case Outcome::damaged:
      reportLibraryError(error, "the PKCS #12 file cannot be read");
      break;
  }
  ERR_clear_error();
  return std::nullopt;
}

}  // namespace crypto
