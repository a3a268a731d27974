#pragma once

#include <optional>
#include <string_view>

#include "base/Bytes.hpp"
#include "requests/RequestProcessor.hpp"

namespace requests {

// Asks the machine's pairing tool for the public-key hash that is paired with a user, up to 30
// times with a pause of a second after every time that it shows none, and no longer than the
// setting `pairingSeconds` allows. Blocks meanwhile. Nothing if there is none or what stands in its
// place is not hexadecimal.
[[nodiscard]] std::optional<Bytes> findPairedHash(const RequestProcessor::Platform &platform);

// The line of a listing that begins with the paired hash: the one after the first line that holds
// the text of the paired section and follows a line with the token's header. Nothing if there is
// none or the listing is not UTF-8.
[[nodiscard]] std::optional<std::string_view> findBindLine(ByteView listing);

}  // namespace requests
