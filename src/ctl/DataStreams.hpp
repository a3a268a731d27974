#pragma once

#include <optional>
#include <string>

#include "base/Secret.hpp"
#include "ctl/Invocation.hpp"
#include "ctl/Outcome.hpp"

namespace ctl {

// The whole input of a command: the file, or standard input where `path` is empty or "-". At most
// 256 MiB. Nothing, with `failure` filled, if it can't be read.
[[nodiscard]] std::optional<CleansedBytes> readInput(const std::string &path,
                                                     Invocation &invocation, Failure &failure);

// Writes a result as it is to the file, made with `mode`, or to standard output where `path` is
// empty or "-"; a terminal gets it as Base64 text.
[[nodiscard]] Outcome writeOutput(const std::string &path, ByteView content, unsigned mode,
                                  Invocation &invocation);

}  // namespace ctl
