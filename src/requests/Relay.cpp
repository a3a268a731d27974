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

// What TLS may add to what waits: a sixty-fourth is more than that, be the frames ever so short.
constexpr std::size_t kTlsShare = 64;

// Traces which hash is wanted and returns it; nothing if the request names none.
const std::optional<Bytes> &wantedHash(const QuillMessage &request) {
  if (request.command == QuillCommandDecryptData) {
    CVNLogDebug("Decrypting data requested");
    return request.objectID;
  }
  CVNLogDebug("Sign data requested");
  return request.signingCertificateHash;
}

// Writes the lines of one search about elements that decode to nothing. A list of 2 MiB may hold
// 100,000 of them; the first lines stand for all then, since every request would write them anew.
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

// True if the worker has authenticated with the key of this element. Keys are compared, since
// another certificate of the same key would authenticate as well.
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

  // The first of the holders whose list has the certificate; null if none has it.
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

  // The same result and log lines without a trace.
  std::optional<std::size_t> lookUp(const protocol::CardList &list) {
    const auto &wanted = wantedHash(message_);
    const auto position = wanted ? list.find(*wanted) : std::nullopt;
    unusable_.add(list.unusableBefore(position.value_or(list.entries().size())));
    return position;
  }

  // All elements of one digest are the same certificate: if one may not be used, none may.
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
  bool passesOverStrangers_;  // their lists may date from before the setting was made
  UnusableElements unusable_;
};

// In the order of acceptance, or from the newest on where the setting says so.
QuillWorker::Shared findCertificateHolder(const Request &request) {
  CVNLogDebug("finding worker that sent the request");
  Search search(request);
  const auto &holders = request.processor.listHolders;
  return settings::isOn(settings::kNewestRemoteFirst, request.processor.platform().defaults)
             ? search.firstOf(std::views::reverse(holders))
             : search.firstOf(holders);
}

// Reports a limit that a request would go past.
bool isPast(const settings::Bound &bound, std::uint64_t value, const Request &request) {
  const RequestProcessor::Platform &platform = request.processor.platform();
  const auto most = static_cast<std::uint64_t>(settings::valueOf(bound, platform.defaults));
  if (value <= most) {
    return false;
  }
  platform.limits.reached({{most, bound.key}, "request of a program on this machine refused"});
  return true;
}

// True if the ID waits for another connection's answer and may not be taken over: whoever repeats
// it would get that answer, and the first asker none.
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

// An entry that the request replaces is not one more.
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

// True if the frame would make the holder lose its connection, which is not the holder's fault.
bool isTooMuchFor(const QuillWorker &holder, std::size_t frameBytes, const Request &request) {
  const std::size_t bytes = holder.g_inbound_connection->unsentBytes() + frameBytes;
  return isPast(settings::kMaxUnsentBytes, bytes + bytes / kTlsShare, request);
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
