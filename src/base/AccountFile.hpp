#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/Error.hpp"

namespace base {

// One line of the account file (passwd(5)).
struct Account {
  std::string name;
  uid_t userID = 0;
  std::string shell;
};

// Every account with exactly this name in the account file at `path` (used as given; see
// base::rooted), in the order of its lines. Lines that are no account are skipped, as the system
// does. The name-service switch is not asked. Nothing, with the reason, if the file can't be read
// to its end.
[[nodiscard]] std::optional<std::vector<Account>> accountsNamed(const std::string &name,
                                                                const std::string &path,
                                                                Error *error = nullptr);

// The same for the content of an account file. Parsing overwrites `content`.
[[nodiscard]] std::optional<std::vector<Account>> accountsIn(std::span<std::uint8_t> content,
                                                             const std::string &name,
                                                             Error *error = nullptr);

}  // namespace base
