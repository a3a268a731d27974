#include "base/Error.hpp"

#include <system_error>
#include <utility>

namespace base {

void report(Error *error, std::string domain, int code, std::string description) {
  if (error != nullptr) {
    *error = Error{std::move(domain), code, std::move(description)};
  }
}

void reportErrno(Error *error, int errorNumber, const std::string &what) {
  report(error, "errno", errorNumber, what + ": " + std::generic_category().message(errorNumber));
}

}  // namespace base
