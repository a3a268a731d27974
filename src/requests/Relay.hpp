#pragma once

#include "requests/Request.hpp"

namespace requests {

// `sign_data` and `decrypt_data`: passes the request on to the connection that holds the
// certificate.
void handleRelay(Request &request);

// Passes the answer to such a request, which `sender` has sent, on to whoever asked.
void relayResponse(RequestProcessor &processor, const QuillMessage &response,
                   const QuillWorker::Shared &sender);

}  // namespace requests
