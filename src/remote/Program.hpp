#pragma once

#include "remote/Console.hpp"

namespace remote {

// Prepares the process: no core file, private files, no SIGPIPE, and all standard descriptors open.
// To be called first.
void prepareProcess();

// kfy-remote. Returns the exit status: 0 done, 1 it failed, 2 the command line was wrong.
[[nodiscard]] int runProgram(int count, const char *const *arguments, Console &console);

}  // namespace remote
