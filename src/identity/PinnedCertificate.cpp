#include "identity/PinnedCertificate.hpp"

#include <cstddef>
#include <string>

#include "base/Bytes.hpp"
#include "base/Files.hpp"
#include "base/FolderForAll.hpp"
#include "base/Places.hpp"
#include "base/Root.hpp"

namespace identity {
namespace {

constexpr std::size_t kLargestFile = std::size_t{64} * 1024;
constexpr unsigned kReadableByAll = 0644;

}  // namespace

bool publishPinnedCertificate(const crypto::Certificate &certificate, Error *error) {
  const std::string path = base::rooted(base::kServerCertificate);
  const std::string pem = certificate.pem();
  const auto present = base::readFile(path, kLargestFile);
  if (present && base::textOf(*present) == pem) {
    return true;
  }
  return base::makeFolderForAll(path.substr(0, path.rfind('/')), error) &&
         base::replaceFile(path, base::viewOf(pem), kReadableByAll, error);
}

}  // namespace identity
