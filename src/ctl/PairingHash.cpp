#include "ctl/PairingHash.hpp"

#include <cstddef>

#include "base/Files.hpp"
#include "crypto/Certificate.hpp"
#include "crypto/PublicKey.hpp"
#include "ctl/HashText.hpp"

namespace ctl {
namespace {

constexpr std::size_t kSHA256Digits = 64;
constexpr std::size_t kLargestCertificateFile = 1024 * 1024;

std::string whyNot(std::string_view text, std::string_view digits) {
  const std::string quoted = "\"" + std::string(text) + "\"";
  if (!isHexadecimal(digits)) {
    return quoted + " is not hexadecimal; pairing wants the 40 digits of the public key";
  }
  if (digits.size() == kSHA256Digits) {
    return quoted +
           " is a certificate's fingerprint (SHA-256); pairing wants the 40 digits of the public "
           "key: kfy-remote keys";
  }
  return quoted + " has " + std::to_string(digits.size()) +
         " digits; pairing wants the 40 digits of the public key";
}

}  // namespace

std::optional<Bytes> publicKeyHashFromText(std::string_view text, Error *error) {
  auto hash = sha1FromText(text);
  if (!hash) {
    base::report(error, "pairing", 0, whyNot(text, plainDigits(text)));
  }
  return hash;
}

std::optional<Bytes> publicKeyHashFromCertificate(const std::string &path, Error *error) {
  const auto file = base::readFile(path, kLargestCertificateFile, error);
  if (!file) {
    return std::nullopt;
  }
  const auto fromPEM = crypto::Certificate::allFromPEM(*file);
  const auto certificate =
      fromPEM.empty() ? crypto::Certificate::fromDER(*file) : std::optional(fromPEM.front());
  if (!certificate) {
    base::report(error, "pairing", 0, path + " holds no certificate, neither as PEM nor as DER");
    return std::nullopt;
  }
  const auto key = certificate->publicKey(error);
  if (!key) {
    return std::nullopt;
  }
  if (key->type() != crypto::KeyType::rsa) {
    base::report(error, "pairing", 0,
                 path + " holds a key of type " + key->description() +
                     "; a client can authenticate with an RSA key alone");
    return std::nullopt;
  }
  return key->hash(error);
}

}  // namespace ctl
