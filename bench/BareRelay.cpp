#include "BareRelay.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <deque>
#include <memory>
#include <system_error>
#include <unordered_map>

#include "Statistics.hpp"
#include "base/Descriptor.hpp"
#include "crypto/TlsChannel.hpp"

namespace bench {
namespace {

base::Descriptor listenOn(std::uint16_t port) {
  base::Descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int on = 1;
  ::setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (::bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
      ::listen(listener.get(), SOMAXCONN) != 0) {
    throw std::system_error(errno, std::generic_category(), "the bare relay can't listen");
  }
  return listener;
}

struct Link {
  base::Descriptor socket;
  std::unique_ptr<SSL, decltype(&SSL_free)> tls{nullptr, SSL_free};
};

class BareRelay {
 public:
  BareRelay(SSL_CTX *context, int listener) : context_(context), listener_(listener) {
    watch(listener_, nullptr);
  }

  void run() {
    std::array<epoll_event, 64> events{};
    while (true) {
      const int count =
          ::epoll_wait(waiting_.get(), events.data(), static_cast<int>(events.size()), -1);
      check(count > 0, "the bare relay can't wait");
      for (int event = 0; event < count; ++event) {
        auto *const link = static_cast<Link *>(events[static_cast<std::size_t>(event)].data.ptr);
        if (link == nullptr) {
          accept();
        } else if (!serve(*link)) {
          links_.erase(link);
        }
      }
    }
  }

 private:
  void watch(int descriptor, Link *link) const {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = link;
    ::epoll_ctl(waiting_.get(), EPOLL_CTL_ADD, descriptor, &event);
  }

  void accept() {
    auto link = std::make_unique<Link>();
    link->socket =
        base::Descriptor(::accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    const int on = 1;
    ::setsockopt(link->socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    link->tls.reset(SSL_new(context_));
    SSL_set_fd(link->tls.get(), link->socket.get());
    SSL_set_accept_state(link->tls.get());
    watch(link->socket.get(), link.get());
    if (holder_ == nullptr) {
      holder_ = link.get();
    }
    links_.emplace(link.get(), std::move(link));
  }

  // False when the link has ended.
  bool serve(Link &from) {
    SSL *const tls = from.tls.get();
    do {
      const int length = SSL_read(tls, buffer_.data(), static_cast<int>(buffer_.size()));
      if (length <= 0) {
        return SSL_get_error(tls, length) == SSL_ERROR_WANT_READ;
      }
      check(SSL_write(next(from).tls.get(), buffer_.data(), length) == length,
            "the bare relay can't write");
    } while (SSL_has_pending(tls) == 1);
    return true;
  }

  // Where what has come from this link goes.
  Link &next(Link &from) {
    if (&from != holder_) {
      unanswered_.push_back(&from);
      return *holder_;
    }
    check(!unanswered_.empty(), "an answer to nobody");
    Link &asker = *unanswered_.front();
    unanswered_.pop_front();
    return asker;
  }

  SSL_CTX *context_;
  int listener_;
  base::Descriptor waiting_{::epoll_create1(EPOLL_CLOEXEC)};
  std::unordered_map<Link *, std::unique_ptr<Link>> links_;
  Link *holder_ = nullptr;
  std::deque<Link *> unanswered_;
  std::array<char, crypto::kTlsRecordBytes> buffer_{};
};

}  // namespace

Child runBareRelay(const crypto::Identity &identity, std::uint16_t port, Saves saves) {
  const auto context = crypto::TlsContext::server(identity);
  if (saves == Saves::memory) {
    SSL_CTX_set_mode(context->native(), SSL_MODE_RELEASE_BUFFERS);
  }
  const base::Descriptor listener = listenOn(port);
  return Child([&] {
    std::signal(SIGPIPE, SIG_IGN);
    BareRelay(context->native(), listener.get()).run();
  });
}

}  // namespace bench
