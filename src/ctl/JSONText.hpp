#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "protocol/JSONWriter.hpp"

namespace ctl {

// One JSON object or array as a line of text; `fill` writes what stands in it.
[[nodiscard]] std::string jsonObject(const std::function<void(protocol::JSONWriter &)> &fill);
[[nodiscard]] std::string jsonArray(const std::function<void(protocol::JSONWriter &)> &fill);

// Write one member of an object.
void putText(protocol::JSONWriter &writer, std::string_view key, std::string_view value);
void putBoolean(protocol::JSONWriter &writer, std::string_view key, bool value);
void putNumber(protocol::JSONWriter &writer, std::string_view key, std::int64_t value);

}  // namespace ctl
