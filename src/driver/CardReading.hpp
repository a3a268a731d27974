#pragma once

#include <cstddef>

#include "driver/Card.hpp"
#include "protocol/CardList.hpp"

namespace driver {

// So many entries of a list are read, the first ones: more would cost each program, and each of its
// searches, too much.
inline constexpr std::size_t kMostCertificates = 1024;

// What a list says of the card, in its order. Entries whose certificate does not parse or holds a
// key of an unknown type are left out, as are those behind the first kMostCertificates. Nobody has
// vouched for any of it.
[[nodiscard]] CardContent cardContentOf(const protocol::CardList &list);

// True if both hold the same certificates with the same descriptions; null: nothing.
[[nodiscard]] bool areAlike(const CardContent *left, const CardContent *right);

// True if the certificate of `identity` is among them.
[[nodiscard]] bool holds(const CardContent *content, const CardIdentity &identity);

}  // namespace driver
