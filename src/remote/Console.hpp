#pragma once

#include <string>
#include <string_view>

namespace remote {

// One line to standard output, written at once: scripts wait for these lines.
void say(const std::string &line);

// To standard error: what failed, what deserves attention, and what to type next.
void complain(const std::string &what);
void warn(const std::string &what);
void advise(const std::string &command);

// Text from elsewhere (a certificate's name, a server's message) with its control characters
// replaced by "?": a terminal would obey them.
[[nodiscard]] std::string printable(std::string_view text);

}  // namespace remote
