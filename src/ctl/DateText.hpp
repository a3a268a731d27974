#pragma once

#include <chrono>
#include <string>

namespace ctl {

// A time in UTC: "2031-05-04T03:02:01Z" (ISO 8601).
[[nodiscard]] std::string dateText(std::chrono::system_clock::time_point time);

}  // namespace ctl
