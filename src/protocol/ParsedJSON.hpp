#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "base/Bytes.hpp"

namespace boost::json {
class value;
}

namespace protocol {

// A parsed JSON text (RFC 8259). Strict: at most 32 levels of nesting, UTF-8 without lone
// surrogates, no number beyond the range of a double, only white space behind the value. If a key
// stands twice, the last one counts. The values are overwritten on destruction, because a message
// may carry a PIN or a password.
class ParsedJSON {
 public:
  // Says whether the value under a key of the outermost object is wanted.
  using Wanted = std::function<bool(std::string_view key)>;

  // Values that are not wanted are checked, but not stored. Throws std::bad_alloc.
  explicit ParsedJSON(ByteView text, const Wanted &wanted = [](std::string_view) { return true; });
  ~ParsedJSON();
  ParsedJSON(const ParsedJSON &) = delete;
  ParsedJSON &operator=(const ParsedJSON &) = delete;

  // Null if the text is no JSON; borrowed from this object.
  [[nodiscard]] const boost::json::value *value() const;

  // Why there is no value.
  [[nodiscard]] const std::string &error() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace protocol
