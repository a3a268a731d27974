#include "settings/Nearest.hpp"

#include <algorithm>
#include <vector>

namespace settings {
namespace {

char lowered(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

}  // namespace

std::size_t editDistance(std::string_view left, std::string_view right) {
  // distances[i][j]: between the first i letters on the left and the first j on the right
  std::vector<std::vector<std::size_t>> distances(left.size() + 1,
                                                  std::vector<std::size_t>(right.size() + 1));
  for (std::size_t i = 0; i <= left.size(); ++i) {
    for (std::size_t j = 0; j <= right.size(); ++j) {
      if (i == 0 || j == 0) {
        distances[i][j] = i + j;
        continue;
      }
      const auto isSame = [&](std::size_t a, std::size_t b) {
        return lowered(left[a - 1]) == lowered(right[b - 1]);
      };
      std::size_t best = distances[i - 1][j - 1] + (isSame(i, j) ? 0U : 1U);
      best = std::min({best, distances[i - 1][j] + 1, distances[i][j - 1] + 1});
      if (i > 1 && j > 1 && isSame(i, j - 1) && isSame(i - 1, j)) {
        best = std::min(best, distances[i - 2][j - 2] + 1);
      }
      distances[i][j] = best;
    }
  }
  return distances[left.size()][right.size()];
}

std::string nearestTo(std::string_view word, std::span<const std::string> words) {
  const auto nearest = std::ranges::min_element(
      words, {}, [&](const std::string &other) { return editDistance(word, other); });
  return nearest == words.end() ? "" : *nearest;
}

}  // namespace settings
