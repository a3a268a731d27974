#include "crypto/Certificate.hpp"

#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <ctime>
#include <new>

#include "base/LowerCase.hpp"
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

// A certificate's dates may reach the year 9999, the system clock's only 2262.
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

// The DER form of an object, made by the library's `encode`; empty if that fails.
template <typename T>
Bytes derOf(const T *object, int (*encode)(const T *, std::uint8_t **)) {
  std::uint8_t *encoded = nullptr;
  const int length = encode(object, &encoded);
  Bytes bytes(encoded, encoded + std::max(length, 0));
  OPENSSL_free(encoded);
  return bytes;
}

// An attribute's value as UTF-8; nothing if it is no text.
std::optional<std::string> valueOf(const X509_NAME_ENTRY *entry) {
  unsigned char *text = nullptr;
  const int length = ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(entry));
  ERR_clear_error();
  if (length < 0) {
    return std::nullopt;
  }
  std::string value(reinterpret_cast<const char *>(text), static_cast<std::size_t>(length));
  OPENSSL_free(text);
  return value;
}

// Empties this thread's error queue. True if the library failed for want of memory, which it
// reports as such, as a failed initialisation, or not at all.
bool takeWantOfMemory() {
  bool isWantSaid = false;
  bool isAnySaid = false;
  while (const unsigned long code = ERR_get_error()) {
    const int reason = ERR_GET_REASON(code);
    isWantSaid = isWantSaid || reason == ERR_R_MALLOC_FAILURE || reason == ERR_R_INIT_FAIL;
    isAnySaid = true;
  }
  return isWantSaid || !isAnySaid;
}

// The library counts in int. No certificate is nearly as long.
constexpr std::size_t kLongestBlock = std::size_t{16} * 1024 * 1024;

// Decodes the Base64 text of a PEM block (RFC 7468); empty if it is damaged.
Bytes contentOfBlock(std::string_view base64) {
  if (base64.size() > kLongestBlock) {
    return {};
  }
  const Owned<EVP_ENCODE_CTX, EVP_ENCODE_CTX_free> decoder(EVP_ENCODE_CTX_new());
  if (!decoder) {
    throw std::bad_alloc();
  }
  EVP_DecodeInit(decoder.get());
  const ByteView encoded = base::viewOf(base64);
  Bytes content(base64.size());
  int length = 0;
  int rest = 0;
  if (EVP_DecodeUpdate(decoder.get(), content.data(), &length, encoded.data(),
                       static_cast<int>(encoded.size())) < 0 ||
      EVP_DecodeFinal(decoder.get(), content.data() + length, &rest) < 0) {
    return {};
  }
  content.resize(static_cast<std::size_t>(length) + static_cast<std::size_t>(rest));
  return content;
}

// Reads the certificate at the beginning of `der` and sets `end` behind it. Null, with the reason
// in the error queue, if there is none.
std::shared_ptr<X509> readCertificate(ByteView der, const std::uint8_t *&end) {
  ERR_clear_error();
  X509 *certificate = X509_new_ex(libraryContext(), nullptr);
  end = der.data();
  // on failure d2i_X509 has released the certificate and cleared the pointer
  const bool isRead = certificate != nullptr &&
                      d2i_X509(&certificate, &end, static_cast<long>(der.size())) != nullptr;
  std::shared_ptr<X509> owner(certificate, X509_free);
  return isRead ? owner : nullptr;
}

}  // namespace

std::optional<Certificate> Certificate::fromDER(ByteView der, Error *error) {
  const std::uint8_t *end = nullptr;
  auto certificate = readCertificate(der, end);
  if (!certificate) {
    reportLibraryError(error, "not a certificate");
    return std::nullopt;
  }
  if (end != der.data() + der.size()) {
    base::report(error, "crypto", 0, "not a certificate: more bytes behind it");
    return std::nullopt;
  }
  return Certificate(std::move(certificate));
}

// Not with the library's PEM reader: for some damaged texts it fails without a reason, and so it
// does for want of memory.
std::vector<Certificate> Certificate::allFromPEM(ByteView pem) {
  constexpr std::string_view kBegin = "-----BEGIN CERTIFICATE-----";
  constexpr std::string_view kEnd = "-----END CERTIFICATE-----";
  std::vector<Certificate> certificates;
  std::string_view text = base::textOf(pem);
  for (std::size_t begin = 0; (begin = text.find(kBegin)) != std::string_view::npos;) {
    text.remove_prefix(begin + kBegin.size());
    const std::size_t length = text.find(kEnd);
    const Bytes der =
        length == std::string_view::npos ? Bytes() : contentOfBlock(text.substr(0, length));
    if (der.empty()) {
      break;
    }
    const std::uint8_t *end = nullptr;
    auto certificate = readCertificate(der, end);
    if (!certificate) {
      if (takeWantOfMemory()) {
        throw std::bad_alloc();
      }
      break;
    }
    certificates.emplace_back(std::move(certificate));
    text.remove_prefix(length + kEnd.size());
  }
  return certificates;
}

Bytes Certificate::der() const {
  return derOf(native(), i2d_X509);
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
  return valueOf(X509_NAME_get_entry(name, last));
}

bool Certificate::subjectContains(std::string_view text) const {
  const std::string wanted = base::lowerCase(text);
  const X509_NAME *name = X509_get_subject_name(native());
  for (int index = 0; !text.empty() && index < X509_NAME_entry_count(name); ++index) {
    const auto value = valueOf(X509_NAME_get_entry(name, index));
    if (value && base::lowerCase(*value).find(wanted) != std::string::npos) {
      return true;
    }
  }
  return text.empty();
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

Bytes Certificate::subjectDER() const {
  return derOf(X509_get_subject_name(native()), i2d_X509_NAME);
}

Bytes Certificate::issuerDER() const {
  return derOf(X509_get_issuer_name(native()), i2d_X509_NAME);
}

Bytes Certificate::serialNumberDER() const {
  return derOf(X509_get0_serialNumber(native()), i2d_ASN1_INTEGER);
}

TimePoint Certificate::notBefore() const {
  return timePointOf(X509_get0_notBefore(native()));
}

TimePoint Certificate::notAfter() const {
  return timePointOf(X509_get0_notAfter(native()));
}

}  // namespace crypto
