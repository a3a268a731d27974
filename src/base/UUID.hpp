#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace base {

// A universally unique identifier (RFC 4122): 16 bytes in network order.
struct UUID {
  std::array<std::uint8_t, 16> bytes{};

  // A fresh random one (version 4, RFC 4122 section 4.4).
  [[nodiscard]] static UUID random();

  // Reads 36 characters in groups 8-4-4-4-12, in either case; nothing for any other text.
  [[nodiscard]] static std::optional<UUID> fromText(std::string_view text);

  // 36 characters, upper-case.
  [[nodiscard]] std::string text() const;

  friend bool operator==(const UUID &left, const UUID &right) = default;
};

}  // namespace base

using base::UUID;

template <>
struct std::hash<base::UUID> {
  // The hash is keyed because peers choose the IDs: no peer can put many of them into one bucket.
  [[nodiscard]] std::size_t operator()(const base::UUID &uuid) const noexcept;
};
