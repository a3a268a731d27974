#include "remote/Address.hpp"

#include <algorithm>
#include <charconv>

#include "base/Places.hpp"
#include "client/Connection.hpp"

namespace remote {
namespace {

std::optional<std::uint16_t> portFrom(std::string_view text) {
  std::uint16_t port = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), port);
  const bool isWhole = failure == std::errc() && end == text.data() + text.size();
  return isWhole && port != 0 ? std::optional(port) : std::nullopt;
}

// Removes the port, if there is one, and the brackets.
std::optional<Address> split(std::string_view text) {
  std::string_view port;
  std::string_view host = text;
  if (text.starts_with('[')) {
    const auto end = text.find(']');
    if (end == std::string_view::npos) {
      return std::nullopt;
    }
    host = text.substr(1, end - 1);
    port = text.substr(end + 1);
  } else if (std::ranges::count(text, ':') == 1) {
    const auto colon = text.find(':');
    host = text.substr(0, colon);
    port = text.substr(colon);
  }
  if (port.empty()) {
    return Address{std::string(host), base::kPublicPort};
  }
  const auto number = port.starts_with(':') ? portFrom(port.substr(1)) : std::nullopt;
  return number ? std::optional(Address{std::string(host), *number}) : std::nullopt;
}

bool isHostCharacter(char character) {
  return static_cast<unsigned char>(character) > ' ' && character != '\x7F';
}

}  // namespace

std::optional<Address> Address::fromText(std::string_view text, Error *error) {
  auto address = split(text);
  if (!address || address->host.empty() || !std::ranges::all_of(address->host, isHostCharacter)) {
    base::report(error, "arguments", 0,
                 "\"" + std::string(text) + "\" is no HOST or HOST:PORT (IPv6: [ADDRESS]:PORT)");
    return std::nullopt;
  }
  std::ranges::transform(address->host, address->host.begin(), [](char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
  });
  return address;
}

std::string Address::text() const {
  const bool isIPv6 = host.find(':') != std::string::npos;
  return (isIPv6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

std::string Address::name() const {
  return port == base::kPublicPort ? host : text();
}

}  // namespace remote
