#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

namespace logging {

// For `most`: all bytes of a text.
inline constexpr std::size_t kWholeText = std::string::npos;

// A thing with a text of its own for log lines: a function logText(thing, most), found beside its
// type. It is called only when the line is written. It may cut a text after `most` bytes.
template <typename T>
concept LogObject = requires(const T &thing) {
  { logText(thing, kWholeText) } -> std::convertible_to<std::string>;
};

template <typename T>
concept LogText =
    std::convertible_to<const T &, std::string_view> || std::same_as<T, std::optional<std::string>>;

template <typename T>
concept Loggable = std::integral<T> || LogText<T> || LogObject<T>;

// One argument of a log line, borrowed for the time of the call.
class LogArgument {
 public:
  template <Loggable T>
  explicit LogArgument(const T &value) : value_(hold(value)) {}

  // The argument as text, at least its first `most` bytes; a missing text is "(null)".
  [[nodiscard]] std::string text(std::size_t most) const;

 private:
  struct Object {
    const void *thing;
    std::string (*text)(const void *thing, std::size_t most);
  };
  using Value = std::variant<long long, unsigned long long, std::string_view, Object>;

  template <Loggable T>
  static Value hold(const T &value) {
    if constexpr (std::unsigned_integral<T>) {
      return static_cast<unsigned long long>(value);
    } else if constexpr (std::integral<T>) {
      return static_cast<long long>(value);
    } else if constexpr (std::same_as<T, std::optional<std::string>>) {
      return value ? std::string_view(*value) : std::string_view("(null)");
    } else if constexpr (LogText<T>) {
      return std::string_view(value);
    } else {
      return Object{&value, [](const void *thing, std::size_t most) -> std::string {
                      return logText(*static_cast<const T *>(thing), most);
                    }};
    }
  }

  Value value_;
};

enum class LogArgumentKind { integer, text };

template <Loggable T>
inline constexpr LogArgumentKind kLogArgumentKind =
    std::integral<T> ? LogArgumentKind::integer : LogArgumentKind::text;

// Checks a printf-style format against the kinds of its arguments while the program is compiled: %i
// %d %u, with or without l, take an integer; %s and %@ a text or an object; %% is a percent sign.
// A format that does not fit stops the compilation at one of the non-constant calls below.
void formatHasAnUnknownConversion();
void formatAndArgumentsDiffer();

consteval void checkLogFormat(std::string_view format, std::span<const LogArgumentKind> kinds) {
  std::size_t next = 0;
  for (std::size_t index = 0; index < format.size(); ++index) {
    if (format[index] != '%') {
      continue;
    }
    ++index;
    if (index < format.size() && format[index] == '%') {
      continue;
    }
    if (index < format.size() && format[index] == 'l') {
      ++index;
    }
    const char conversion = index < format.size() ? format[index] : '\0';
    const bool integer = conversion == 'i' || conversion == 'd' || conversion == 'u';
    if (!integer && conversion != 's' && conversion != '@') {
      formatHasAnUnknownConversion();
    }
    if (next == kinds.size() || (kinds[next] == LogArgumentKind::integer) != integer) {
      formatAndArgumentsDiffer();
    }
    ++next;
  }
  if (next != kinds.size()) {
    formatAndArgumentsDiffer();
  }
}

template <typename... Args>
class LogFormat {
 public:
  template <std::size_t kSize>
  consteval LogFormat(const char (&text)[kSize])  // NOLINT: a literal is to become one by itself
      : text_(text, kSize - 1) {
    const std::array<LogArgumentKind, sizeof...(Args)> kinds{kLogArgumentKind<Args>...};
    checkLogFormat(text_, kinds);
  }

  [[nodiscard]] std::string_view text() const { return text_; }

 private:
  std::string_view text_;
};

// Fills a checked format with its arguments, in order. A longer text may be cut anywhere after its
// first `most` bytes.
[[nodiscard]] std::string formatted(std::string_view format, std::span<const LogArgument> arguments,
                                    std::size_t most = kWholeText);

}  // namespace logging
