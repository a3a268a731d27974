#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/Bytes.hpp"
#include "base/Error.hpp"

namespace ctl {

// Reads the 20-byte hash of a public key as people paste it: 40 hexadecimal digits in either case,
// with "0x" or with colons or without. Nothing, with the reason in *error, for any other text; the
// reason for a text as long as a certificate's fingerprint says what is wanted instead.
[[nodiscard]] std::optional<Bytes> publicKeyHashFromText(std::string_view text,
                                                         Error *error = nullptr);

// The hash of the key in a certificate's file, PEM or DER; of several certificates the first. Only
// RSA keys can authenticate, so any other gives nothing, with the reason.
[[nodiscard]] std::optional<Bytes> publicKeyHashFromCertificate(const std::string &path,
                                                                Error *error = nullptr);

}  // namespace ctl
