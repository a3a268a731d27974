#pragma once

#include <string>

#include "ctl/Invocation.hpp"
#include "ctl/Outcome.hpp"
#include "ctl/PasswordOptions.hpp"

namespace ctl {

// Adds a file's identities to the keychain. Prints for each, in the order of the file, that it was
// added or was already there; both count as success. PEM gives one identity, labelled `label`
// or, if that is empty, with the common name of its certificate; PKCS #12 gives all that it holds,
// labelled with their common names. The file stays as it is, is opened once, and no copy of it is
// written. Without a given password it is asked for only where the file wants one.
[[nodiscard]] Outcome importIdentities(const std::string &path, const std::string &label,
                                       const PasswordOptions &options, Invocation &invocation);

}  // namespace ctl
