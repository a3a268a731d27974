#include <algorithm>

#include "logging/CVNLog.hpp"
#include "protocol/Commands.hpp"
#include "requests/ClientAuthentication.hpp"
#include "requests/Relay.hpp"
#include "requests/Request.hpp"
#include "requests/ScreenSharingPassword.hpp"
#include "requests/VirtualCard.hpp"
#include "settings/Settings.hpp"

namespace requests {
namespace {

// Who may send a command.
enum Sender { anyone, authenticated, local, localOrAuthenticated };

// A setting that restricts a command while it is on.
struct OptIn {
  const settings::Switch *setting = nullptr;
  Sender sender = anyone;
};

// How a request is served. protocol/Commands says what its message holds.
struct Route {
  QuillCommand command;
  const char *trace;
  Sender sender;
  void (*handle)(Request &request);
  OptIn optIn = {};
  void (*completeRefusal)(QuillMessage &reply) =
      nullptr;  // adds what a refusal says besides empty values
};

constexpr const char *kRelayTrace = "Command: QuillCommandSignData or QuillCommandDecryptData";

constexpr Route kRoutes[] = {
    {QuillCommandConnect, "Command: QuillCommandConnect", anyone, handleConnect},
    {QuillCommandAuthenticate, "Command: QuillCommandAuthenticate", anyone, handleAuthenticate},
    {QuillCommandInsert,
     "Command: QuillCommandInsert",
     anyone,
     handleInsert,
     {&settings::kInsertRequiresAuthentication, authenticated}},
    {QuillCommandRemove, "Command: QuillCommandRemove", authenticated, handleRemove},
    {QuillCommandGetCertificates,
     "Command: QuillCommandGetCertificates",
     anyone,
     handleGetCertificates,
     {&settings::kListRequiresAuthentication, localOrAuthenticated}},
    {QuillCommandSignData, kRelayTrace, local, handleRelay},
    {QuillCommandCreateEmphemeralUser,
     "Command: QuillCommandCreateEmphemeralUser",
     authenticated,
     handleCreateUser,
     {},
     nameScreenSharingAccount},
    {QuillCommandDecryptData, kRelayTrace, local, handleRelay},
};

Sender senderOf(const Route &route, platform::UserDefaults &defaults) {
  const OptIn &optIn = route.optIn;
  return optIn.setting != nullptr && settings::isOn(*optIn.setting, defaults) ? optIn.sender
                                                                              : route.sender;
}

bool maySend(Sender sender, const QuillWorker &worker) {
  switch (sender) {
    case anyone:
      return true;
    case authenticated:
      return worker.isAuthenticated;
    case local:
      if (!worker.isLocal) {
        CVNLogDebug("request from non-local client. rejecting");
      }
      return worker.isLocal;
    case localOrAuthenticated:
      return worker.isLocal || worker.isAuthenticated;
  }
  return false;
}

const Route *routeOf(std::int64_t command) {
  const Route *route = std::ranges::find(kRoutes, command, &Route::command);
  return route == std::end(kRoutes) ? nullptr : route;
}

void dispatchRequest(RequestProcessor &processor, const QuillMessage &message,
                     const QuillWorker::Shared &worker) {
  CVNLogDebug("Message Type: Request");
  Request request{message, worker, processor,
                  QuillMessage::initWithReplyMessageForCommand(message.command, /*status=*/false,
                                                               message.messageID)};
  const Route *route = routeOf(message.command);
  if (route == nullptr) {
    CVNLog("invalid command:%li", message.command);
    return;
  }
  CVNLogDebug("%s", route->trace);
  if (!maySend(senderOf(*route, processor.platform().defaults), *worker)) {
    if (route->completeRefusal != nullptr) {
      route->completeRefusal(request.reply);
    }
    return refuse(request);
  }
  route->handle(request);
}

void dispatchResponse(RequestProcessor &processor, const QuillMessage &message,
                      const QuillWorker::Shared &worker) {
  CVNLogDebug("Message Type: Response");
  const protocol::Command *const command = protocol::commandOf(message.command);
  if (command == nullptr || command->certificateHash == nullptr) {
    CVNLog("invalid command: %li.", message.command);
    return;
  }
  CVNLogDebug("Command: Sign or Decrypt Data");
  relayResponse(processor, message, worker);
}

}  // namespace
}  // namespace requests

void RequestProcessor::processRequest(const QuillMessage *message,
                                      const QuillWorker::Shared &worker) {
  CVNLogDebug("Daemon processing request or response");
  if (message == nullptr) {
    CVNLogDebug("no message. skipping");
    return;
  }
  if (message->messageType == QuillMessageTypeResponse) {
    return requests::dispatchResponse(*this, *message, worker);
  }
  requests::dispatchRequest(*this, *message, worker);
}

bool RequestProcessor::mayInsert(const QuillWorker &worker) const {
  const requests::Route &insert = *requests::routeOf(QuillCommandInsert);
  return requests::maySend(requests::senderOf(insert, platform_.defaults), worker);
}
