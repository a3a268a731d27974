#pragma once

namespace logging {

// A scope for work that a public connection without authentication causes. Log lines and standard
// error within it count against the setting `strangerLogBytesPerSecond`. Beyond it lines are left
// out, and one line says later how many.
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
