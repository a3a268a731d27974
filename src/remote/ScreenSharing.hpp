#pragma once

#include <optional>
#include <string>

#include "base/Error.hpp"
#include "base/Secret.hpp"
#include "client/Connection.hpp"
#include "crypto/Identity.hpp"
#include "remote/Address.hpp"
#include "remote/KnownHosts.hpp"

namespace remote {

// The screen-sharing account of a machine, with its new password.
struct ScreenSharingAccount {
  std::string name;
  SecretText password;
};

// Asks the machine with the fingerprint `pinned` for a fresh password, over a connection of its
// own. Blocks. Nothing, with the reason, if the fingerprint differs or the machine refuses. The end
// of this connection also withdraws a card that another connection has inserted there.
[[nodiscard]] std::optional<ScreenSharingAccount> fetchScreenSharingAccount(
    const Address &address, const Fingerprint &pinned, const crypto::Identity &authentication,
    const client::WaitLimits &limits, Error *error = nullptr);

}  // namespace remote
