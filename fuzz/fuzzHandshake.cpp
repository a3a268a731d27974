// A handshake with a peer that sends anything: it ends with the peer's stream, holds little and
// sends nothing more once it has failed. The input's first byte says which side is ours (even: the
// server's) and how long the pieces are in which the rest arrives.

#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>

#include "Expect.hpp"
#include "Input.hpp"
#include "base/Descriptor.hpp"
#include "crypto/TlsChannel.hpp"
#include "fakes/MadeKeys.hpp"

namespace {

using crypto::TlsChannel;
using Result = TlsChannel::Result;

const crypto::TlsContext &contextOf(TlsChannel::Role role) {
  static const auto server = crypto::TlsContext::server(fakes::madeIdentity("EC", "server"));
  static const auto client = crypto::TlsContext::client();
  return role == TlsChannel::Role::server ? *server : *client;
}

// Reads away what our side has sent; the number of bytes.
std::size_t drain(int peer) {
  std::array<std::uint8_t, 4096> answer{};
  std::size_t total = 0;
  for (ssize_t got = 0; (got = ::recv(peer, answer.data(), answer.size(), 0)) > 0;) {
    total += static_cast<std::size_t>(got);
  }
  return total;
}

// One step; `done` alone needs the keys of both sides.
Result step(TlsChannel &channel, int socket) {
  const Result result = channel.handshake();
  int waiting = 0;
  // unsent: a certificate and its chain at most; far less than a peer could make the other side
  // hold
  expect(result != Result::ended && result != Result::done &&
         channel.unsentBytes() <= std::size_t{64} * 1024 &&
         (result == Result::failed) == (channel.errorNumber() != 0));
  // else the caller would wait for what is already there
  expect(result != Result::wantsRead || (::ioctl(socket, FIONREAD, &waiting) == 0 && waiting == 0));
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Input input({data, size});
  const std::size_t first = input.byte();
  const auto role = first % 2 == 0 ? TlsChannel::Role::server : TlsChannel::Role::client;
  std::array<int, 2> pair{};
  expect(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair.data()) == 0);
  const base::Descriptor socket(pair[0]);
  base::Descriptor peer(pair[1]);
  TlsChannel channel(contextOf(role), role, socket.get());

  Result result = step(channel, socket.get());
  while (!input.isAtEnd() && result != Result::failed) {
    const ByteView piece = input.take(first / 2 * 8 + 1);
    expect(::send(peer.get(), piece.data(), piece.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(piece.size()));
    result = step(channel, socket.get());
    (void)drain(peer.get());
  }
  ::shutdown(peer.get(), SHUT_WR);
  expect(step(channel, socket.get()) == Result::failed);
  (void)drain(peer.get());
  expect(step(channel, socket.get()) == Result::failed && drain(peer.get()) == 0);
  CleansedBytes buffer(crypto::kTlsRecordBytes + 8);
  ByteView chunk;
  expect(channel.readChunk(buffer, chunk) == Result::failed && chunk.empty());
  return 0;
}
