#pragma once

#include <string>

namespace base {

// Why an operation gave nothing, for callers that want to know: the last parameter of such an
// operation is `Error *error = nullptr`.
struct Error {
  std::string domain;       // who counts: "errno", "openssl", "sqlite", …
  int code = 0;             // the number in that domain
  std::string description;  // one line of plain English, without a secret
};

// Fills *error if there is a place for it.
void report(Error *error, std::string domain, int code, std::string description);

// The same with the domain "errno", the number `errorNumber` and, after `what`, its text.
void reportErrno(Error *error, int errorNumber, const std::string &what);

}  // namespace base

using base::Error;
