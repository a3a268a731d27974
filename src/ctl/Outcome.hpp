#pragma once

#include <optional>
#include <string>

#include "base/Error.hpp"

namespace ctl {

// What the tools end with.
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

// Of a command; nothing: it did its work.
using Outcome = std::optional<Failure>;

// What failed on a file or the like. Where only the right was missing, the command with sudo comes
// next, else `next`.
[[nodiscard]] Failure failureFrom(const Error &error, const std::string &command,
                                  const std::string &next = "");

}  // namespace ctl
