#pragma once

#include <optional>
#include <string>

#include "base/Error.hpp"
#include "base/Secret.hpp"

namespace ctl {

// Where passwords and PINs come from: never from the command line, which every user of the machine
// can read. Each gives the first line, without its end; nothing, with the reason, if that fails.

[[nodiscard]] std::optional<SecretText> secretFromFile(const std::string &path,
                                                       Error *error = nullptr);
[[nodiscard]] std::optional<SecretText> secretFromDescriptor(int descriptor,
                                                             Error *error = nullptr);

// Asks at the process's terminal, without an echo. Also nothing if the question is cancelled
// (Ctrl-C, Ctrl-D).
[[nodiscard]] std::optional<SecretText> secretFromTerminal(const std::string &question,
                                                           Error *error = nullptr);

}  // namespace ctl
