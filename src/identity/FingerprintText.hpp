#pragma once

#include <string>

#include "base/Bytes.hpp"

namespace identity {

// A certificate's digest as people compare it, the same in every program: "AB:CD:…"
[[nodiscard]] std::string fingerprintText(ByteView digest);

}  // namespace identity
