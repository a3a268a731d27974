#pragma once

#include "requests/Request.hpp"

namespace requests {

// The card's marker: an empty file that tells the token driver that a card is present.
inline constexpr const char *kCardMarker = "/tmp/scinsert";

void handleInsert(Request &request);
void handleRemove(Request &request);
void handleGetCertificates(Request &request);

}  // namespace requests
