#include "requests/ClientAuthentication.hpp"

#include <algorithm>

#include "base/Files.hpp"
#include "base/Root.hpp"
#include "base/UUID.hpp"
#include "crypto/Certificate.hpp"
#include "crypto/HashAlgorithm.hpp"
#include "encodings/HexString.hpp"
#include "logging/CVNLog.hpp"
#include "requests/PairingListing.hpp"
#include "settings/Settings.hpp"

namespace requests {
namespace {

const std::string kNoUserText =
    "There was no user matching on the remote machine mapped to the certificate on the smart card. "
    "Please check the pairing and try again.";

const std::string kTooOftenText =
    "There were too many attempts from this address. Please wait a minute and try again.";

// Counts the attempt; false, with a report, if its address has made as many as it may.
bool isAdmitted(const Request &request) {
  const RequestProcessor::Platform &platform = request.processor.platform();
  const auto most = static_cast<std::uint64_t>(
      settings::valueOf(settings::kConnectsPerMinute, platform.defaults));
  const auto &connection = request.worker->g_inbound_connection;
  if (most == 0 || !connection) {
    return true;
  }
  const platform::Endpoint peer = connection->peer();
  if (request.processor.connectRate.tryAcquire(peer.source, most, platform.clock.now())) {
    return true;
  }
  platform.limits.reached(
      {{most, settings::kConnectsPerMinute.key}, "connect from " + peer.host + " refused"});
  return false;
}

void select(Request &request, std::optional<Bytes> hash) {
  request.worker->selectedCertificateHash = hash;
  request.reply.selectedCertificateHash = std::move(hash);
}

void selectFirstListed(Request &request, const QuillMessage::CertificateArray &listed) {
  CVNLogDebug(
      "Skipping user verification because /Library/Application "
      "Support/Keyferry/.disableuserverification was found");
  CVNLogDebug(
      "user certificate matching skipped. saving selected cert hash and sending back to client");
  const Bytes *first = listed.empty() ? nullptr : std::get_if<Bytes>(&listed.front());
  select(request, first == nullptr ? std::nullopt : std::optional(*first));
}

// A device lists one key. Of another client's list the first stands for it.
void noteUnpaired(const Request &request, const QuillMessage::CertificateArray &listed) {
  const Bytes *hash = listed.empty() ? nullptr : std::get_if<Bytes>(&listed.front());
  const auto &connection = request.worker->g_inbound_connection;
  if (hash != nullptr && hash->size() == crypto::digestSize(crypto::HashAlgorithm::sha1) &&
      connection) {
    request.processor.unpairedDevices.note(
        {connection->peer().host, *hash, request.processor.platform().clock.now()});
  }
}

void selectPaired(Request &request, const QuillMessage::CertificateArray &listed) {
  const std::optional<Bytes> paired = findPairedHash(request.processor.platform());
  const bool isListed =
      paired && std::ranges::find(listed, encodings::ArrayElement(*paired)) != listed.end();
  if (!isListed) {
    noteUnpaired(request, listed);
  }
  if (!paired) {
    CVNLog("no user found matching pubkey hash returning error");
    request.reply.status = false;
    request.reply.selectedCertificateHash = Bytes{};
    request.reply.errorMessage = kNoUserText;
    request.worker->selectedCertificateHash.reset();
    return;
  }
  // A client that does not hold the paired key is answered all the same and fails at
  // `authenticate`.
  if (isListed) {
    CVNLogDebug("found user with pubkeyhash");
  }
  CVNLogDebug("saving selected certificate hash and sending back which one we selected");
  select(request, paired);
}

void selectCertificate(Request &request) {
  const auto &listed = request.message.certificateArray;
  if (!listed) {
    return;
  }
  request.reply.status = true;
  CVNLogDebug("found certificate array.");
  if (base::fileExists(base::rooted(kUserVerificationMarker))) {
    return selectFirstListed(request, *listed);
  }
  selectPaired(request, *listed);
}

// The certificate's public-key hash; nothing, with a log line, if it has no key that can be
// exported.
std::optional<Bytes> publicKeyHashOf(const crypto::Certificate &certificate) {
  Error error;
  const auto key = certificate.publicKey(&error);
  auto hash = key ? key->hash(&error) : std::nullopt;
  if (!hash) {
    CVNLog("SecKeyCopyExternalRepresentation error: %@", error.description);
    return std::nullopt;
  }
  CVNLogDebug("getting pubkeyhash of certificate");
  return hash;
}

bool provesItself(const QuillMessage &message, const QuillWorker &worker) {
  if (!message.challengeSignature || !message.certificateUsedToAuthenticate) {
    return false;
  }
  const auto certificate = crypto::Certificate::fromDER(*message.certificateUsedToAuthenticate);
  if (!certificate) {
    return false;
  }
  CVNLogDebug("signed challenge and certificate found, so validating");
  const auto hash = publicKeyHashOf(*certificate);
  if (!hash || !worker.selectedCertificateHash || *hash != *worker.selectedCertificateHash) {
    return false;
  }
  CVNLogDebug("validating signature");
  return worker.challenge &&
         certificate->publicKey()->verifyRawPKCS1(*message.challengeSignature, *worker.challenge);
}

}  // namespace

void handleConnect(Request &request) {
  if (!isAdmitted(request)) {
    request.reply.errorMessage = kTooOftenText;
    return refuse(request);
  }
  selectCertificate(request);
  const UUID random = UUID::random();
  const Bytes challenge(random.bytes.begin(), random.bytes.end());
  request.reply.challenge = challenge;
  request.worker->challenge = challenge;
  request.worker->sendMessage(request.reply);
}

void handleAuthenticate(Request &request) {
  request.reply.status = false;
  request.worker->isAuthenticated = false;
  if (provesItself(request.message, *request.worker)) {
    CVNLogDebug("signature good.");
    request.worker->isAuthenticated = true;
    request.worker->authCertificate = request.message.certificateUsedToAuthenticate;
    request.worker->keysAlike.clear();
    request.processor.unpairedDevices.forget(*request.worker->selectedCertificateHash);
    request.reply.status = true;
  }
  if (request.worker->isAuthenticated) {
    CVNLogDebug("Authenticated. Sending back success");
    request.worker->sendMessage(request.reply);
  } else {
    CVNLogDebug("Not authenticated. Sending back failure");
    request.worker->sendMessageAndDisconnect(request.reply);
  }
}

}  // namespace requests
