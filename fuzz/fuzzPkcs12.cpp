// Whatever a PKCS #12 file holds: each key and certificate that is read out of it is a whole one.

#include <cstdint>
#include <cstdlib>

#include "crypto/Certificate.hpp"
#include "crypto/Pkcs12.hpp"

namespace {

void read(ByteView file, const SecretText *password) {
  const auto content = crypto::readPkcs12(file, password);
  if (!content) {
    return;
  }
  for (const SecretBytes &key : content->keys) {
    if (key.empty()) {
      std::abort();
    }
  }
  for (const Bytes &certificate : content->certificates) {
    if (!crypto::Certificate::fromDER(certificate)) {
      std::abort();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const SecretText password("password");
  read({data, size}, nullptr);
  read({data, size}, &password);
  return 0;
}
