#pragma once

#include <map>

#include "platform/UserDefaults.hpp"

namespace fakes {

// Settings that a test writes down: values["domain/key"].
class FakeUserDefaults : public platform::UserDefaults {
 public:
  using Value = std::variant<bool, std::int64_t, std::string>;

  std::optional<std::string> text(std::string_view domain, std::string_view key) override {
    return find<std::string>(domain, key);
  }
  std::optional<bool> boolean(std::string_view domain, std::string_view key) override {
    return find<bool>(domain, key);
  }
  std::optional<std::int64_t> integer(std::string_view domain, std::string_view key) override {
    return find<std::int64_t>(domain, key);
  }

  std::map<std::string, Value> values;

 private:
  template <typename T>
  std::optional<T> find(std::string_view domain, std::string_view key) const {
    const auto found = values.find(std::string(domain) + "/" + std::string(key));
    const T *value = found == values.end() ? nullptr : std::get_if<T>(&found->second);
    return value == nullptr ? std::nullopt : std::optional<T>(*value);
  }
};

}  // namespace fakes
