#pragma once

#include <optional>
#include <string>

#include "base/Error.hpp"
#include "base/Secret.hpp"
#include "remote/KeyRing.hpp"
#include "remote/Terminal.hpp"

namespace remote {

// Where the password of key files comes from: never from an argument, which others can see.
struct PasswordOptions {
  std::optional<std::string> file;  // its first line
  int descriptor = -1;              // the first line that comes from it; negative: none
};

// Reads the password that was given by file or descriptor; an empty optional within if none was
// given. Nothing, with the reason, if it can't be read.
[[nodiscard]] std::optional<std::optional<SecretText>> readGivenPassword(
    const PasswordOptions &options, Error *error = nullptr);

// Gives every file the given password once; without one it asks at the terminal, up to three times
// for each file. `terminal` and `given` must live as long as the source.
[[nodiscard]] PasswordSource passwordSource(const std::optional<SecretText> &given,
                                            Terminal &terminal, int stopDescriptor);

}  // namespace remote
