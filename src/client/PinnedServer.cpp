#include "client/PinnedServer.hpp"

#include <string>

#include "base/Files.hpp"
#include "base/Places.hpp"
#include "base/Root.hpp"

namespace client {
namespace {

constexpr std::size_t kLargestPinFile = 1024 * 1024;

}  // namespace

CertificateVerifier verifierForKeyOf(const crypto::Certificate &certificate) {
  const auto key = certificate.publicKey();
  return [pinned = key ? key->subjectPublicKeyInfo() : Bytes()](const crypto::Certificate &shown) {
    const auto shownKey = shown.publicKey();
    return !pinned.empty() && shownKey && base::equal(shownKey->subjectPublicKeyInfo(), pinned);
  };
}

std::optional<CertificateVerifier> loopbackVerifier(Error *error) {
  const std::string path = base::rooted(base::kServerCertificate);
  Error reason;
  const auto content = base::readFile(path, kLargestPinFile, &reason);
  if (!content) {
    base::report(error, kErrorDomain, pinUnusable, reason.description);
    return std::nullopt;
  }
  const auto certificates = crypto::Certificate::allFromPEM(*content);
  if (certificates.empty()) {
    base::report(error, kErrorDomain, pinUnusable, path + " holds no certificate");
    return std::nullopt;
  }
  return verifierForKeyOf(certificates.front());
}

std::unique_ptr<Connection> openLoopback(const WaitLimits &limits, Error *error) {
  const auto verifier = loopbackVerifier(error);
  return verifier ? Connection::open(kLoopbackHost, base::kLoopbackPort, *verifier, limits, error)
                  : nullptr;
}

}  // namespace client
