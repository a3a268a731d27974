// Whatever a PKCS #12 file holds: each certificate that is read out of it is a whole one, and each
// identity that its keys make is a key with its own certificate.

#include "Expect.hpp"
#include "crypto/Identity.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const SecretText password("password");
  for (const SecretText *given : {static_cast<const SecretText *>(nullptr), &password}) {
    const auto content = crypto::readPkcs12({data, size}, given);
    if (!content) {
      continue;
    }
    for (const auto &[info, localKeyID] : content->keys) {
      expect(!info.empty());
    }
    for (const auto &[der, localKeyID] : content->certificates) {
      expect(crypto::Certificate::fromDER(der).has_value());
    }
    for (const auto &identity : crypto::identitiesIn(*content)) {
      expect(!identity || crypto::belongTogether(identity->certificate, identity->key));
    }
  }
  return 0;
}
