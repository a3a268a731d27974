#pragma once

#include <string>
#include <string_view>

#include "base/Secret.hpp"

namespace remote {

// One line to standard output, written at once: scripts wait for these lines.
void say(const std::string &line);

// The same for a line that ends with a secret: no copy of it stays in memory.
void saySecret(std::string_view before, const SecretText &secret);

// To standard error: what failed, what deserves attention, and what to type next.
void complain(const std::string &what);
void warn(const std::string &what);
void advise(const std::string &command);

// Text from elsewhere (a certificate's name, a server's message) with its control characters
// replaced by "?": a terminal would obey them.
[[nodiscard]] std::string printable(std::string_view text);
[[nodiscard]] SecretText printable(const SecretText &text);

}  // namespace remote
