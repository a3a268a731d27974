#pragma once

#include <cstdlib>

// What a fuzz target takes for granted of the code that it runs: else the input is a find.
inline void expect(bool isTrue) {
  if (!isTrue) {
    std::abort();
  }
}
