#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace settings {

// The edit distance of two words: insertions, deletions, replacements and swaps of neighbours. Case
// is ignored.
[[nodiscard]] std::size_t editDistance(std::string_view left, std::string_view right);

// The first of the words that needs the fewest changes; empty if there are none.
[[nodiscard]] std::string nearestTo(std::string_view word, std::span<const std::string> words);

}  // namespace settings
