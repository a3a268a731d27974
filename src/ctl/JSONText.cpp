#include "ctl/JSONText.hpp"

#include "base/Bytes.hpp"
#include "base/Secret.hpp"

namespace ctl {
namespace {

std::string lineOf(const CleansedBytes &json) {
  return std::string(base::textOf(json)) + "\n";
}

}  // namespace

std::string jsonObject(const std::function<void(protocol::JSONWriter &)> &fill) {
  CleansedBytes json;
  protocol::JSONWriter writer(json);
  writer.beginObject();
  fill(writer);
  writer.endObject();
  return lineOf(json);
}

std::string jsonArray(const std::function<void(protocol::JSONWriter &)> &fill) {
  CleansedBytes json;
  protocol::JSONWriter writer(json);
  writer.beginArray();
  fill(writer);
  writer.endArray();
  return lineOf(json);
}

void putText(protocol::JSONWriter &writer, std::string_view key, std::string_view value) {
  writer.key(key);
  writer.text(value);
}

void putBoolean(protocol::JSONWriter &writer, std::string_view key, bool value) {
  writer.key(key);
  writer.boolean(value);
}

void putNumber(protocol::JSONWriter &writer, std::string_view key, std::int64_t value) {
  writer.key(key);
  writer.raw(std::to_string(value));
}

}  // namespace ctl
