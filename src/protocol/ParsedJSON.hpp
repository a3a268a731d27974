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

// A JSON text (RFC 8259) as values. Strict: nesting to 32 levels, UTF-8 without lone surrogates, no
// number that no double holds, nothing but white space behind the value; of a key that stands twice
// the last counts. All that was read is overwritten when this goes, since a message may carry a PIN
// or a password.
class ParsedJSON {
 public:
  // Says whether the value under a key of the outermost object is wanted.
  using Wanted = std::function<bool(std::string_view key)>;

  // What is not wanted is checked like all else and then left out. Throws std::bad_alloc.
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
