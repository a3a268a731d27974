#include "logging/LogFormat.hpp"

namespace logging {
namespace {

struct AsText {
  std::size_t most;

  std::string operator()(long long value) const { return std::to_string(value); }
  std::string operator()(unsigned long long value) const { return std::to_string(value); }
  std::string operator()(std::string_view value) const {
    return std::string(value.substr(0, most));
  }
  template <typename Object>
  std::string operator()(const Object &value) const {
    return value.text(value.thing, most);
  }
};

}  // namespace

std::string LogArgument::text(std::size_t most) const {
  return std::visit(AsText{most}, value_);
}

std::string formatted(std::string_view format, std::span<const LogArgument> arguments,
                      std::size_t most) {
  std::string line;
  std::size_t next = 0;
  for (std::size_t index = 0; index < format.size() && line.size() < most; ++index) {
    if (format[index] != '%') {
      line += format[index];
      continue;
    }
    ++index;
    if (format[index] == '%') {
      line += '%';
      continue;
    }
    if (format[index] == 'l') {
      ++index;
    }
    line += arguments[next].text(most);
    ++next;
  }
  return line;
}

}  // namespace logging
