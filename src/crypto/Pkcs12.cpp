#include "crypto/Pkcs12.hpp"

#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/pkcs12.h>
#include <openssl/provider.h>
#include <openssl/x509.h>

#include <string>
#include <utility>

#include "crypto/Library.hpp"
#include "crypto/Owned.hpp"
#include "crypto/Pkcs12Rounds.hpp"

namespace crypto {
namespace {

using Package = Owned<PKCS12, PKCS12_free>;
using KeyInfo = Owned<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>;

// Bags may hold bags; nobody needs more levels.
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

// The password as the library takes it: none at all and an empty one are different keys.
struct Password {
  const char *characters = nullptr;
  int length = 0;
};

// One pass over a file in one library context.
class Reader {
 public:
  enum class Outcome { read, passwordRefused, tooManyRounds, damaged };

  explicit Reader(OSSL_LIB_CTX *context) : context_(context) {}

  Outcome read(ByteView file, const SecretText *password);
  Pkcs12Content takeContent() { return std::move(content_); }

 private:
  // Adds to the sum; false once it is above the bound, before anything is derived.
  bool mayDerive(long rounds) {
    rounds_ += rounds;
    return rounds_ <= kPkcs12Rounds;
  }

  bool countBags(const STACK_OF(PKCS12_SAFEBAG) * bags, int level);
  bool countSafes(const STACK_OF(PKCS7) * safes);
  bool choosePassword(PKCS12 *package, const SecretText *password);
  Outcome readSafe(PKCS7 *safe);
  bool readBags(const STACK_OF(PKCS12_SAFEBAG) * bags, int level);
  bool readBag(const PKCS12_SAFEBAG *bag, int level);
  bool addKey(const PKCS8_PRIV_KEY_INFO *info);

  OSSL_LIB_CTX *context_;
  Password password_;
  long rounds_ = 0;
  Pkcs12Content content_;
};

bool Reader::countBags(const STACK_OF(PKCS12_SAFEBAG) * bags, int level) {
  for (int index = 0; index < sk_PKCS12_SAFEBAG_num(bags); ++index) {
    const PKCS12_SAFEBAG *bag = sk_PKCS12_SAFEBAG_value(bags, index);
    const int kind = PKCS12_SAFEBAG_get_nid(bag);
    if (kind == NID_pkcs8ShroudedKeyBag) {
      const X509_ALGOR *algorithm = nullptr;
      X509_SIG_get0(PKCS12_SAFEBAG_get0_pkcs8(bag), &algorithm, nullptr);
      if (!mayDerive(roundsOf(algorithm))) {
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
    if (PKCS7_type_is_encrypted(safe) && safe->d.encrypted != nullptr &&
        !mayDerive(roundsOf(safe->d.encrypted->enc_data->algorithm))) {
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

bool Reader::addKey(const PKCS8_PRIV_KEY_INFO *info) {
  SecretOutput encoded;
  const int length = info == nullptr ? -1 : i2d_PKCS8_PRIV_KEY_INFO(info, &encoded.bytes);
  if (length <= 0) {
    return false;
  }
  encoded.length = static_cast<std::size_t>(length);
  content_.keys.emplace_back(encoded.view());
  return true;
}

bool Reader::readBag(const PKCS12_SAFEBAG *bag, int level) {
  switch (PKCS12_SAFEBAG_get_nid(bag)) {
    case NID_keyBag:
      return addKey(PKCS12_SAFEBAG_get0_p8inf(bag));
    case NID_pkcs8ShroudedKeyBag:
      return addKey(KeyInfo(PKCS12_decrypt_skey_ex(bag, password_.characters, password_.length,
                                                   context_, nullptr))
                        .get());
    case NID_safeContentsBag:
      return level < kNesting && readBags(PKCS12_SAFEBAG_get0_safes(bag), level + 1);
    case NID_certBag:
      break;
    default:
      return true;  // revocation lists and secrets: nothing for us
  }
  if (PKCS12_SAFEBAG_get_bag_nid(bag) != NID_x509Certificate) {
    return true;
  }
  const Owned<X509, X509_free> certificate(PKCS12_SAFEBAG_get1_cert(bag));
  std::uint8_t *encoded = nullptr;
  const int length = certificate ? i2d_X509(certificate.get(), &encoded) : -1;
  if (length <= 0) {
    return false;
  }
  content_.certificates.emplace_back(encoded, encoded + length);
  OPENSSL_free(encoded);
  return true;
}

bool Reader::readBags(const STACK_OF(PKCS12_SAFEBAG) * bags, int level) {
  for (int index = 0; index < sk_PKCS12_SAFEBAG_num(bags); ++index) {
    if (!readBag(sk_PKCS12_SAFEBAG_value(bags, index), level)) {
      return false;
    }
  }
  return true;
}

Reader::Outcome Reader::readSafe(PKCS7 *safe) {
  const bool isEncrypted = PKCS7_type_is_encrypted(safe);
  if (!isEncrypted && !PKCS7_type_is_data(safe)) {
    return Outcome::read;  // encrypted for a public key
  }
  const Bags bags(isEncrypted
                      ? PKCS12_unpack_p7encdata(safe, password_.characters, password_.length)
                      : PKCS12_unpack_p7data(safe));
  if (!bags) {
    return Outcome::damaged;
  }
  // those in the clear are counted already
  if (isEncrypted && !countBags(bags.get(), 0)) {
    return Outcome::tooManyRounds;
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
  if ((hasMac && !mayDerive(roundsOf(macRounds))) || !countSafes(safes.get())) {
    return Outcome::tooManyRounds;
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

// A library context of its own that knows the algorithms of old.
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

  // Without a context of our own it would be loaded into that of the whole program.
  [[nodiscard]] OSSL_PROVIDER *load(const char *name) const {
    return context_ ? OSSL_PROVIDER_load(context_.get(), name) : nullptr;
  }

  Owned<OSSL_LIB_CTX, OSSL_LIB_CTX_free> context_;
  Provider standard_;
  Provider legacy_;
};

}  // namespace

std::optional<Pkcs12Content> readPkcs12(ByteView file, const SecretText *password, Error *error) {
  using Outcome = Reader::Outcome;
  Reader reader(libraryContext());
  switch (reader.read(file, password)) {
    case Outcome::read:
      ERR_clear_error();
      return reader.takeContent();
    case Outcome::passwordRefused:
      ERR_clear_error();
      base::report(error, "password", 0, "the password does not fit the PKCS #12 file");
      return std::nullopt;
    case Outcome::tooManyRounds:
      ERR_clear_error();
      base::report(error, "crypto", 0,
                   "the PKCS #12 file asks for more than " + std::to_string(kPkcs12Rounds) +
                       " rounds of key derivation");
      return std::nullopt;
    case Outcome::damaged:
      break;
  }
  Error reason;
  reportLibraryError(&reason, "the PKCS #12 file cannot be read");
  const LegacyContext legacy;
  if (legacy.get() != nullptr) {
    Reader legacyReader(legacy.get());
    if (legacyReader.read(file, password) == Outcome::read) {
      ERR_clear_error();
      return legacyReader.takeContent();
    }
  }
  ERR_clear_error();
  base::report(error, reason.domain, reason.code, reason.description);
  return std::nullopt;
}

}  // namespace crypto
