#include "crypto/Certificate.hpp"

#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <limits>

#include "crypto/Digest.hpp"
#include "crypto/Library.hpp"
#include "crypto/Owned.hpp"

namespace crypto {
namespace {

using TimePoint = std::chrono::system_clock::time_point;
using TextBuffer = Owned<BIO, BIO_free_all>;

std::string contentOf(BIO *buffer) {
  char *data = nullptr;
  const long length = BIO_get_mem_data(buffer, &data);
  return length <= 0 ? std::string() : std::string(data, static_cast<std::size_t>(length));
}

// Dates run to the year 9999, the system clock's to 2262.
TimePoint timePointOf(const ASN1_TIME *time) {
  std::tm parts{};
  if (ASN1_TIME_to_tm(time, &parts) != 1) {
    ERR_clear_error();
    return {};
  }
  const std::chrono::seconds seconds(::timegm(&parts));
  using std::chrono::duration_cast;
  const auto first = duration_cast<std::chrono::seconds>(TimePoint::min().time_since_epoch());
  const auto last = duration_cast<std::chrono::seconds>(TimePoint::max().time_since_epoch());
  return TimePoint(std::clamp(seconds, first, last));
}

int refusePassword(char * /*buffer*/, int /*size*/, int /*isForWriting*/, void * /*argument*/) {
  return -1;
}

bool setSerialNumber(X509 *certificate) {
  // 127 random bits: positive and at most the 20 bytes of RFC 5280 4.1.2.2
  std::array<std::uint8_t, 16> bytes{};
  if (RAND_bytes_ex(libraryContext(), bytes.data(), bytes.size(), 0) != 1) {
    return false;
  }
  bytes[0] = static_cast<std::uint8_t>((bytes[0] & 0x7f) | 0x40);
  const Owned<BIGNUM, BN_free> number(BN_bin2bn(bytes.data(), bytes.size(), nullptr));
  return number && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr;
}

bool setNames(X509 *certificate, const std::string &commonName) {
  X509_NAME *name = X509_get_subject_name(certificate);
  return X509_NAME_add_entry_by_NID(name, NID_commonName, MBSTRING_UTF8,
                                    reinterpret_cast<const unsigned char *>(commonName.data()),
                                    static_cast<int>(commonName.size()), -1, 0) == 1 &&
         X509_set_issuer_name(certificate, name) == 1;
}

bool setValidity(X509 *certificate, int days) {
  return X509_time_adj_ex(X509_getm_notBefore(certificate), -1, 0, nullptr) != nullptr &&
         X509_time_adj_ex(X509_getm_notAfter(certificate), days, 0, nullptr) != nullptr;
}

bool addExtension(X509 *certificate, int kind, void *value, bool isCritical) {
  return value != nullptr &&
         X509_add1_ext_i2d(certificate, kind, value, isCritical ? 1 : 0, X509V3_ADD_DEFAULT) == 1;
}

bool addBasicConstraints(X509 *certificate) {
  const Owned<BASIC_CONSTRAINTS, BASIC_CONSTRAINTS_free> noAuthority(BASIC_CONSTRAINTS_new());
  return addExtension(certificate, NID_basic_constraints, noAuthority.get(), /*isCritical=*/true);
}

bool addKeyUsage(X509 *certificate, KeyType type) {
  constexpr int kDigitalSignature = 0;  // bits of KeyUsage, RFC 5280 4.2.1.3
  constexpr int kKeyEncipherment = 2;
  constexpr int kKeyAgreement = 4;
  const Owned<ASN1_BIT_STRING, ASN1_BIT_STRING_free> usage(ASN1_BIT_STRING_new());
  return usage && ASN1_BIT_STRING_set_bit(usage.get(), kDigitalSignature, 1) == 1 &&
         (type != KeyType::rsa || ASN1_BIT_STRING_set_bit(usage.get(), kKeyEncipherment, 1) == 1) &&
         (type != KeyType::ec || ASN1_BIT_STRING_set_bit(usage.get(), kKeyAgreement, 1) == 1) &&
         addExtension(certificate, NID_key_usage, usage.get(), /*isCritical=*/true);
}

bool addSubjectKeyIdentifier(X509 *certificate) {
  const ASN1_BIT_STRING *key = X509_get0_pubkey_bitstr(certificate);
  if (key == nullptr) {
    return false;
  }
  const Bytes digest = sha1Digest({key->data, static_cast<std::size_t>(key->length)});
  const Owned<ASN1_OCTET_STRING, ASN1_OCTET_STRING_free> identifier(ASN1_OCTET_STRING_new());
  return identifier &&
         ASN1_OCTET_STRING_set(identifier.get(), digest.data(), static_cast<int>(digest.size())) ==
             1 &&
         addExtension(certificate, NID_subject_key_identifier, identifier.get(),
                      /*isCritical=*/false);
}

// Built, not parsed from a configuration text, in which a comma would begin another name.
bool addServerName(X509 *certificate, const std::string &name) {
  const Owned<GENERAL_NAMES, GENERAL_NAMES_free> names(GENERAL_NAMES_new());
  Owned<GENERAL_NAME, GENERAL_NAME_free> entry(GENERAL_NAME_new());
  Owned<ASN1_IA5STRING, ASN1_IA5STRING_free> text(ASN1_IA5STRING_new());
  if (!names || !entry || !text ||
      ASN1_STRING_set(text.get(), name.data(), static_cast<int>(name.size())) != 1) {
    return false;
  }
  GENERAL_NAME_set0_value(entry.get(), GEN_DNS, text.release());
  if (sk_GENERAL_NAME_push(names.get(), entry.get()) <= 0) {
    return false;
  }
  static_cast<void>(entry.release());  // the list owns it now
  const Owned<EXTENDED_KEY_USAGE, EXTENDED_KEY_USAGE_free> usage(EXTENDED_KEY_USAGE_new());
  return usage && sk_ASN1_OBJECT_push(usage.get(), OBJ_nid2obj(NID_server_auth)) > 0 &&
         addExtension(certificate, NID_subject_alt_name, names.get(), /*isCritical=*/false) &&
         addExtension(certificate, NID_ext_key_usage, usage.get(), /*isCritical=*/false);
}

}  // namespace

std::optional<Certificate> Certificate::fromDER(ByteView der, Error *error) {
  ERR_clear_error();
  X509 *certificate = X509_new_ex(libraryContext(), nullptr);
  const std::uint8_t *end = der.data();
  // on failure d2i_X509 has released the certificate and cleared the pointer
  const bool isRead = certificate != nullptr &&
                      d2i_X509(&certificate, &end, static_cast<long>(der.size())) != nullptr;
  std::shared_ptr<X509> owner(certificate, X509_free);
  if (!isRead) {
    reportLibraryError(error, "not a certificate");
    return std::nullopt;
  }
  if (end != der.data() + der.size()) {
    base::report(error, "crypto", 0, "not a certificate: more bytes behind it");
    return std::nullopt;
  }
  return Certificate(std::move(owner));
}

std::vector<Certificate> Certificate::allFromPEM(ByteView pem) {
  std::vector<Certificate> certificates;
  const TextBuffer text(BIO_new_mem_buf(
      pem.data(),
      static_cast<int>(std::min<std::size_t>(pem.size(), std::numeric_limits<int>::max()))));
  while (text) {
    X509 *certificate = X509_new_ex(libraryContext(), nullptr);
    const bool isRead =
        certificate != nullptr &&
        PEM_read_bio_X509(text.get(), &certificate, refusePassword, nullptr) != nullptr;
    std::shared_ptr<X509> owner(certificate, X509_free);
    if (!isRead) {
      break;
    }
    certificates.emplace_back(std::move(owner));
  }
  ERR_clear_error();
  return certificates;
}

std::optional<Certificate> Certificate::selfSigned(const PrivateKey &key,
                                                   const std::string &commonName, int days,
                                                   bool serverName, Error *error) {
  ERR_clear_error();
  const auto isASCII = [](char character) { return static_cast<unsigned char>(character) < 0x80; };
  if (serverName && !std::ranges::all_of(commonName, isASCII)) {
    base::report(error, "crypto", 0, "a DNS name holds ASCII characters only");
    return std::nullopt;
  }
  std::shared_ptr<X509> owner(X509_new_ex(libraryContext(), nullptr), X509_free);
  X509 *certificate = owner.get();
  const KeyType type = key.publicKey().type();
  // Ed25519 has its digest built in
  const EVP_MD *digest = type == KeyType::ed25519 ? nullptr : EVP_sha256();
  if (certificate == nullptr || X509_set_version(certificate, X509_VERSION_3) != 1 ||
      !setSerialNumber(certificate) || !setNames(certificate, commonName) ||
      !setValidity(certificate, days) || X509_set_pubkey(certificate, key.native()) != 1 ||
      !addBasicConstraints(certificate) || !addKeyUsage(certificate, type) ||
      !addSubjectKeyIdentifier(certificate) ||
      (serverName && !addServerName(certificate, commonName)) ||
      X509_sign(certificate, key.native(), digest) <= 0) {
    reportLibraryError(error, "cannot make a certificate");
    return std::nullopt;
  }
  return Certificate(std::move(owner));
}

Bytes Certificate::der() const {
  std::uint8_t *encoded = nullptr;
  const int length = i2d_X509(native(), &encoded);
  Bytes bytes(encoded, encoded + std::max(length, 0));
  OPENSSL_free(encoded);
  return bytes;
}

std::string Certificate::pem() const {
  const TextBuffer buffer(BIO_new(BIO_s_mem()));
  return buffer && PEM_write_bio_X509(buffer.get(), native()) == 1 ? contentOf(buffer.get())
                                                                   : std::string();
}

Bytes Certificate::sha1() const {
  return sha1Digest(der());
}

Bytes Certificate::sha256() const {
  return sha256Digest(der());
}

std::optional<PublicKey> Certificate::publicKey(Error *error) const {
  ERR_clear_error();
  std::shared_ptr<EVP_PKEY> key(X509_get_pubkey(native()), EVP_PKEY_free);
  if (!key) {
    reportLibraryError(error, "the certificate's key cannot be read");
    return std::nullopt;
  }
  return PublicKey(std::move(key));
}

std::optional<std::string> Certificate::commonName() const {
  const X509_NAME *name = X509_get_subject_name(native());
  int last = -1;
  for (int next = -1; (next = X509_NAME_get_index_by_NID(name, NID_commonName, next)) >= 0;) {
    last = next;
  }
  if (last < 0) {
    return std::nullopt;
  }
  unsigned char *text = nullptr;
  const int length =
      ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, last)));
  ERR_clear_error();
  if (length < 0) {
    return std::nullopt;
  }
  std::string result(reinterpret_cast<const char *>(text), static_cast<std::size_t>(length));
  OPENSSL_free(text);
  return result;
}

std::string Certificate::subject() const {
  constexpr unsigned long kAsUTF8 =
      XN_FLAG_ONELINE & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
  const TextBuffer buffer(BIO_new(BIO_s_mem()));
  const bool isPrinted =
      buffer && X509_NAME_print_ex(buffer.get(), X509_get_subject_name(native()), 0, kAsUTF8) >= 0;
  ERR_clear_error();
  return isPrinted ? contentOf(buffer.get()) : std::string();
}

TimePoint Certificate::notBefore() const {
  return timePointOf(X509_get0_notBefore(native()));
}

TimePoint Certificate::notAfter() const {
  return timePointOf(X509_get0_notAfter(native()));
}

}  // namespace crypto
