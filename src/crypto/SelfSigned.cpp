#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>

#include "crypto/Certificate.hpp"
#include "crypto/Digest.hpp"
#include "crypto/Library.hpp"
#include "crypto/Owned.hpp"

namespace crypto {
namespace {

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

}  // namespace crypto
