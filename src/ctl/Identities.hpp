#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ctl/Facts.hpp"
#include "ctl/Invocation.hpp"
#include "ctl/Outcome.hpp"
#include "platform/ItemStore.hpp"

namespace ctl {

using platform::IdentityRecord;

// All identities in the keychain; none if there is no keychain. Nothing, with `failure` filled, if
// it can't be used.
[[nodiscard]] std::optional<std::vector<IdentityRecord>> allIdentities(Invocation &invocation,
                                                                       Failure &failure);

// A token that is present, and the identities on it.
struct TokenIdentities {
  std::string token;  // its ID
  std::vector<IdentityRecord> records;
};

// The tokens present, in their order. May run other vendors' code.
[[nodiscard]] std::vector<TokenIdentities> identitiesOnTokens(Invocation &invocation);

// The one identity, in the keychain or else on a token, with this SHA-1 hash of its certificate, or
// with exactly this label. Nothing, with `failure` filled, if there is none or the label stands for
// several.
[[nodiscard]] std::optional<IdentityRecord> identityNamed(const std::string &hashOrLabel,
                                                          Invocation &invocation, Failure &failure);

// The identity that kfyd chooses by its settings: by the hash if one is set, otherwise by the name
// in lower case. Nothing, with `failure` filled, if there is none.
[[nodiscard]] std::optional<IdentityRecord> identityInUse(Invocation &invocation, Failure &failure);

// Adds an identity with all abilities of its key. An identity that is already there counts as
// added: it keeps its label, and `wasThere` is set.
[[nodiscard]] Outcome addIdentity(const crypto::Identity &identity, const std::string &label,
                                  Invocation &invocation, bool &wasThere);

// Makes a key with a certificate that it signs itself, for a machine of this name, and adds them.
// Nothing, with `failure` filled, if that is not possible.
[[nodiscard]] std::optional<IdentityRecord> makeIdentity(const std::string &commonName,
                                                         const std::string &label, int days,
                                                         Invocation &invocation, Failure &failure);

// How long a new identity is valid where nobody says it.
inline constexpr int kDaysOfNewIdentities = 3650;

// Prints the hash of an added or present identity. All other commands name it by this hash.
void tellOf(const IdentityRecord &record, bool wasThere, Invocation &invocation);

// Makes kfyd use the identity from its next start on: by its hash, so that the label may hold
// capitals. Also publishes its certificate, which clients on this machine pin.
[[nodiscard]] Outcome useIdentity(const IdentityRecord &record);

// Upper-case hexadecimal SHA-1 of the identity's certificate.
[[nodiscard]] std::string hashOf(const IdentityRecord &record);

// The label as stored, empty if there is none.
[[nodiscard]] std::string labelOf(const IdentityRecord &record);

// All facts about an identity.
[[nodiscard]] Facts factsOf(const IdentityRecord &record, bool isInUse);

}  // namespace ctl
