#include "requests/Relay.hpp"

#include <optional>

#include "support/CVNLog.hpp"

namespace requests {
namespace {

// Traces which hash is wanted and returns it; nothing if the request names none.
const std::optional<Bytes> &wantedHash(const QuillMessage &request) {
  if (request.command == QuillCommandDecryptData) {
    CVNLogDebug("Decrypting data requested");
    return request.objectID;
  }
  CVNLogDebug("Sign data requested");
  return request.signingCertificateHash;
}

bool isWanted(const protocol::CardEntry &entry, const QuillMessage &request) {
  if (!entry.hasCertificate) {
    CVNLogDebug("worker found with no associated certificates");
    return false;
  }
  if (entry.certificateSHA1.empty()) {
    CVNLog("error base64 decoding certificate");
    return false;
  }
  const std::optional<Bytes> &wanted = wantedHash(request);
  if (!wanted || *wanted != entry.certificateSHA1) {
    return false;
  }
  CVNLogDebug("certificate hash matches requested hash sent.");
  return true;
}

// The first connection, in order of acceptance, whose list holds the certificate; null if none
// does.
QuillWorker::Shared findCertificateHolder(const Request &request) {
  CVNLogDebug("finding worker that sent the request");
  for (const QuillWorker::Shared &worker : request.processor.workers) {
    if (!worker->certificates || !worker->g_inbound_connection) {
      continue;
    }
    for (const protocol::CardEntry &entry : worker->certificates->entries()) {
      if (isWanted(entry, request.message)) {
        return worker;
      }
    }
  }
  return nullptr;
}

}  // namespace

void handleRelay(Request &request) {
  CVNLogDebug("request from local client.");
  const auto &messageID = request.message.messageID;
  if (!messageID) {
    // the answer could never find its way back
    return refuse(request);
  }
  const QuillWorker::Shared holder = findCertificateHolder(request);
  if (!holder || !holder->isAuthenticated) {
    CVNLog("certificate not found or not authenticated. stopping");
    return refuse(request);
  }
  CVNLogDebug("authenticated connection so sending message back to client");
  request.processor.pendingMessages.insert_or_assign(
      *messageID, RequestProcessor::Pending{request.worker, holder});
  holder->sendMessage(request.message);
}

void relayResponse(RequestProcessor &processor, const QuillMessage &response) {
  const auto found = response.messageID ? processor.pendingMessages.find(*response.messageID)
                                        : processor.pendingMessages.end();
  if (found == processor.pendingMessages.end()) {
    CVNLog("worker not found");
    return;
  }
  CVNLogDebug("Removing pending worker");
  const QuillWorker::Shared requester = found->second.requester;
  processor.pendingMessages.erase(found);
  requester->sendMessage(response);
}

}  // namespace requests
