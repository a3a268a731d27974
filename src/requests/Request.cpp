#include "requests/Request.hpp"
#include "protocol/Commands.hpp"

namespace requests {

void refuse(Request &request) {
  request.reply.status = false;
  ++request.processor.counts.refused;
  protocol::setRequiredEmpty(request.reply);
  request.worker->sendMessage(request.reply);
}

}  // namespace requests
