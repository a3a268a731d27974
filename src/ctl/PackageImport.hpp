#pragma once

#include <string>

#include "base/Bytes.hpp"
#include "ctl/Outcome.hpp"
#include "ctl/PasswordOptions.hpp"
#include "ctl/Session.hpp"

namespace ctl {

// True if the bytes of a file that holds identities are not PEM, hence taken for PKCS #12.
[[nodiscard]] bool isPackage(ByteView file);

// Adds every identity of a PKCS #12 file to the keychain and prints a line for each that is new
// there. The keychain imports a private copy of `content`, since it deletes what it has imported:
// the user's file at `path` stays. Without a given password it is asked for only where the file
// wants one.
[[nodiscard]] Outcome importPackage(const std::string &path, ByteView content,
                                    const PasswordOptions &options, Session &session);

}  // namespace ctl
