#include "BareRelay.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <memory>
#include <system_error>

#include "base/Descriptor.hpp"
#include "crypto/TlsChannel.hpp"

namespace bench {
namespace {

using Side = std::unique_ptr<SSL, decltype(&SSL_free)>;

base::Descriptor listenOn(std::uint16_t port) {
  base::Descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
      ::listen(listener.get(), 2) != 0) {
    throw std::system_error(errno, std::generic_category(), "the bare relay can't listen");
  }
  return listener;
}

// A failed handshake shows at the first read.
Side acceptSide(SSL_CTX *context, int listener) {
  const int socket = ::accept(listener, nullptr, nullptr);
  const int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  Side side(SSL_new(context), SSL_free);
  SSL_set_fd(side.get(), socket);
  (void)SSL_accept(side.get());
  ::fcntl(socket, F_SETFL, O_NONBLOCK);
  return side;
}

void relayBetween(const std::array<Side, 2> &sides) {
  const base::Descriptor waiting(::epoll_create1(EPOLL_CLOEXEC));
  epoll_event event{};
  event.events = EPOLLIN;
  for (; event.data.u32 < sides.size(); ++event.data.u32) {
    ::epoll_ctl(waiting.get(), EPOLL_CTL_ADD, SSL_get_fd(sides[event.data.u32].get()), &event);
  }
  std::array<char, crypto::kTlsRecordBytes> buffer{};
  while (::epoll_wait(waiting.get(), &event, 1, -1) == 1) {
    SSL *const from = sides[event.data.u32].get();
    SSL *const into = sides[1 - event.data.u32].get();
    do {
      const int length = SSL_read(from, buffer.data(), static_cast<int>(buffer.size()));
      if (length <= 0 || SSL_write(into, buffer.data(), length) != length) {
        return;
      }
    } while (SSL_has_pending(from) == 1);
  }
}

}  // namespace

Child runBareRelay(const crypto::Identity &identity, std::uint16_t port) {
  const auto context = crypto::TlsContext::server(identity);
  SSL_CTX_clear_mode(context->native(), SSL_MODE_RELEASE_BUFFERS);  // saves memory, costs time
  const base::Descriptor listener = listenOn(port);
  return Child([&] {
    relayBetween({acceptSide(context->native(), listener.get()),
                  acceptSide(context->native(), listener.get())});
  });
}

}  // namespace bench
