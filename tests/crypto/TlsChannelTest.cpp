#include "crypto/TlsChannel.hpp"

#include <gtest/gtest.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <numeric>

#include "base/Descriptor.hpp"
#include "fakes/MadeKeys.hpp"

namespace {

using fakes::madeIdentity;

using crypto::TlsChannel;
using Result = TlsChannel::Result;

// A server channel of ours and a client that is the library alone, on a blocking socket.
struct Server {
  Server() {
    static const auto context = crypto::TlsContext::server(madeIdentity("EC", "server")).value();
    std::array<int, 2> ends{};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    ours = base::Descriptor(ends[0]);
    theirs = base::Descriptor(ends[1]);
    const timeval timeout{.tv_sec = 10, .tv_usec = 0};
    ::setsockopt(theirs.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    channel.emplace(context, TlsChannel::Role::server, ours.get());
    foreign.reset(SSL_new(foreignContext.get()), SSL_free);
    SSL_set_fd(foreign.get(), theirs.get());
    SSL_set_connect_state(foreign.get());
  }

  // Both sides take steps in turn; the foreign one on a socket that does not block meanwhile.
  Result shakeHands() {
    BIO_socket_nbio(theirs.get(), 1);
    bool isForeignDone = false;
    Result result = Result::wantsRead;
    for (int step = 0; step < 20 && (!isForeignDone || result != Result::done); ++step) {
      isForeignDone = SSL_do_handshake(foreign.get()) == 1;
      result = channel->handshake();
    }
    BIO_socket_nbio(theirs.get(), 0);
    return result;
  }

  // Writes as programs do, without a thought for the length of records.
  void foreignWrites(const Bytes &frame) {
    EXPECT_GT(SSL_write(foreign.get(), frame.data(), static_cast<int>(frame.size())), 0);
  }

  std::vector<std::size_t> chunkLengths(Result expectedEnd) {
    std::vector<std::size_t> lengths;
    ByteView chunk;
    Result result = Result::done;
    while ((result = channel->readChunk(buffer, chunk)) == Result::done) {
      lengths.push_back(chunk.size());
      received.insert(received.end(), chunk.begin(), chunk.end());
    }
    EXPECT_EQ(result, expectedEnd) << channel->errorText();
    return lengths;
  }

  base::Descriptor ours;
  base::Descriptor theirs;
  std::shared_ptr<SSL_CTX> foreignContext{SSL_CTX_new(TLS_client_method()), SSL_CTX_free};
  std::shared_ptr<SSL> foreign;
  std::optional<TlsChannel> channel;
  Bytes buffer = Bytes(crypto::kTlsRecordBytes + 8);
  Bytes received;
};

Bytes counted(std::size_t length) {
  Bytes bytes(length);
  std::ranges::generate(bytes, [index = 0]() mutable { return index++ % 251; });
  return bytes;
}

TEST(TlsChannel, ChunksAreRecordsWithTheirShortTail) {
  struct Case {
    std::vector<std::size_t> writes;  // each is one call of the sender
    std::vector<std::size_t> chunks;
    int version = TLS1_3_VERSION;
  };
  const Case kCases[] = {
      {{16384}, {16384}}, {{16390}, {16390}},       {{16390}, {16390}, TLS1_2_VERSION},
      {{16392}, {16392}}, {{16393}, {16384, 9}},    {{32771}, {16384, 16387}},
      {{5, 5}, {5, 5}},   {{16383, 3}, {16383, 3}}, {{16384, 16390}, {16384, 16390}}};
  for (const Case &row : kCases) {
    SCOPED_TRACE(testing::PrintToString(row.writes));
    Server server;
    SSL_set_max_proto_version(server.foreign.get(), row.version);
    ASSERT_EQ(server.shakeHands(), Result::done);
    Bytes sent;
    for (const std::size_t length : row.writes) {
      const Bytes frame = counted(length);
      server.foreignWrites(frame);
      sent.insert(sent.end(), frame.begin(), frame.end());
    }
    EXPECT_EQ(server.chunkLengths(Result::wantsRead), row.chunks);
    EXPECT_TRUE(server.received == sent);
  }
}

TEST(TlsChannel, UnitsAreCutIntoRecordsThatNeverEndShort) {
  for (const std::vector<int> &records : std::vector<std::vector<int>>{
           {3}, {16384}, {16376, 9}, {16381, 9}, {16383, 9}, {16384, 9}, {16384, 16377, 9}}) {
    SCOPED_TRACE(testing::PrintToString(records));
    Server server;
    ASSERT_EQ(server.shakeHands(), Result::done);
    const Bytes unit = counted(std::accumulate(records.begin(), records.end(), std::size_t{0}));
    for (ByteView rest = unit; !rest.empty();) {
      const std::size_t taken = server.channel->encryptRecord(rest);
      ASSERT_GT(taken, 0u);
      rest = rest.subspan(taken);
    }
    ASSERT_EQ(server.channel->flush(), Result::done);
    Bytes got;
    for (const int record : records) {
      ASSERT_EQ(SSL_read(server.foreign.get(), server.buffer.data(), 16384), record);
      got.insert(got.end(), server.buffer.begin(), server.buffer.begin() + record);
    }
    EXPECT_TRUE(got == unit);
  }
}

TEST(TlsChannel, GivesTheLastChunkBeforeAFINWithoutCloseNotify) {
  Server server;
  ASSERT_EQ(server.shakeHands(), Result::done);
  server.foreignWrites(counted(16390));
  server.theirs.close();
  EXPECT_EQ(server.chunkLengths(Result::ended), std::vector<std::size_t>{16390});
  EXPECT_EQ(server.chunkLengths(Result::ended), std::vector<std::size_t>{});
  EXPECT_EQ(server.channel->errorNumber(), 0);
}

TEST(TlsChannel, StopsAPeerThatSendsNothingButKeyUpdates) {
  for (const auto &[updates, end] : {std::pair(32, Result::wantsRead), {33, Result::failed}}) {
    Server server;
    ASSERT_EQ(server.shakeHands(), Result::done);
    for (int count = 0; count < updates; ++count) {
      ASSERT_EQ(SSL_key_update(server.foreign.get(), SSL_KEY_UPDATE_NOT_REQUESTED), 1);
      ASSERT_EQ(SSL_do_handshake(server.foreign.get()), 1);
    }
    EXPECT_EQ(server.chunkLengths(end), std::vector<std::size_t>{});
    EXPECT_EQ(server.channel->errorNumber(), end == Result::failed ? EPROTO : 0);
  }
}

TEST(TlsChannel, SaysGoodbyeAndKnowsWhatItStillHolds) {
  Server server;
  ASSERT_EQ(server.shakeHands(), Result::done);
  EXPECT_FALSE(server.channel->mayHoldMore());
  server.channel->sendCloseNotify();
  EXPECT_EQ(server.channel->flush(), Result::done);
  EXPECT_LE(SSL_read(server.foreign.get(), server.buffer.data(), 1), 0);
  EXPECT_EQ(SSL_get_shutdown(server.foreign.get()), SSL_RECEIVED_SHUTDOWN);
  server.foreignWrites(counted(5));
  server.foreignWrites(counted(5));
  std::size_t length = 0;
  EXPECT_EQ(server.channel->readRecord(server.buffer, length), Result::done);
  EXPECT_TRUE(server.channel->mayHoldMore());
}

TEST(TlsContext, LetsNobodyNegotiateAgainOrInAnOldVersion) {
  for (const auto &context :
       {crypto::TlsContext::server(madeIdentity("EC", "server")), crypto::TlsContext::client()}) {
    EXPECT_EQ(SSL_CTX_get_min_proto_version(context->native()), TLS1_2_VERSION);
    EXPECT_TRUE(SSL_CTX_get_options(context->native()) & SSL_OP_NO_RENEGOTIATION);
  }
}

TEST(TlsChannel, FailsAtAHandshakeThatIsLeftOrOfOldVersions) {
  Server leaving;
  EXPECT_EQ(leaving.channel->handshake(), Result::wantsRead);
  leaving.theirs.close();
  EXPECT_EQ(leaving.channel->handshake(), Result::failed);
  EXPECT_EQ(leaving.channel->errorNumber(), ECONNRESET);

  Server old;
  SSL_set_security_level(old.foreign.get(), 0);
  SSL_set_min_proto_version(old.foreign.get(), TLS1_VERSION);
  ASSERT_EQ(SSL_set_max_proto_version(old.foreign.get(), TLS1_1_VERSION), 1);
  EXPECT_EQ(old.shakeHands(), Result::failed);
  EXPECT_EQ(old.channel->errorNumber(), EPROTO);
}

}  // namespace
