#pragma once

#include "requests/Request.hpp"

namespace requests {

void handleInsert(Request &request);
void handleRemove(Request &request);
void handleGetCertificates(Request &request);

}  // namespace requests
