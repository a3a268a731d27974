#pragma once

#include <optional>
#include <string>

#include "base/Descriptor.hpp"
#include "base/Error.hpp"
#include "base/Secret.hpp"

namespace client {

// Where passwords and PINs come from: never from the command line, which every user of the machine
// can read. Each gives the first line, without its end; nothing, with the reason, if that fails.

[[nodiscard]] std::optional<SecretText> secretFromFile(const std::string &path,
                                                       Error *error = nullptr);

// What follows the line is left to whoever reads the descriptor next.
[[nodiscard]] std::optional<SecretText> secretFromDescriptor(int descriptor,
                                                             Error *error = nullptr);

// The process's own terminal, whatever standard input and output are; not open if there is none.
[[nodiscard]] base::Descriptor openTerminal();

// Asks at a terminal, without an echo. Also nothing if the question is cancelled (Ctrl-C, Ctrl-D)
// or `stopDescriptor` can be read; negative: none. Whatever ends it, the echo is back on.
[[nodiscard]] std::optional<SecretText> secretFromTerminal(int terminal,
                                                           const std::string &question,
                                                           int stopDescriptor = -1,
                                                           Error *error = nullptr);

}  // namespace client
