#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "protocol/JSONWriter.hpp"

namespace ctl {

// One fact in a tool's output: for people under a title, for scripts under a key.
struct Fact {
  std::string key;
  std::string title;
  std::variant<std::string, bool, std::int64_t> value;
  std::string shown{};  // for people, where that differs from the value
};

// The facts about one thing.
using Facts = std::vector<Fact>;

// For people: a line for each fact, the values below each other. Both forms hold nothing that a
// terminal would obey (base/DisplayText.hpp), since much of it comes from cards and clients.
[[nodiscard]] std::string textOf(const Facts &facts);

// For scripts: a line with a JSON object, or with an array of them.
[[nodiscard]] std::string jsonOf(const Facts &facts);
[[nodiscard]] std::string jsonOf(std::span<const Facts> list);

// Write the members of an object that is open, and an array of objects.
void putFacts(protocol::JSONWriter &writer, const Facts &facts);
void putFacts(protocol::JSONWriter &writer, std::span<const Facts> list);

// A JSON text as a line, of well-formed UTF-8 and the same values.
[[nodiscard]] std::string lineOf(const CleansedBytes &json);

}  // namespace ctl
