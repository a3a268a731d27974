#include "linux/network/TlsListener.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <new>
#include <utility>

#include "linux/network/DescriptorReserve.hpp"
#include "linux/network/ListeningSocket.hpp"
#include "linux/network/TlsLink.hpp"

namespace platform_linux {
namespace {

using boost::asio::ip::tcp;
using boost::system::error_code;

// Sockets accepted in one turn of the loop.
constexpr int kAcceptancesPerTurn = 4;

// How long accepting pauses when there is no descriptor or memory left.
constexpr std::chrono::milliseconds kRetryAfter{100};

// Younger handshakes are never evicted: they may be legitimate.
constexpr std::chrono::seconds kLeastAgeToEvict{1};

std::uint16_t portFrom(const std::string &text) {
  std::uint16_t port = 0;
  std::from_chars(text.data(), text.data() + text.size(), port);
  return port;
}

}  // namespace

TlsListener::TlsListener(std::shared_ptr<NetworkResources> resources,
                         const platform::ListenerParameters &parameters)
    : resources_(std::move(resources)),
      parameters_(parameters),
      admission_(parameters.isLoopback),
      turns_(std::make_shared<HandshakeTurns>(resources_->queue)),
      acceptor_(resources_->queue.context()),
      retry_(resources_->queue.context()),
      port_(portFrom(parameters.port)),
      self_(std::make_shared<TlsListener *>(this)) {}

TlsListener::~TlsListener() {
  *self_ = nullptr;
  for (const Unfinished &each : unfinished_) {
    each.handshake->abandon();
  }
}

void TlsListener::setStateHandler(StateHandler handler) {
  stateHandler_ = std::move(handler);
}

void TlsListener::setConnectionHandler(ConnectionHandler handler) {
  connectionHandler_ = std::move(handler);
}

void TlsListener::setFailedHandshakeHandler(FailedHandshakeHandler handler) {
  failedHandshakeHandler_ = std::move(handler);
}

void TlsListener::start() {
  const int errorNumber = open();
  resources_->queue.post([self = self_, errorNumber] {
    if (*self != nullptr) {
      (*self)->report(
          errorNumber == 0 ? platform::ListenerState::ready : platform::ListenerState::failed,
          errorNumber);
    }
  });
  if (errorNumber == 0) {
    waitForSockets();
  }
}

int TlsListener::open() {
  context_ = crypto::TlsContext::server(*parameters_.identity);
  if (!context_) {
    return EPROTO;
  }
  const int errorNumber = listenOn(acceptor_, parameters_.host, port_);
  error_code ignored;
  if (errorNumber == 0) {
    port_ = acceptor_.local_endpoint(ignored).port();
  }
  return errorNumber;
}

void TlsListener::report(platform::ListenerState state, int errorNumber) {
  if (stateHandler_) {
    stateHandler_(state, errorNumber);
  }
}

void TlsListener::waitForSockets() {
  acceptor_.async_wait(tcp::acceptor::wait_read, [self = self_](const error_code &aborted) {
    if (!aborted && *self != nullptr) {
      (*self)->acceptWhatCame();
    }
  });
}

void TlsListener::acceptWhatCame() {
  try {
    acceptSockets();
  } catch (const std::bad_alloc &) {  // the accepted socket is closed again
    retryLater();
  }
}

void TlsListener::acceptSockets() {
  for (int count = 0; count < kAcceptancesPerTurn; ++count) {
    if (const auto reached = reachedDescriptorReserve()) {
      return pauseAccepting(*reached);
    }
    error_code failed;
    tcp::socket socket = acceptor_.accept(failed);
    if (failed == boost::asio::error::would_block) {
      break;
    }
    if (failed.value() == EMFILE || failed.value() == ENFILE || failed.value() == ENOBUFS ||
        failed.value() == ENOMEM) {
      return pauseAccepting(descriptorLimit());
    }
    isPaused_ = false;
    if (!failed) {  // otherwise the peer was gone before it was accepted
      admit(std::move(socket));
    }
  }
  waitForSockets();
}

void TlsListener::pauseAccepting(const platform::Limit &descriptors) {
  if (!std::exchange(isPaused_, true)) {
    resources_->reporter({descriptors, "connections on port " + std::to_string(port_) + " wait"});
  }
  retryLater();
}

void TlsListener::retryLater() {
  retry_.expires_after(kRetryAfter);
  retry_.async_wait([self = self_](const error_code &aborted) {
    if (!aborted && *self != nullptr) {
      (*self)->waitForSockets();
    }
  });
}

void TlsListener::admit(tcp::socket socket) {
  const platform::ListenerLimits limits = parameters_.limits();
  const Candidate candidate = admission_.candidateAt(socket);
  if (const auto limit = makeRoomFor(candidate, limits)) {
    return resources_->reporter({*limit, candidate.name + " refused"});
  }
  prepareAccepted(socket, parameters_);
  shakeHands(std::move(socket), candidate, limits.handshakeTime);
}

// If the places of its source, or all places, are taken, evicts the oldest unfinished handshake
// there. Returns the limit that refuses the candidate all the same.
std::optional<platform::Limit> TlsListener::makeRoomFor(const Candidate &candidate,
                                                        const platform::ListenerLimits &limits) {
  if (const auto limit = admission_.reachedUserLimit(candidate, limits)) {
    return limit;
  }
  const auto isOfSource = [&candidate](const Unfinished &each) {
    return each.source == candidate.source;
  };
  const auto ofSource = admission_.reachedSourceLimit(candidate, limits);
  if (ofSource &&
      (!evictOldest(*ofSource, isOfSource) || admission_.reachedSourceLimit(candidate, limits))) {
    return ofSource;
  }
  const auto isAny = [](const Unfinished &) { return true; };
  const auto ofAll = admission_.reachedTotalLimit(limits);
  if (ofAll && (!evictOldest(*ofAll, isAny) || admission_.reachedTotalLimit(limits))) {
    return ofAll;
  }
  return std::nullopt;
}

// False if the pool is empty or its oldest handshake is too young.
bool TlsListener::evictOldest(const platform::Limit &limit,
                              const std::function<bool(const Unfinished &)> &isOfPool) {
  const auto oldest = std::ranges::find_if(unfinished_, isOfPool);
  if (oldest == unfinished_.end() || oldest->handshake->age() <= kLeastAgeToEvict) {
    return false;
  }
  resources_->reporter({limit, "handshake of " + oldest->handshake->peer().host + " abandoned"});
  oldest->handshake->abandon();
  unfinished_.erase(oldest);
  resources_->heap->connectionGone();
  return true;
}

void TlsListener::shakeHands(tcp::socket socket, const Candidate &candidate,
                             std::chrono::milliseconds time) {
  const auto handshake =
      std::make_shared<TlsHandshake>(resources_->queue, turns_, std::move(socket), *context_,
                                     candidate.peer, admission_.takeConnection(candidate));
  unfinished_.push_back({handshake, candidate.source, admission_.takeHandshake(candidate)});
  try {
    handshake->begin(time, [self = self_, weak = std::weak_ptr(handshake)](int error) {
      const auto finished = weak.lock();
      if (*self != nullptr && finished) {
        (*self)->handOver(finished, error);
      }
    });
  } catch (const std::bad_alloc &) {
    handshake->abandon();
    unfinished_.pop_back();
    throw;
  }
}

void TlsListener::handOver(const std::shared_ptr<TlsHandshake> &handshake, int errorNumber) {
  unfinished_.remove_if([&](const Unfinished &each) { return each.handshake == handshake; });
  if (errorNumber != 0) {
    resources_->heap->connectionGone();
    if (failedHandshakeHandler_) {
      failedHandshakeHandler_(handshake->peer(), errorNumber);
    }
    return;
  }
  if (connectionHandler_) {
    auto link = std::make_shared<TlsLink>(resources_, handshake->takeStream());
    link->setAuthenticated(parameters_.isLoopback);
    connectionHandler_(std::make_shared<TlsConnection>(std::move(link)));
  }
}

}  // namespace platform_linux
