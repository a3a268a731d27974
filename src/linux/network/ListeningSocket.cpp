#include "linux/network/ListeningSocket.hpp"

#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/socket_base.hpp>
#include <cerrno>

namespace platform_linux {
namespace {

using boost::asio::ip::tcp;
using boost::system::error_code;

void setOption(int socket, int level, int name, int value) {
  // a failure leaves the system's own value, which works too
  (void)::setsockopt(socket, level, name, &value, sizeof(value));
}

}  // namespace

int listenOn(tcp::acceptor &acceptor, const std::string &host, std::uint16_t port) {
  error_code failed;
  boost::asio::ip::address address = boost::asio::ip::make_address(host, failed);
  if (failed) {
    return EINVAL;
  }
  acceptor.open(address.is_v6() ? tcp::v6() : tcp::v4(), failed);
  if (failed == boost::asio::error::address_family_not_supported &&
      address == boost::asio::ip::address_v6::any()) {
    // a machine without IPv6
    address = boost::asio::ip::address_v4::any();
    acceptor.open(tcp::v4(), failed);
  }
  if (!failed) {
    (void)::fcntl(acceptor.native_handle(), F_SETFD, FD_CLOEXEC);
  }
  if (!failed && address.is_v6()) {
    acceptor.set_option(boost::asio::ip::v6_only(/*only=*/false), failed);
  }
  if (!failed) {
    acceptor.set_option(boost::asio::socket_base::reuse_address(/*reuse=*/true), failed);
  }
  if (!failed) {
    acceptor.bind(tcp::endpoint(address, port), failed);
  }
  if (!failed) {
    acceptor.listen(boost::asio::socket_base::max_listen_connections, failed);
  }
  if (!failed) {
    acceptor.non_blocking(/*mode=*/true, failed);
  }
  return failed.value();
}

void prepareAccepted(tcp::socket &socket, const platform::ListenerParameters &parameters) {
  error_code ignored;
  socket.non_blocking(/*mode=*/true, ignored);
  const int descriptor = socket.native_handle();
  (void)::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  setOption(descriptor, SOL_SOCKET, SO_KEEPALIVE, 1);
  setOption(descriptor, IPPROTO_TCP, TCP_KEEPCNT, parameters.keepaliveCount);
  setOption(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, parameters.keepaliveIntervalSeconds);
  setOption(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, parameters.keepaliveIdleSeconds);
  setOption(descriptor, IPPROTO_TCP, TCP_NODELAY, 1);
}

}  // namespace platform_linux
