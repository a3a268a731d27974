#pragma once

#include <optional>
#include <string>

#include "base/Descriptor.hpp"
#include "base/Error.hpp"
#include "base/Secret.hpp"

namespace remote {

// The terminal of the person at this machine, whatever standard input and output are.
class Terminal {
 public:
  // Opens the process's controlling terminal. Without one nobody can be asked.
  Terminal();
  explicit Terminal(base::Descriptor terminal) : terminal_(std::move(terminal)) {}

  // True if there is a terminal and this process is in its foreground: the system would stop a
  // background process that reads.
  [[nodiscard]] bool canAsk() const;

  // Shows a question; the rest of an earlier one is dropped. Never blocks: showRest() writes what a
  // stopped terminal has not taken. Input that was typed before all of it was shown is no answer.
  void show(const std::string &question);

  // To be called when descriptor() is writable, while there is a rest to write.
  void showRest();
  [[nodiscard]] bool wantsWrite() const { return !rest_.empty(); }

  // The line that was typed, without its end. Empty also at the end of the input. Nothing if there
  // is no line: the input may have been discarded.
  [[nodiscard]] std::optional<std::string> readLine();

  // Asks for a secret without echo. Nothing if nobody can be asked or `stopDescriptor` becomes
  // readable.
  [[nodiscard]] std::optional<SecretText> askSecret(const std::string &question, int stopDescriptor,
                                                    Error *error = nullptr);

  [[nodiscard]] int descriptor() const { return terminal_.get(); }

 private:
  base::Descriptor terminal_;
  std::string rest_;  // of the question, not yet shown
};

}  // namespace remote
