#pragma once

namespace logging {

// Stands around what a public connection that has not authenticated makes the process do. What is
// written meanwhile, to any log or to standard error, counts against the setting
// `strangerLogBytesPerSecond`; past it lines are left out, and one line says later how many.
class UnauthenticatedLines {
 public:
  explicit UnauthenticatedLines(bool isUnauthenticated);
  ~UnauthenticatedLines();
  UnauthenticatedLines(const UnauthenticatedLines &) = delete;
  UnauthenticatedLines &operator=(const UnauthenticatedLines &) = delete;

 private:
  bool before_;
};

}  // namespace logging
