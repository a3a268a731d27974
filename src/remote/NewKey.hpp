#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/Error.hpp"
#include "crypto/Identity.hpp"

namespace remote {

enum class NewKeyType { p256, rsa2048, rsa3072 };

// Makes a key with a certificate that it signs itself, and writes both to a file (PEM, mode 0600).
// A file that is there is replaced. Nothing, with the reason, if that is not possible.
[[nodiscard]] std::optional<crypto::Identity> makeKeyFile(const std::string &path, NewKeyType type,
                                                          std::string_view commonName,
                                                          Error *error = nullptr);

// The card key in this program's folder: the one that is inserted where no other is named.
[[nodiscard]] std::string cardKeyPath(const std::string &home);

// "ann@laptop", a name for a card key by which its owner recognises it.
[[nodiscard]] std::string nameOfOwner();

}  // namespace remote
