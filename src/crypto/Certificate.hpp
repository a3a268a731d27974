#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "crypto/PrivateKey.hpp"
#include "crypto/PublicKey.hpp"

struct x509_st;

namespace crypto {

// An X.509 certificate (RFC 5280). A cheap value: copies share the certificate.
class Certificate {
 public:
  // Takes shared ownership of an OpenSSL certificate; for this folder's own files.
  explicit Certificate(std::shared_ptr<x509_st> certificate)
      : certificate_(std::move(certificate)) {}

  // Reads DER; nothing, with the reason, if the bytes are not exactly one certificate.
  [[nodiscard]] static std::optional<Certificate> fromDER(ByteView der, Error *error = nullptr);

  // All certificates of a PEM text, in order, up to the first that can't be read.
  [[nodiscard]] static std::vector<Certificate> allFromPEM(ByteView pem);

  // A new self-signed certificate (version 3, random serial number, not a CA) with this common
  // name, valid from a day ago for `days`. `serverName`: also the only DNS name in it, for a TLS
  // server.
  [[nodiscard]] static std::optional<Certificate> selfSigned(const PrivateKey &key,
                                                             const std::string &commonName,
                                                             int days, bool serverName,
                                                             Error *error = nullptr);

  [[nodiscard]] Bytes der() const;
  [[nodiscard]] std::string pem() const;

  // SHA-1 and SHA-256 of the DER bytes: 20 and 32 bytes.
  [[nodiscard]] Bytes sha1() const;
  [[nodiscard]] Bytes sha256() const;

  // Nothing if the key's algorithm is unknown or the key does not parse.
  [[nodiscard]] std::optional<PublicKey> publicKey(Error *error = nullptr) const;

  // The last common name of the subject as UTF-8; nothing if it has none.
  [[nodiscard]] std::optional<std::string> commonName() const;

  // The subject in one line as UTF-8 (RFC 2253 order reversed: "CN = …" last or first as in the
  // file).
  [[nodiscard]] std::string subject() const;

  // True if the value of one of the subject's attributes contains the text, ignoring case (see
  // base::lowerCase). Attribute names and separators are not searched. The empty text is always
  // contained.
  [[nodiscard]] bool subjectContains(std::string_view text) const;

  // DER as it stands in the certificate: the names, and the serial number as an INTEGER.
  [[nodiscard]] Bytes subjectDER() const;
  [[nodiscard]] Bytes issuerDER() const;
  [[nodiscard]] Bytes serialNumberDER() const;

  // The validity.
  [[nodiscard]] std::chrono::system_clock::time_point notBefore() const;
  [[nodiscard]] std::chrono::system_clock::time_point notAfter() const;

  // For this folder's own files; borrowed.
  [[nodiscard]] x509_st *native() const { return certificate_.get(); }

 private:
  std::shared_ptr<x509_st> certificate_;
};

}  // namespace crypto
