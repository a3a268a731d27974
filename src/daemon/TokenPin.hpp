#pragma once

#include <optional>

#include "base/Secret.hpp"
#include "platform/UserDefaults.hpp"

// Not named like its folder: daemon() is a function of the C library.
namespace kfyd {

// The PIN of the token that holds the daemon's TLS identity: the first line of the file that the
// setting `tlsTokenPinFile` names. Nothing if the setting is not given; nothing, with a log line,
// if the file can't be read, is empty, or can be used by others than the process's user.
[[nodiscard]] std::optional<SecretText> tlsTokenPin(platform::UserDefaults &defaults);

}  // namespace kfyd
