#pragma once

#include <functional>
#include <string>

#include "base/Error.hpp"
#include "base/Secret.hpp"

namespace platform_linux {

// Asks the machine's rules for passwords (libpwquality with the root's files *.conf in
// /etc/security/pwquality.conf.d, then /etc/security/pwquality.conf) whether they accept this one
// for the user; else the reason. A dictionary that can't be loaded counts as no dictionary check,
// with one line to the reporter.
[[nodiscard]] bool passwordRulesAccept(const SecretText &password, const std::string &user,
                                       const std::function<void(const std::string &)> &reporter,
                                       Error *error = nullptr);

}  // namespace platform_linux
