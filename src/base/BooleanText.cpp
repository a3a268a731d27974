#include "base/BooleanText.hpp"

#include <algorithm>
#include <array>

#include "base/LowerCase.hpp"

namespace base {
namespace {

struct Row {
  std::string_view text;
  bool value;
};

constexpr std::array kRows{Row{"yes", true}, Row{"true", true},   Row{"1", true},
                           Row{"no", false}, Row{"false", false}, Row{"0", false}};

}  // namespace

std::optional<bool> booleanFromText(std::string_view text) {
  const auto *const row = std::ranges::find(kRows, lowerCase(text), &Row::text);
  return row == kRows.end() ? std::nullopt : std::optional(row->value);
}

}  // namespace base
