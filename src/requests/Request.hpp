#pragma once

#include "protocol/QuillMessage.hpp"
#include "requests/RequestProcessor.hpp"
#include "worker/QuillWorker.hpp"

namespace requests {

// One request on its way through a handler, with the reply that the handler fills in and sends: of
// type response, with the request's command and message ID, status false.
struct Request {
  const QuillMessage &message;
  const QuillWorker::Shared &worker;
  RequestProcessor &processor;
  QuillMessage reply;
};

// Answers with status false and, where the command's answer has a result, an empty one, so that the
// client can read the refusal and find it by its message ID.
void refuse(Request &request);

}  // namespace requests
