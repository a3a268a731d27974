#pragma once

namespace remote {

// kfy-remote. Returns the exit status: 0 done, 1 it failed, 2 the command line was wrong.
[[nodiscard]] int runProgram(int count, const char *const *arguments);

}  // namespace remote
