#include "load/Crowd.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <array>
#include <bit>
#include <optional>

namespace load {
namespace {

using Result = crypto::TlsChannel::Result;

constexpr int kNiceness = 5;          // what it costs the daemon is to be seen, not that it keeps
                                      // the honest clients of the test from running
constexpr int kPiecesOfOneStep = 16;  // then the others have their turn

sockaddr addressOf(std::uint32_t host, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(host);
  return std::bit_cast<sockaddr>(address);
}

// 127.1.0.1 and so on.
std::uint32_t ownHost(std::size_t number) {
  return INADDR_LOOPBACK + 0x10000U + static_cast<std::uint32_t>(number / 250 * 256 + number % 250);
}

}  // namespace

struct Crowd::Member {
  Member(const Behaviour &itsBehaviour, std::uint32_t itsHost)
      : behaviour(itsBehaviour), host(itsHost) {}

  const Behaviour &behaviour;
  std::uint32_t host;
  base::Descriptor socket;
  std::optional<crypto::TlsChannel> channel;
  std::uint32_t awaited = 0;
  bool isEstablished = false;
  std::size_t next = 0;  // piece
};

Crowd::Crowd(std::uint16_t port, std::vector<Part> parts)
    : port_(port), parts_(std::move(parts)), events_(::epoll_create1(EPOLL_CLOEXEC)) {
  for (const Part &part : parts_) {
    for (std::size_t count = 0; count < part.count; ++count) {
      members_.push_back(std::make_unique<Member>(part.behaviour, ownHost(members_.size())));
    }
  }
  thread_ = std::thread([this] { run(); });
}

Crowd::~Crowd() {
  isOver_ = true;
  thread_.join();
}

void Crowd::run() {
  ::setpriority(PRIO_PROCESS, 0, kNiceness);  // of this thread alone
  for (const auto &member : members_) {
    dial(*member);
  }
  std::array<epoll_event, 256> happened{};
  while (!isOver_) {
    const int count = ::epoll_wait(events_.get(), happened.data(),
                                   static_cast<int>(happened.size()), /*timeout=*/50);
    for (int index = 0; index < count; ++index) {
      Member &member = *static_cast<Member *>(happened[static_cast<std::size_t>(index)].data.ptr);
      const Progress progress = step(member);
      const std::uint32_t awaits = progress == Progress::needsInput ? EPOLLIN : EPOLLOUT;
      if (progress == Progress::isLost) {
        ++ended_;
        member.channel.reset();
        member.socket.close();
        if (member.behaviour.isEndless) {
          dial(member);
        }
      } else if (awaits != member.awaited) {
        epoll_event event{member.awaited = awaits, {.ptr = &member}};
        ::epoll_ctl(events_.get(), EPOLL_CTL_MOD, member.socket.get(), &event);
      }
    }
  }
}

void Crowd::dial(Member &member) {
  member.socket =
      base::Descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  const sockaddr own = addressOf(member.host, 0);
  const sockaddr daemon = addressOf(INADDR_LOOPBACK, port_);
  // what fails here fails at the first event
  (void)::bind(member.socket.get(), &own, sizeof own);
  (void)::connect(member.socket.get(), &daemon, sizeof daemon);
  member.channel.emplace(context_, crypto::TlsChannel::Role::client, member.socket.get());
  member.isEstablished = false;
  member.next = 0;
  epoll_event event{member.awaited = EPOLLOUT, {.ptr = &member}};
  ::epoll_ctl(events_.get(), EPOLL_CTL_ADD, member.socket.get(), &event);
}

Crowd::Progress Crowd::step(Member &member) {
  const Behaviour &behaviour = member.behaviour;
  Result result = Result::done;
  if (behaviour.shakesHands && !member.isEstablished) {
    result = member.channel->handshake();
    member.isEstablished = result == Result::done;
    established_ += member.isEstablished ? 1 : 0;
  }
  std::array<std::uint8_t, crypto::kTlsRecordBytes> dropped;
  std::size_t length = 0;
  while (result == Result::done && behaviour.shakesHands && !behaviour.isEndless) {
    result = member.channel->readRecord(dropped, length);
  }
  if (result == Result::ended || result == Result::failed) {
    return Progress::isLost;
  }
  if (behaviour.shakesHands && !member.isEstablished) {
    return result == Result::wantsRead ? Progress::needsInput : Progress::needsOutput;
  }
  Progress progress = Progress::mayGoOn;
  for (int pieces = 0; pieces < kPiecesOfOneStep && progress == Progress::mayGoOn; ++pieces) {
    progress = say(member);
  }
  return progress;
}

// Sends what the socket takes of the piece before, and then begins with the next one.
Crowd::Progress Crowd::say(Member &member) {
  const std::vector<Bytes> &says = member.behaviour.says;
  crypto::TlsChannel &channel = *member.channel;
  const Result flushed = channel.flush();
  if (flushed != Result::done) {
    return flushed == Result::wantsWrite ? Progress::needsOutput : Progress::isLost;
  }
  if (member.next >= says.size()) {
    if (member.next++ != says.size() || says.empty() || !member.behaviour.shakesHands) {
      return Progress::needsInput;
    }
    channel.sayGoodbye();
    return Progress::mayGoOn;
  }
  ByteView rest = says[member.next];
  if (!member.behaviour.shakesHands) {
    // a part of it does as well
    if (::send(member.socket.get(), rest.data(), rest.size(), MSG_NOSIGNAL) < 0) {
      return errno == EAGAIN ? Progress::needsOutput : Progress::isLost;
    }
    rest = {};
  }
  while (!rest.empty()) {
    const std::size_t taken = channel.encryptRecord(rest);
    if (taken == 0) {
      return Progress::isLost;
    }
    rest = rest.subspan(taken);
  }
  ++said_;
  ++member.next;
  if (member.behaviour.isEndless) {
    member.next %= says.size();
  }
  return Progress::mayGoOn;
}

}  // namespace load
