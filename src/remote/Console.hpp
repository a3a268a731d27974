#pragma once

#include <unistd.h>

#include <string>
#include <string_view>

#include "base/Secret.hpp"
#include "remote/OutputWriter.hpp"

namespace remote {

// What this program says to people and scripts. Nothing here waits for whoever reads it. What a
// terminal would obey is replaced (base/DisplayText.hpp), since names and reasons come from
// elsewhere.
class Console {
 public:
  // Borrowed; tests give others.
  explicit Console(int output = STDOUT_FILENO, int errors = STDERR_FILENO)
      : writer_(output, errors) {}

  // One line to standard output: scripts wait for these lines.
  void say(const std::string &line) { add(OutputWriter::output, "", line); }

  // The same for a line that ends with a secret: no copy of it stays in memory.
  void saySecret(std::string_view before, const SecretText &secret) {
    add(OutputWriter::output, before, secret.reveal());
  }

  // To standard error: what failed, what deserves attention, and what to type next. Cut where it is
  // longer than any text of ours: a server's message may be megabytes long.
  void complain(std::string_view what) { add(OutputWriter::errors, "kfy-remote: error: ", what); }
  void warn(std::string_view what) { add(OutputWriter::errors, "kfy-remote: warning: ", what); }
  void advise(std::string_view what) { add(OutputWriter::errors, "kfy-remote: try: ", what); }

  // Waits until all of it is written. Returns what became of standard output so far.
  [[nodiscard]] OutputWriter::Outcome flush(const client::WaitLimits &limits) {
    return writer_.flush(limits);
  }

 private:
  void add(OutputWriter::Stream stream, std::string_view before, std::string_view text);

  OutputWriter writer_;
};

}  // namespace remote
