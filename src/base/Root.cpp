#include "base/Root.hpp"

#include <cstdlib>

namespace base {

namespace {

std::string rootOfEnvironment() {
  const char *text = secure_getenv("KFYD_ROOT");
  std::string folder = text == nullptr ? "" : text;
  while (!folder.empty() && folder.back() == '/') {
    folder.pop_back();
  }
  return folder;
}

}  // namespace

const std::string &root() {
  // Never destroyed: programs call the token driver from exit handlers, after static objects went.
  static const auto &value = *new std::string(rootOfEnvironment());  // NOLINT: see above
  return value;
}

std::string rooted(std::string_view absolutePath) {
  return root() + std::string(absolutePath);
}

}  // namespace base
