#pragma once

#include <optional>
#include <string>

#include "base/Error.hpp"
#include "base/Secret.hpp"
#include "remote/KeyRing.hpp"
#include "remote/Terminal.hpp"

namespace remote {

// Where the password of key files comes from. Never an argument: other users can see those.
struct KeyPasswordOptions {
  std::optional<std::string> file;  // its first line
  int descriptor = -1;              // its first line; negative: none
};

// Reads the password from the given file or descriptor. The inner optional is empty if none was
// given. Nothing, with the reason, if it can't be read.
[[nodiscard]] std::optional<std::optional<SecretText>> readGivenPassword(
    const KeyPasswordOptions &options, Error *error = nullptr);

// Offers the given password once for each file; without one it asks at the terminal, up to three
// times for each file. `terminal` and `given` must outlive the source.
[[nodiscard]] PasswordSource passwordSource(const std::optional<SecretText> &given,
                                            Terminal &terminal, int stopDescriptor);

}  // namespace remote
