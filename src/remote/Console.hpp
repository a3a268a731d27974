#pragma once

#include <unistd.h>

#include <string>
#include <string_view>

#include "base/Secret.hpp"
#include "remote/OutputWriter.hpp"

namespace remote {

// Prints for people and scripts. No call waits for the reader. Characters that a terminal would
// obey are replaced (base/DisplayText.hpp), because names and reasons come from elsewhere.
class Console {
 public:
  // The descriptors are borrowed.
  explicit Console(int output = STDOUT_FILENO, int errors = STDERR_FILENO)
      : writer_(output, errors) {}

  // One line to standard output: scripts wait for these lines.
  void say(const std::string &line) { add(OutputWriter::output, "", line); }

  // The same for a line that ends with a secret: no copy of it stays in memory.
  void saySecret(std::string_view before, const SecretText &secret) {
    add(OutputWriter::output, before, secret.reveal());
  }

  // To standard error: an error, a warning, and what to type next. Long texts are cut: a server's
  // message may have megabytes.
  void complain(std::string_view what) { add(OutputWriter::errors, "kfy-remote: error: ", what); }
  void warn(std::string_view what) { add(OutputWriter::errors, "kfy-remote: warning: ", what); }
  void advise(std::string_view what) { add(OutputWriter::errors, "kfy-remote: try: ", what); }

  // Waits until everything is written. Returns whether all of standard output was.
  [[nodiscard]] OutputWriter::Outcome flush(const client::WaitLimits &limits) {
    return writer_.flush(limits);
  }

 private:
  void add(OutputWriter::Stream stream, std::string_view before, std::string_view text);

  OutputWriter writer_;
};

}  // namespace remote
