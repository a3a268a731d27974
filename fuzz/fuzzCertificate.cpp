// A certificate of a peer, in DER, in PEM or behind its Base64 text: whatever can be read of it is
// whole, and reads the same again.

#include <algorithm>

#include "Expect.hpp"
#include "base/UTF8.hpp"
#include "crypto/Certificate.hpp"
#include "encodings/HexString.hpp"
#include "protocol/CardList.hpp"

namespace {

void read(const crypto::Certificate &certificate) {
  const Bytes der = certificate.der();
  const auto again = crypto::Certificate::fromDER(der);
  expect(again && again->der() == der && again->subject() == certificate.subject());
  expect(base::isUTF8(base::viewOf(certificate.subject())));
  expect(certificate.sha1() == encodings::sha1(der) &&
         certificate.sha256() == encodings::sha256(der));
  expect(crypto::Certificate::allFromPEM(base::viewOf(certificate.pem())).size() == 1);
  expect(base::isUTF8(base::viewOf(certificate.commonName().value_or(""))));
  expect(!certificate.subjectDER().empty() && !certificate.issuerDER().empty());
  (void)certificate.serialNumberDER();
  (void)certificate.notBefore();
  (void)certificate.notAfter();
  if (const auto key = certificate.publicKey()) {
    const auto exported = key->externalRepresentation();
    expect(!exported || !exported->empty());
    (void)key->description();
    (void)key->subjectPublicKeyInfo();
    const int length = std::max(0, (key->bits() + 7) / 8);
    (void)key->verifyRawPKCS1(Bytes(static_cast<std::size_t>(length), /*value=*/1), Bytes(16));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const ByteView input(data, size);
  if (const auto certificate = crypto::Certificate::fromDER(input)) {
    read(*certificate);
  }
  for (const crypto::Certificate &certificate : crypto::Certificate::allFromPEM(input)) {
    read(certificate);
  }
  (void)protocol::certificateSHA1In(base::textOf(input));
  expect(protocol::certificateSHA1In(encodings::base64EncodedString(input)) ==
         (input.empty() ? Bytes{} : encodings::sha1(input)));
  return 0;
}
