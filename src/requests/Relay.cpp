#include "requests/Relay.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ranges>
#include <utility>

#include "crypto/Certificate.hpp"
#include "encodings/HexString.hpp"
#include "logging/CVNLog.hpp"
#include "protocol/CardList.hpp"
#include "protocol/Frame.hpp"
#include "settings/Settings.hpp"

namespace requests {
namespace {

// Upper bound of the TLS overhead on unsent bytes: 1/64.
constexpr std::size_t kTlsShare = 64;

// Traces and returns the requested hash; nothing if the request names none.
const std::optional<Bytes> &wantedHash(const QuillMessage &request) {
  if (request.command == QuillCommandDecryptData) {
    CVNLogDebug("Decrypting data requested");
    return request.objectID;
  }
  CVNLogDebug("Sign data requested");
  return request.signingCertificateHash;
}

// Logs the elements of one search that decode to nothing. A list of 2 MiB may hold 100,000 of them,
// and every request would log them again, so only the first are logged one by one.
class UnusableElements {
 public:
  UnusableElements() = default;
  ~UnusableElements() {
    if (count_ > kMostLines) {
      CVNLog("error base64 decoding certificate (%lu more)", count_ - kMostLines);
    }
  }
  UnusableElements(const UnusableElements &) = delete;
  UnusableElements &operator=(const UnusableElements &) = delete;

  void add(std::size_t count) {
    for (std::size_t line = count_; line < std::min(count_ + count, kMostLines); ++line) {
      CVNLog("error base64 decoding certificate");
    }
    count_ += count;
  }

 private:
  static constexpr std::size_t kMostLines = 1000;

  std::size_t count_ = 0;
};

bool isWanted(const protocol::CardEntry &entry, const QuillMessage &request,
              UnusableElements &unusable) {
  if (!entry.hasCertificate) {
    CVNLogDebug("worker found with no associated certificates");
    return false;
  }
  if (entry.certificateSHA1.empty()) {
    unusable.add(1);
    return false;
  }
  const std::optional<Bytes> &wanted = wantedHash(request);
  if (!wanted || *wanted != entry.certificateSHA1) {
    return false;
  }
  CVNLogDebug("certificate hash matches requested hash sent.");
  return true;
}

std::optional<Bytes> exportedKeyOf(ByteView der) {
  const auto certificate = crypto::Certificate::fromDER(der);
  const auto key = certificate ? certificate->publicKey() : std::nullopt;
  return key ? key->externalRepresentation() : std::nullopt;
}

// True if the worker has authenticated with this element's key. Keys are compared, not
// certificates: another certificate with the same key authenticates too.
bool hasAuthenticatedWith(const protocol::CardEntry &entry, QuillWorker &worker) {
  if (!worker.authCertificate) {
    return false;
  }
  const auto [place, isNew] = worker.keysAlike.try_emplace(entry.certificateSHA1, false);
  if (isNew) {
    const auto info = protocol::certificateInfoIn(entry);
    const auto key =
        info ? exportedKeyOf(encodings::dataFromBase64String(info->certificate)) : std::nullopt;
    place->second = key && key == exportedKeyOf(*worker.authCertificate);
  }
  return place->second;
}

// A search through the workers that offer a list.
class Search {
 public:
  explicit Search(const Request &request)
      : message_(request.message),
        relaysAuthenticationKey_(settings::isOn(settings::kRelayAuthenticationKey,
                                                request.processor.platform().defaults)),
        passesOverStrangers_(settings::isOn(settings::kInsertRequiresAuthentication,
                                            request.processor.platform().defaults)) {}

  // The first holder whose list has the certificate; null if there is none.
  template <typename Holders>
  QuillWorker::Shared firstOf(const Holders &holders) {
    for (const auto &[number, holder] : holders) {
      if (QuillWorker::Shared worker = holder.lock(); worker && offersKey(*worker)) {
        return worker;
      }
    }
    return nullptr;
  }

 private:
  bool offersKey(QuillWorker &worker) {
    if (!worker.certificates || !worker.g_inbound_connection ||
        (passesOverStrangers_ && !worker.isAuthenticated)) {
      return false;
    }
    const auto position =
        logging::debugModeOn() ? walk(*worker.certificates) : lookUp(*worker.certificates);
    return position && mayBeUsed(worker.certificates->entries()[*position], worker);
  }

  // Element by element, each with its traces.
  std::optional<std::size_t> walk(const protocol::CardList &list) {
    const auto entries = list.entries();
    const auto entry = std::ranges::find_if(entries, [this](const protocol::CardEntry &candidate) {
      return isWanted(candidate, message_, unusable_);
    });
    return entry == entries.end() ? std::nullopt : std::optional(entry - entries.begin());
  }

  // The same result and log lines, without traces.
  std::optional<std::size_t> lookUp(const protocol::CardList &list) {
    const auto &wanted = wantedHash(message_);
    const auto position = wanted ? list.find(*wanted) : std::nullopt;
    unusable_.add(list.unusableBefore(position.value_or(list.entries().size())));
    return position;
  }

  // Elements with the same digest are the same certificate: if one may not be used, none may.
  bool mayBeUsed(const protocol::CardEntry &entry, QuillWorker &worker) const {
    if (relaysAuthenticationKey_ || !hasAuthenticatedWith(entry, worker)) {
      return true;
    }
    CVNLog(
        "key of certificate %@ is not used: its client has authenticated with it (setting "
        "relayAuthenticationKey)",
        encodings::Hex{entry.certificateSHA1});
    return false;
  }

  const QuillMessage &message_;
  bool relaysAuthenticationKey_;
  bool passesOverStrangers_;  // a list may be older than the setting
  UnusableElements unusable_;
};

// In the order of acceptance, or the newest first if the setting says so.
QuillWorker::Shared findCertificateHolder(const Request &request) {
  CVNLogDebug("finding worker that sent the request");
  Search search(request);
  const auto &holders = request.processor.listHolders;
  return settings::isOn(settings::kNewestRemoteFirst, request.processor.platform().defaults)
             ? search.firstOf(std::views::reverse(holders))
             : search.firstOf(holders);
}

// Reports a limit that a request would exceed.
bool isPast(const settings::Bound &bound, std::uint64_t value, const Request &request) {
  const RequestProcessor::Platform &platform = request.processor.platform();
  const auto most = static_cast<std::uint64_t>(settings::valueOf(bound, platform.defaults));
  if (value <= most) {
    return false;
  }
  platform.limits.reached({{most, bound.key}, "request of a program on this machine refused"});
  return true;
}

// True if another connection's request waits under this ID and must not be replaced. Otherwise the
// second asker would get the first one's answer.
bool isRepeatedByAnother(const Request &request) {
  const RequestProcessor::Platform &platform = request.processor.platform();
  const auto *entry = request.processor.pendingMessages.find(*request.message.messageID);
  if (entry == nullptr || entry->requester == request.worker ||
      !settings::isOn(settings::kRefuseRepeatedMessageID, platform.defaults)) {
    return false;
  }
  CVNLog("request refused: its message ID waits for another program's answer (setting %s)",
         settings::kRefuseRepeatedMessageID.key);
  return true;
}

// A replaced entry does not count as one more.
bool isOneTooMany(const Request &request) {
  const PendingMessages &pending = request.processor.pendingMessages;
  const auto *replaced = pending.find(*request.message.messageID);
  const std::size_t more = replaced == nullptr ? 1 : 0;
  const std::size_t moreOfThis =
      replaced == nullptr || replaced->requester != request.worker ? 1 : 0;
  return isPast(settings::kMaxPendingPerConnection, pending.countOf(request.worker) + moreOfThis,
                request) ||
         isPast(settings::kMaxPending, pending.size() + more, request);
}

// True if the frame would exceed the holder's bound on unsent bytes, which ends its connection.
bool isTooMuchFor(const QuillWorker &holder, std::size_t frameBytes, const Request &request) {
  const std::size_t bytes = holder.g_inbound_connection->unsentBytes() + frameBytes;
  return isPast(settings::kMaxUnsentBytes, bytes + bytes / kTlsShare, request);
}

}  // namespace

void handleRelay(Request &request) {
  CVNLogDebug("request from local client.");
  const auto &messageID = request.message.messageID;
  if (!messageID) {
    // the answer could not find its way back
    return refuse(request);
  }
  const QuillWorker::Shared holder = findCertificateHolder(request);
  if (!holder || !holder->isAuthenticated) {
    CVNLog("certificate not found or not authenticated. stopping");
    return refuse(request);
  }
  if (isRepeatedByAnother(request) || isOneTooMany(request)) {
    return refuse(request);
  }
  CVNLogDebug("authenticated connection so sending message back to client");
  CleansedBytes frame = protocol::frameOf(request.message);
  if (isTooMuchFor(*holder, frame.size(), request)) {
    return refuse(request);
  }
  request.processor.pendingMessages.insert(*messageID, {request.worker, holder});
  ++request.processor.counts.relayed;
  holder->sendFrame(std::move(frame), request.message);
}

void relayResponse(RequestProcessor &processor, const QuillMessage &response,
                   const QuillWorker::Shared &sender) {
  const PendingMessages::Entry *entry =
      response.messageID ? processor.pendingMessages.find(*response.messageID) : nullptr;
  const bool isFromStranger =
      entry != nullptr && entry->holder != sender &&
      settings::isOn(settings::kAnswersOnlyFromHolder, processor.platform().defaults);
  if (entry == nullptr || isFromStranger) {
    CVNLog("worker not found");
    return;
  }
  CVNLogDebug("Removing pending worker");
  const QuillWorker::Shared requester = entry->requester;
  processor.pendingMessages.erase(*response.messageID);
  requester->sendMessage(response);
}

}  // namespace requests
