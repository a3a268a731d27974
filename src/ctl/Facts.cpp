#include "ctl/Facts.hpp"

#include <algorithm>
#include <cstddef>

#include "base/Bytes.hpp"
#include "base/DisplayText.hpp"
#include "base/Secret.hpp"

namespace ctl {
namespace {

std::string shownValue(const Fact &fact) {
  if (!fact.shown.empty()) {
    return base::displayText(fact.shown);
  }
  if (const auto *const text = std::get_if<std::string>(&fact.value)) {
    return base::displayText(*text);
  }
  if (const auto *const number = std::get_if<std::int64_t>(&fact.value)) {
    return std::to_string(*number);
  }
  return std::get<bool>(fact.value) ? "yes" : "no";
}

void put(protocol::JSONWriter &writer, const Fact &fact) {
  writer.key(fact.key);
  if (const auto *const text = std::get_if<std::string>(&fact.value)) {
    writer.text(*text);
  } else if (const auto *const number = std::get_if<std::int64_t>(&fact.value)) {
    writer.raw(std::to_string(*number));
  } else {
    writer.boolean(std::get<bool>(fact.value));
  }
}

}  // namespace

std::string textOf(const Facts &facts) {
  std::size_t width = 0;
  for (const Fact &fact : facts) {
    width = std::max(width, fact.title.size());
  }
  std::string text;
  for (const Fact &fact : facts) {
    text += fact.title + ":" + std::string(width - fact.title.size() + 2, ' ') + shownValue(fact) +
            "\n";
  }
  return text;
}

std::string jsonOf(const Facts &facts) {
  protocol::JSONWriter writer;
  writer.beginObject();
  putFacts(writer, facts);
  writer.endObject();
  return lineOf(writer.take());
}

std::string jsonOf(std::span<const Facts> list) {
  protocol::JSONWriter writer;
  putFacts(writer, list);
  return lineOf(writer.take());
}

void putFacts(protocol::JSONWriter &writer, const Facts &facts) {
  for (const Fact &fact : facts) {
    put(writer, fact);
  }
}

void putFacts(protocol::JSONWriter &writer, std::span<const Facts> list) {
  writer.beginArray();
  for (const Facts &facts : list) {
    writer.beginObject();
    putFacts(writer, facts);
    writer.endObject();
  }
  writer.endArray();
}

std::string lineOf(const CleansedBytes &json) {
  return std::string(base::textOf(base::displayJSON(json))) + "\n";
}

}  // namespace ctl
