#include "load/Crowd.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <array>
#include <bit>

namespace load {
namespace {

constexpr int kPiecesOfOneStep = 16;  // then the others have their turn

sockaddr addressOf(std::uint32_t host, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(host);
  return std::bit_cast<sockaddr>(address);
}

}  // namespace

Crowd::Crowd(std::uint16_t port, std::vector<Behaviour> members, uid_t user)
    : port_(port), user_(user) {
  for (Behaviour &behaviour : members) {
    // 127.1.0.1 and so on
    const auto number = static_cast<std::uint32_t>(members_.size());
    members_.push_back(
        {std::move(behaviour), INADDR_LOOPBACK + 0x10000U + number / 250 * 256 + number % 250});
  }
  thread_ = std::jthread([this](const std::stop_token &stop) { run(stop); });
}

void Crowd::run(const std::stop_token &stop) {
  // Of this thread alone: what it costs the daemon is to be seen, not that it keeps the honest
  // clients of the test from running.
  ::setpriority(PRIO_PROCESS, 0, /*niceness=*/5);
  ::setfsuid(user_);  // likewise; whose the sockets are
  for (Member &member : members_) {
    dial(member);
  }
  std::vector<pollfd> sockets(members_.size());
  while (!stop.stop_requested()) {
    for (std::size_t number = 0; number < sockets.size(); ++number) {
      sockets[number] = {members_[number].socket.get(), members_[number].awaited, 0};
    }
    // whether it is over is looked at seldom, or an idle crowd would cost something
    ::poll(sockets.data(), sockets.size(), /*milliseconds=*/500);
    for (std::size_t number = 0; number < sockets.size(); ++number) {
      if (sockets[number].revents == 0) {
        continue;
      }
      Member &member = members_[number];
      const Result result = step(member);
      member.awaited = result == Result::wantsRead ? POLLIN : POLLOUT;
      if (result == Result::ended || result == Result::failed) {
        ++ended;
        member.channel.reset();
        member.socket.close();
        if (member.behaviour.isEndless) {
          dial(member);
        }
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
  member.channel = std::make_unique<crypto::TlsChannel>(context_, crypto::TlsChannel::Role::client,
                                                        member.socket.get());
  member.isEstablished = false;
  member.isAnswered = true;
  member.next = 0;
}

// What it waits for now; `done`: it can go on.
Crowd::Result Crowd::step(Member &member) {
  Result result = Result::done;
  if (member.behaviour.shakesHands && !member.isEstablished) {
    result = member.channel->handshake();
    member.isEstablished = result == Result::done;
    established += member.isEstablished ? 1 : 0;
  }
  std::array<std::uint8_t, crypto::kTlsRecordBytes> dropped;
  std::size_t length = 0;
  const bool reads = !member.behaviour.isEndless || member.behaviour.readsAnswers;
  while (result == Result::done && member.isEstablished && reads) {
    result = member.channel->readRecord(dropped, length);
    // an answer's last record ends so
    if (result == Result::done &&
        base::textOf(ByteView(dropped).first(length)).ends_with("[ENDDATA]")) {
      member.isAnswered = true;
    }
  }
  if (member.isEstablished && result == Result::wantsRead) {
    result = Result::done;  // it has read all, and speaks
  }
  for (int pieces = 0; pieces < kPiecesOfOneStep && result == Result::done; ++pieces) {
    result = say(member);
  }
  return result;
}

// Sends what the socket takes of the piece before, and then begins with the next one.
Crowd::Result Crowd::say(Member &member) {
  const auto &[says, isEndless, readsAnswers, shakesHands] = member.behaviour;
  crypto::TlsChannel &channel = *member.channel;
  const Result flushed = channel.flush();
  if (flushed != Result::done) {
    return flushed;
  }
  if (readsAnswers && !std::exchange(member.isAnswered, false)) {
    return Result::wantsRead;
  }
  if (member.next >= says.size()) {
    if (member.next++ != says.size() || says.empty() || !shakesHands) {
      return Result::wantsRead;
    }
    channel.sendCloseNotify();
    return Result::done;
  }
  ByteView rest = says[member.next];
  // a part of it does as well
  if (!shakesHands && ::send(member.socket.get(), rest.data(), rest.size(), MSG_NOSIGNAL) < 0) {
    return errno == EAGAIN ? Result::wantsWrite : Result::failed;
  }
  while (shakesHands && !rest.empty()) {
    const std::size_t taken = channel.encryptRecord(rest);
    if (taken == 0) {
      return Result::failed;
    }
    rest = rest.subspan(taken);
  }
  ++said;
  ++member.next;
  if (isEndless) {
    member.next %= says.size();
  }
  return Result::done;
}

}  // namespace load
