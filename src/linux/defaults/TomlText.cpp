#include "linux/defaults/TomlText.hpp"

#include <algorithm>
#include <cstdio>
#include <utility>

#define TOML_EXCEPTIONS 0
#include <toml++/toml.h>

namespace platform_linux {
namespace {

std::optional<toml::table> parse(std::string_view text, Error *error) {
  toml::parse_result result = toml::parse(text);
  if (result.failed()) {
    const std::uint32_t line = result.error().source().begin.line;
    base::report(error, "toml", static_cast<int>(line),
                 "line " + std::to_string(line) + ": " + std::string(result.error().description()));
    return std::nullopt;
  }
  return std::move(result).table();
}

std::optional<SettingValue> valueOf(const toml::node &node) {
  if (const auto *boolean = node.as_boolean()) {
    return boolean->get();
  }
  if (const auto *integer = node.as_integer()) {
    return integer->get();
  }
  if (const auto *text = node.as_string()) {
    return text->get();
  }
  return std::nullopt;
}

// A basic string of TOML.
std::string quoted(std::string_view text) {
  std::string result = "\"";
  for (const char character : text) {
    const auto code = static_cast<unsigned char>(character);
    if (character == '"' || character == '\\') {
      result += '\\';
      result += character;
    } else if (code < 0x20 || code == 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof(escape), "\\u%04X", static_cast<unsigned>(code));
      result += escape;
    } else {
      result += character;
    }
  }
  return result + '"';
}

std::string written(const SettingValue &value) {
  if (const auto *text = std::get_if<std::string>(&value)) {
    return quoted(*text);
  }
  if (const auto *number = std::get_if<std::int64_t>(&value)) {
    return std::to_string(*number);
  }
  return std::get<bool>(value) ? "true" : "false";
}

std::string writtenKey(const std::string &key) {
  constexpr std::string_view kBare =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";
  const bool isBare = !key.empty() && key.find_first_not_of(kBare) == std::string::npos;
  return isBare ? key : quoted(key);
}

// Where a line begins; lines count from 1. The end of the text for one that is not there.
std::size_t startOfLine(std::string_view text, std::uint32_t line) {
  std::size_t start = 0;
  for (; line > 1; --line) {
    const std::size_t end = text.find('\n', start);
    if (end == std::string_view::npos) {
      return text.size();
    }
    start = end + 1;
  }
  return start;
}

// The parser counts columns in characters, from 1, and lets those go that only continue one.
std::size_t offsetOf(std::string_view text, toml::source_position position) {
  std::size_t offset = startOfLine(text, position.line);
  for (std::uint32_t column = 1; column < position.column && offset < text.size(); ++column) {
    do {
      ++offset;
    } while (offset < text.size() && (static_cast<unsigned char>(text[offset]) & 0xC0) == 0x80);
  }
  return offset;
}

// Where a new line belongs: behind the last top-level value, since behind a table's head it would
// be the table's; at the end of a text without tables.
std::size_t placeForNewLine(const std::string &text, const toml::table &table) {
  std::uint32_t lastLine = 0;
  bool hasTables = false;
  for (const auto &[key, node] : table) {
    hasTables = hasTables || node.is_table() || node.is_array_of_tables();
    if (!node.is_table() && !node.is_array_of_tables()) {
      lastLine = std::max(lastLine, node.source().end.line);
    }
  }
  return hasTables ? startOfLine(text, lastLine + 1) : text.size();
}

void removeLines(std::string &text, toml::source_position first, toml::source_position last) {
  const std::size_t start = startOfLine(text, first.line);
  text.erase(start, startOfLine(text, last.line + 1) - start);
}

void addLine(std::string &text, const toml::table &table, const std::string &key,
             const SettingValue &value) {
  const std::size_t place = placeForNewLine(text, table);
  const bool isAtLineStart = place == 0 || text[place - 1] == '\n';
  text.insert(place, (isAtLineStart ? "" : "\n") + writtenKey(key) + " = " + written(value) + "\n");
}

// The text with the change made where the parser says that the value, or a place for it, is.
std::string changed(std::string text, const toml::table &table, const std::string &key,
                    const std::optional<SettingValue> &value) {
  const auto found = table.find(key);
  if (found == table.end()) {
    if (value) {
      addLine(text, table, key, *value);
    }
    return text;
  }
  const toml::source_region &place = found->second.source();
  if (value) {
    const std::size_t start = offsetOf(text, place.begin);
    text.replace(start, offsetOf(text, place.end) - start, written(*value));
  } else {
    removeLines(text, found->first.source().begin, place.end);
  }
  return text;
}

void put(toml::table &table, const std::string &key, const std::optional<SettingValue> &value) {
  if (!value) {
    table.erase(key);
    return;
  }
  std::visit([&](const auto &content) { table.insert_or_assign(key, content); }, *value);
}

bool holdsTable(const toml::table &table, const std::string &key) {
  const toml::node *node = table.get(key);
  return node != nullptr && (node->is_table() || node->is_array_of_tables());
}

}  // namespace

std::optional<std::vector<Setting>> readSettings(std::string_view text, Error *error) {
  const auto table = parse(text, error);
  if (!table) {
    return std::nullopt;
  }
  std::vector<std::pair<std::uint32_t, Setting>> lines;
  for (const auto &[key, node] : *table) {
    if (auto value = valueOf(node)) {
      lines.emplace_back(node.source().begin.line,
                         Setting{std::string(key.str()), std::move(*value)});
    }
  }
  std::ranges::sort(lines, {}, [](const auto &line) { return line.first; });
  std::vector<Setting> settings;
  settings.reserve(lines.size());
  for (auto &line : lines) {
    settings.push_back(std::move(line.second));
  }
  return settings;
}

std::optional<std::string> withSetting(const std::string &text, const std::string &key,
                                       const std::optional<SettingValue> &value, Error *error) {
  auto expected = parse(text, error);
  if (!expected) {
    return std::nullopt;
  }
  const bool isPossible = !holdsTable(*expected, key);
  std::string result = changed(text, *expected, key, value);
  put(*expected, key, value);
  // Whether the parser's places were the right ones only the result can tell.
  const auto actual = parse(result, /*error=*/nullptr);
  if (!isPossible || !actual || *actual != *expected) {
    base::report(error, "toml", 0, "\"" + key + "\" cannot be changed without changing more");
    return std::nullopt;
  }
  return result;
}

}  // namespace platform_linux
