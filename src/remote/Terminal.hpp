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
  // The process's own terminal; without one nobody can be asked.
  Terminal();
  explicit Terminal(base::Descriptor terminal) : terminal_(std::move(terminal)) {}

  // True if there is a terminal and this process is in its foreground: the system stops a process
  // in the background that reads.
  [[nodiscard]] bool canAsk() const;

  // Shows a question, in place of what is left of the last one. Never blocks: a terminal that
  // stands still gets the rest from showRest(). What was typed before all of it was to be seen does
  // not count as its answer.
  void show(const std::string &question);

  // To be called when descriptor() can be written while this is wanted.
  void showRest();
  [[nodiscard]] bool wantsWrite() const { return !rest_.empty(); }

  // The line that was typed, without its end; empty at the end of the input, too. Nothing if there
  // is none: descriptor() may have been readable for what was thrown away since.
  [[nodiscard]] std::optional<std::string> readLine();

  // Asks for a secret without showing what is typed. Nothing if nobody can be asked or
  // `stopDescriptor` becomes readable.
  [[nodiscard]] std::optional<SecretText> askSecret(const std::string &question, int stopDescriptor,
                                                    Error *error = nullptr);

  [[nodiscard]] int descriptor() const { return terminal_.get(); }

 private:
  base::Descriptor terminal_;
  std::string rest_;  // of the question, not yet to be seen
};

}  // namespace remote
