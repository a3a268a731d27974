#include "client/TcpConnect.hpp"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iterator>
#include <memory>
#include <system_error>
#include <vector>

namespace client {
namespace {

constexpr int kKeepaliveCount = 3;

struct AddressReleaser {
  void operator()(addrinfo *list) const { ::freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, AddressReleaser>;

Addresses resolve(const std::string &host, std::uint16_t port, Error *error) {
  addrinfo wanted{};
  wanted.ai_socktype = SOCK_STREAM;
  wanted.ai_flags = AI_NUMERICSERV | AI_NUMERICHOST;
  addrinfo *list = nullptr;
  const std::string service = std::to_string(port);
  // Try a numeric address first: name resolution loads name service modules into the process, which
  // the host program may not expect.
  int failure = ::getaddrinfo(host.c_str(), service.c_str(), &wanted, &list);
  if (failure == EAI_NONAME) {
    wanted.ai_flags = AI_NUMERICSERV;
    failure = ::getaddrinfo(host.c_str(), service.c_str(), &wanted, &list);
  }
  if (failure != 0) {
    base::report(error, kErrorDomain, cannotResolve,
                 "no address for \"" + host + "\": " + ::gai_strerror(failure));
    return nullptr;
  }
  return Addresses(list);
}

void setOption(int socket, int level, int option, std::int64_t wanted) {
  const auto value = static_cast<int>(wanted);
  // these options are not essential
  (void)::setsockopt(socket, level, option, &value, sizeof value);
}

void setOptions(int socket, const TcpTimeouts &timeouts) {
  setOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
  setOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
  setOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, timeouts.idle.count());
  setOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, timeouts.interval.count());
  setOption(socket, IPPROTO_TCP, TCP_KEEPCNT, kKeepaliveCount);
  setOption(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, timeouts.unacknowledged.count());
}

// The result of a connection attempt as an errno value; 0 if connected.
int outcomeOf(int socket) {
  int outcome = 0;
  socklen_t size = sizeof outcome;
  return ::getsockopt(socket, SOL_SOCKET, SO_ERROR, &outcome, &size) == 0 ? outcome : errno;
}

base::Descriptor connectToAddress(const addrinfo &address, const WaitLimits &limits,
                                  const TcpTimeouts &timeouts, Error *error) {
  base::Descriptor socket(::socket(
      address.ai_family, address.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, address.ai_protocol));
  int outcome = socket.isOpen() ? 0 : errno;
  if (outcome == 0) {
    setOptions(socket.get(), timeouts);
    outcome = ::connect(socket.get(), address.ai_addr, address.ai_addrlen) == 0 ? 0 : errno;
  }
  if (outcome == EINPROGRESS || outcome == EINTR) {
    if (!waitFor(socket.get(), /*toWrite=*/true, limits, error)) {
      return {};
    }
    outcome = outcomeOf(socket.get());
  }
  if (outcome != 0) {
    base::report(error, kErrorDomain, unreachable, std::generic_category().message(outcome));
    return {};
  }
  return socket;
}

}  // namespace

base::Descriptor connectTcp(const std::string &host, std::uint16_t port, const WaitLimits &limits,
                            Error *error, const TcpTimeouts &timeouts) {
  const Addresses list = resolve(host, port, error);
  std::vector<const addrinfo *> addresses;
  for (const addrinfo *address = list.get(); address != nullptr; address = address->ai_next) {
    addresses.push_back(address);
  }
  const auto deadline =
      std::min(limits.deadline, std::chrono::steady_clock::now() + timeouts.connect);
  for (std::size_t index = 0; index < addresses.size(); ++index) {
    const auto now = std::chrono::steady_clock::now();
    const auto share = (deadline - now) / static_cast<int>(addresses.size() - index);
    Error reason;
    base::Descriptor socket = connectToAddress(
        *addresses[index], {now + share, limits.stopDescriptor}, timeouts, &reason);
    if (socket.isOpen()) {
      return socket;
    }
    base::report(
        error, reason.domain, reason.code,
        "no connection to " + host + " port " + std::to_string(port) + ": " + reason.description);
    if (reason.code == stopped) {
      break;
    }
  }
  return {};
}

}  // namespace client
