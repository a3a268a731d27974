#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace settings {

// How many letters have to be added, left out, replaced or swapped with their neighbour to make one
// word of the other; upper and lower case count as the same.
[[nodiscard]] std::size_t editDistance(std::string_view left, std::string_view right);

// The first of the words that needs the fewest changes; empty if there are none.
[[nodiscard]] std::string nearestTo(std::string_view word, std::span<const std::string> words);

}  // namespace settings
