#pragma once

#include <string_view>

#include "base/Secret.hpp"

namespace remote {

// One line to standard output, written at once: scripts wait for these lines. Here and below, what
// a terminal would obey is replaced (base/DisplayText.hpp), since names and reasons come from
// elsewhere.
void say(std::string_view line);

// The same for a line that ends with a secret: no copy of it stays in memory.
void saySecret(std::string_view before, const SecretText &secret);

// To standard error: what failed, what deserves attention, and what to type next.
void complain(std::string_view what);
void warn(std::string_view what);
void advise(std::string_view command);

}  // namespace remote
