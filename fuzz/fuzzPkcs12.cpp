// Whatever a PKCS #12 file holds: each key and certificate that is read out of it is a whole one.

#include "Expect.hpp"
#include "crypto/Certificate.hpp"
#include "crypto/Pkcs12.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const SecretText password("password");
  for (const SecretText *given : {static_cast<const SecretText *>(nullptr), &password}) {
    const auto content = crypto::readPkcs12({data, size}, given);
    if (!content) {
      continue;
    }
    for (const SecretBytes &key : content->keys) {
      expect(!key.empty());
    }
    for (const Bytes &certificate : content->certificates) {
      expect(crypto::Certificate::fromDER(certificate).has_value());
    }
  }
  return 0;
}
