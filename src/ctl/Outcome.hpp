#pragma once

#include <optional>
#include <string>

#include "base/Error.hpp"

namespace ctl {

// The tools' exit statuses.
enum ExitStatus {
  exitDone = 0,
  exitFailed = 1,
  exitWrongCommandLine = 2,
  exitNoAnswer = 3,  // the daemon did not answer
};

// Why a command did not do its work: one line in lower case without a full stop, and what to type
// next, ready to paste (empty: nothing).
struct Failure {
  std::string what;
  std::string next;
  ExitStatus status = exitFailed;
};

// The outcome of a command; nothing: success.
using Outcome = std::optional<Failure>;

// The failure for an error on a file or the like. If only permission was missing, it suggests the
// command with sudo, otherwise `next`.
[[nodiscard]] Failure failureFrom(const Error &error, const std::string &command,
                                  const std::string &next = "");

}  // namespace ctl
