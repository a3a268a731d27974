#pragma once

#include <optional>
#include <string>

#include "base/Descriptor.hpp"
#include "base/Error.hpp"
#include "base/Secret.hpp"

namespace client {

// Reads passwords and PINs. They are never taken from the command line, which every user of the
// machine can read. Each function returns the first line without its line end; nothing, with the
// reason, if that fails.

[[nodiscard]] std::optional<SecretText> secretFromFile(const std::string &path,
                                                       Error *error = nullptr);

// Reads no further than the end of the line.
[[nodiscard]] std::optional<SecretText> secretFromDescriptor(int descriptor,
                                                             Error *error = nullptr);

// Opens the controlling terminal, independent of standard input and output. Not open if there is
// none.
[[nodiscard]] base::Descriptor openTerminal();

// Asks at a terminal without echo. Nothing if the user cancels (Ctrl-C, Ctrl-D) or `stopDescriptor`
// becomes readable; negative: none. Echo is always restored.
[[nodiscard]] std::optional<SecretText> secretFromTerminal(int terminal,
                                                           const std::string &question,
                                                           int stopDescriptor = -1,
                                                           Error *error = nullptr);

}  // namespace client
