#include "linux/network/TlsListener.hpp"

#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/socket_base.hpp>
#include <cerrno>
#include <charconv>
#include <utility>

#include "linux/network/TlsConnection.hpp"

namespace platform_linux {
namespace {

using boost::asio::ip::tcp;
using boost::system::error_code;

// What one turn of the loop accepts before others have theirs.
constexpr int kAcceptancesPerTurn = 4;

// How long accepting rests when the process has no descriptor left.
constexpr std::chrono::milliseconds kRest{100};

std::uint16_t portFrom(const std::string &text) {
  std::uint16_t port = 0;
  std::from_chars(text.data(), text.data() + text.size(), port);
  return port;
}

void setOption(int socket, int level, int name, int value) {
  // a failure leaves the system's own value, with which the connection works all the same
  (void)::setsockopt(socket, level, name, &value, sizeof(value));
}

}  // namespace

TlsListener::TlsListener(AsioMainQueue &queue, const platform::ListenerParameters &parameters,
                         std::shared_ptr<CleansedBytes> buffer)
    : queue_(queue),
      parameters_(parameters),
      buffer_(std::move(buffer)),
      acceptor_(queue.context()),
      retry_(queue.context()),
      port_(portFrom(parameters.port)),
      self_(std::make_shared<TlsListener *>(this)) {}

TlsListener::~TlsListener() {
  *self_ = nullptr;
  for (const std::shared_ptr<TlsLink> &link : handshaking_) {
    link->abandon();
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
  queue_.post([self = self_, errorNumber] {
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

// Binds and listens; 0, or why that is not possible.
int TlsListener::open() {
  context_ = crypto::TlsContext::server(*parameters_.identity);
  if (!context_) {
    return EPROTO;
  }
  error_code failed;
  boost::asio::ip::address address = boost::asio::ip::make_address(parameters_.host, failed);
  if (failed) {
    return EINVAL;
  }
  acceptor_.open(address.is_v6() ? tcp::v6() : tcp::v4(), failed);
  if (failed == boost::asio::error::address_family_not_supported &&
      address == boost::asio::ip::address_v6::any()) {
    // a machine without IPv6
    address = boost::asio::ip::address_v4::any();
    acceptor_.open(tcp::v4(), failed);
  }
  if (!failed) {
    (void)::fcntl(acceptor_.native_handle(), F_SETFD, FD_CLOEXEC);
  }
  if (!failed && address.is_v6()) {
    acceptor_.set_option(boost::asio::ip::v6_only(/*only=*/false), failed);
  }
  if (!failed) {
    acceptor_.set_option(boost::asio::socket_base::reuse_address(/*reuse=*/true), failed);
  }
  if (!failed) {
    acceptor_.bind(tcp::endpoint(address, port_), failed);
  }
  if (!failed) {
    acceptor_.listen(boost::asio::socket_base::max_listen_connections, failed);
  }
  if (!failed) {
    acceptor_.non_blocking(/*mode=*/true, failed);
  }
  if (!failed) {
    port_ = acceptor_.local_endpoint(failed).port();
  }
  return failed.value();
}

void TlsListener::report(platform::ListenerState state, int errorNumber) {
  if (stateHandler_) {
    stateHandler_(state, errorNumber);
  }
}

void TlsListener::waitForSockets() {
  acceptor_.async_wait(tcp::acceptor::wait_read, [self = self_](const error_code &aborted) {
    if (!aborted && *self != nullptr) {
      (*self)->acceptSockets();
    }
  });
}

void TlsListener::acceptSockets() {
  for (int count = 0; count < kAcceptancesPerTurn; ++count) {
    error_code failed;
    tcp::socket socket = acceptor_.accept(failed);
    if (failed == boost::asio::error::would_block) {
      break;
    }
    if (failed.value() == EMFILE || failed.value() == ENFILE || failed.value() == ENOBUFS ||
        failed.value() == ENOMEM) {
      return pauseAccepting();
    }
    if (!failed) {  // else this one was gone before it was accepted
      shakeHands(std::move(socket));
    }
  }
  waitForSockets();
}

void TlsListener::pauseAccepting() {
  retry_.expires_after(kRest);
  retry_.async_wait([self = self_](const error_code &aborted) {
    if (!aborted && *self != nullptr) {
      (*self)->waitForSockets();
    }
  });
}

void TlsListener::shakeHands(tcp::socket socket) {
  prepare(socket);
  const auto link = std::make_shared<TlsLink>(queue_, std::move(socket), *context_, buffer_);
  handshaking_.insert(link);
  link->handshake(parameters_.limits().handshakeTime,
                  [self = self_, weak = std::weak_ptr(link)](int error) {
                    const auto finished = weak.lock();
                    if (*self != nullptr && finished) {
                      (*self)->handOver(finished, error);
                    }
                  });
}

void TlsListener::prepare(tcp::socket &socket) const {
  error_code ignored;
  socket.non_blocking(/*mode=*/true, ignored);
  const int descriptor = socket.native_handle();
  (void)::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  setOption(descriptor, SOL_SOCKET, SO_KEEPALIVE, 1);
  setOption(descriptor, IPPROTO_TCP, TCP_KEEPCNT, parameters_.keepaliveCount);
  setOption(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, parameters_.keepaliveIntervalSeconds);
  setOption(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, parameters_.keepaliveIdleSeconds);
  setOption(descriptor, IPPROTO_TCP, TCP_NODELAY, 1);
}

void TlsListener::handOver(const std::shared_ptr<TlsLink> &link, int errorNumber) {
  handshaking_.erase(link);
  if (errorNumber != 0) {
    if (failedHandshakeHandler_) {
      failedHandshakeHandler_(link->peer(), errorNumber);
    }
    return;
  }
  if (connectionHandler_) {
    connectionHandler_(std::make_shared<TlsConnection>(link));
  }
}

}  // namespace platform_linux
