#include "base/Root.hpp"

#include <cstdlib>
#include <filesystem>

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
  // Never destroyed: programs call the token driver from exit handlers, after static destructors
  // ran.
  static const auto &value = *new std::string(rootOfEnvironment());  // NOLINT: see above
  return value;
}

std::string rooted(std::string_view path) {
  namespace fs = std::filesystem;
  if (root().empty()) {
    return std::string(path);
  }
  if (path.starts_with('/') && path.find("..") == std::string_view::npos) {
    return root() + std::string(path);
  }
  return root() + (fs::path("/") / path).lexically_normal().string();
}

}  // namespace base
