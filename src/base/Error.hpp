#pragma once

#include <string>

namespace base {

// Why an operation failed. The last parameter of such an operation is `Error *error = nullptr`, for
// callers that want the reason.
struct Error {
  std::string domain;       // who numbers the codes: "errno", "openssl", …
  int code = 0;             // the error's number in that domain
  std::string description;  // one line of plain English, without a secret
};

// Fills *error unless `error` is null.
void report(Error *error, std::string domain, int code, std::string description);

// The same for an errno value: domain "errno", and a description of `what` and the system's text.
void reportErrno(Error *error, int errorNumber, const std::string &what);

}  // namespace base

using base::Error;
