#include "base/Root.hpp"

#include <cstdlib>

namespace base {

const std::string &root() {
  static const std::string value = [] {
    const char *text = secure_getenv("KFYD_ROOT");
    std::string folder = text == nullptr ? "" : text;
    while (!folder.empty() && folder.back() == '/') {
      folder.pop_back();
    }
    return folder;
  }();
  return value;
}

std::string rooted(std::string_view absolutePath) {
  return root() + std::string(absolutePath);
}

}  // namespace base
