#include "ctl/Outcome.hpp"

#include <cerrno>

namespace ctl {

Failure failureFrom(const Error &error, const std::string &command, const std::string &next) {
  const bool isForbidden = error.domain == "errno" && (error.code == EACCES || error.code == EPERM);
  return {error.description, isForbidden ? "sudo " + command : next};
}

}  // namespace ctl
