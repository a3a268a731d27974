#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/Error.hpp"

namespace remote {

// The address of a machine with a daemon, as written on the command line.
struct Address {
  std::string host;
  std::uint16_t port = 0;

  // Reads HOST, HOST:PORT, [IPv6]:PORT or a bare IPv6 address. The default is the public port.
  [[nodiscard]] static std::optional<Address> fromText(std::string_view text,
                                                       Error *error = nullptr);

  // "host:port" or "[address]:port", lower-case: the same for all ways to write it.
  [[nodiscard]] std::string text() const;

  // For people: without the port if it is the public one.
  [[nodiscard]] std::string name() const;
};

}  // namespace remote
