#include "crypto/Certificate.hpp"

#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <ctime>
#include <limits>
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

// What the library's `encode` makes of an object; empty if it fails.
template <typename T>
Bytes derOf(const T *object, int (*encode)(const T *, std::uint8_t **)) {
  std::uint8_t *encoded = nullptr;
  const int length = encode(object, &encoded);
  Bytes bytes(encoded, encoded + std::max(length, 0));
  OPENSSL_free(encoded);
  return bytes;
}

// The value of one of a name's attributes as UTF-8; nothing if it is no text.
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

// Why the library failed, as far as this thread's error queue says.
enum class Cause { memory, unsaid, other };

// Empties the queue. Want of memory shows as itself, as a buffer that could not be made, or not at
// all.
Cause takeCause() {
  Cause cause = Cause::unsaid;
  while (const unsigned long code = ERR_get_error()) {
    const int reason = ERR_GET_REASON(code);
    if (reason == ERR_R_MALLOC_FAILURE || reason == ERR_R_INIT_FAIL) {
      cause = Cause::memory;
    } else if (cause == Cause::unsaid) {
      cause = Cause::other;
    }
  }
  return cause;
}

// True if the text ends in a whole block that decodes to nothing: its first character is no Base64,
// or it has headers, which no certificate has. The library refuses it without an entry in the
// queue.
bool endsInAnEmptyBlock(std::string_view text) {
  const std::size_t begin = text.rfind("-----BEGIN ");
  const std::size_t line = begin == std::string_view::npos ? begin : text.find('\n', begin);
  if (line == std::string_view::npos) {
    return false;
  }
  const std::string_view block = text.substr(line);
  const std::size_t end = block.find("-----END ");
  return end != std::string_view::npos &&
         (block[block.find_first_not_of(" \t\r\n")] == '-' ||
          block.substr(0, end).find(':') != std::string_view::npos);
}

// What of the text the library has read so far.
std::string_view takenBy(BIO *text, ByteView pem) {
  return base::textOf(pem.first(pem.size() - BIO_ctrl_pending(text)));
}

int refusePassword(char * /*buffer*/, int /*size*/, int /*isForWriting*/, void * /*argument*/) {
  return -1;
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
  ERR_clear_error();
  std::vector<Certificate> certificates;
  const TextBuffer text(BIO_new_mem_buf(
      pem.data(),
      static_cast<int>(std::min<std::size_t>(pem.size(), std::numeric_limits<int>::max()))));
  while (true) {
    X509 *certificate = X509_new_ex(libraryContext(), nullptr);
    const bool isRead =
        text && certificate != nullptr &&
        PEM_read_bio_X509(text.get(), &certificate, refusePassword, nullptr) != nullptr;
    std::shared_ptr<X509> owner(certificate, X509_free);
    if (isRead) {
      certificates.emplace_back(std::move(owner));
      continue;
    }
    const Cause cause = takeCause();
    const bool isEmptyBlock = text && endsInAnEmptyBlock(takenBy(text.get(), pem));
    if (cause == Cause::memory || (cause == Cause::unsaid && !isEmptyBlock)) {
      throw std::bad_alloc();
    }
    return certificates;
  }
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
