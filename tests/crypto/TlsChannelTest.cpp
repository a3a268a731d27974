#include "crypto/TlsChannel.hpp"

#include <gtest/gtest.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "crypto/MadeIdentities.hpp"

namespace {

using crypto::TlsChannel;
using Result = TlsChannel::Result;

const crypto::TlsContext &serverContext() {
  static const auto context = crypto::TlsContext::server(madeIdentity("EC", "server")).value();
  return context;
}

const crypto::TlsContext &clientContext() {
  static const auto context = crypto::TlsContext::client().value();
  return context;
}

// What one side has written the other can read at once.
struct SocketPair {
  SocketPair() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    ours = ends[0];
    theirs = ends[1];
    const timeval patience{.tv_sec = 10, .tv_usec = 0};
    EXPECT_EQ(::setsockopt(theirs, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience), 0);
  }
  SocketPair(const SocketPair &) = delete;
  SocketPair &operator=(const SocketPair &) = delete;
  ~SocketPair() {
    ::close(ours);
    closeTheirs();
  }
  // A reset for us if something is left there that was not read.
  void closeTheirs() {
    if (theirs >= 0) {
      ::close(theirs);
      theirs = -1;
    }
  }

  int ours = -1;
  int theirs = -1;
};

// A server channel of ours and a client that is the library alone, on a blocking socket.
struct Server : testing::Test {
  Server() {
    SSL_CTX_set_session_cache_mode(foreignContext.get(), SSL_SESS_CACHE_CLIENT);
    foreign.reset(SSL_new(foreignContext.get()), SSL_free);
    SSL_set_fd(foreign.get(), sockets.theirs);
    SSL_set_connect_state(foreign.get());
  }

  // Both sides take steps in turn; the foreign one on a socket that does not block meanwhile.
  void shakeHands() {
    BIO_socket_nbio(sockets.theirs, 1);
    bool isForeignDone = false;
    Result result = Result::wantsRead;
    for (int step = 0; step < 20 && (!isForeignDone || result != Result::done); ++step) {
      isForeignDone = SSL_do_handshake(foreign.get()) == 1;
      result = channel.handshake();
    }
    ASSERT_TRUE(isForeignDone);
    ASSERT_EQ(result, Result::done) << channel.errorText();
    BIO_socket_nbio(sockets.theirs, 0);
  }

  // Writes as programs do, without a thought for the length of records.
  void foreignWrites(const Bytes &frame) {
    ASSERT_EQ(SSL_write(foreign.get(), frame.data(), static_cast<int>(frame.size())),
              static_cast<int>(frame.size()));
  }

  std::vector<std::size_t> chunkLengths(Result expectedEnd) {
    std::vector<std::size_t> lengths;
    ByteView chunk;
    Result result = Result::done;
    while ((result = channel.readChunk(buffer, chunk)) == Result::done) {
      lengths.push_back(chunk.size());
      received.insert(received.end(), chunk.begin(), chunk.end());
    }
    EXPECT_EQ(result, expectedEnd) << channel.errorText();
    return lengths;
  }

  SocketPair sockets;
  std::shared_ptr<SSL_CTX> foreignContext{SSL_CTX_new(TLS_client_method()), SSL_CTX_free};
  std::shared_ptr<SSL> foreign;
  TlsChannel channel{serverContext(), TlsChannel::Role::server, sockets.ours};
  Bytes buffer = Bytes(crypto::kTlsRecordBytes + 8);
  Bytes received;
};

Bytes counted(std::size_t length) {
  Bytes bytes(length);
  for (std::size_t index = 0; index < length; ++index) {
    bytes[index] = static_cast<std::uint8_t>(index % 251);
  }
  return bytes;
}

struct ChunkCase {
  const char *name;
  std::vector<std::size_t> writes;  // each is one call of the sender
  std::vector<std::size_t> chunks;
  int version = TLS1_3_VERSION;
};

struct Chunks : Server, testing::WithParamInterface<ChunkCase> {};

TEST_P(Chunks, AreRecordsWithTheirShortTail) {
  SSL_set_max_proto_version(foreign.get(), GetParam().version);
  shakeHands();
  Bytes sent;
  for (const std::size_t length : GetParam().writes) {
    const Bytes frame = counted(length);
    foreignWrites(frame);
    sent.insert(sent.end(), frame.begin(), frame.end());
  }
  EXPECT_EQ(chunkLengths(Result::wantsRead), GetParam().chunks);
  EXPECT_TRUE(received == sent);
}

INSTANTIATE_TEST_SUITE_P(
    Frames, Chunks,
    testing::Values(ChunkCase{"OneByte", {1}, {1}}, ChunkCase{"FullRecord", {16384}, {16384}},
                    ChunkCase{"TailOfOne", {16385}, {16385}},
                    ChunkCase{"TailOfSix", {16390}, {16390}},
                    ChunkCase{"TailOfSixInTLS12", {16390}, {16390}, TLS1_2_VERSION},
                    ChunkCase{"TailOfEight", {16392}, {16392}},
                    ChunkCase{"TailOfNine", {16393}, {16384, 9}},
                    ChunkCase{"TwoFullOnesAndTail", {32771}, {16384, 16387}},
                    ChunkCase{"ShortOnesStayApart", {5, 5}, {5, 5}},
                    ChunkCase{"OnlyOneIsJoined", {16387, 3}, {16387, 3}},
                    ChunkCase{"NotQuiteFull", {16383, 3}, {16383, 3}},
                    ChunkCase{"LongNext", {16384, 16390}, {16384, 16390}}),
    [](const auto &row) { return std::string(row.param.name); });

struct UnitCase {
  std::size_t unit;
  std::vector<std::size_t> records;
};

struct Units : Server, testing::WithParamInterface<UnitCase> {};

TEST_P(Units, AreCutIntoRecordsThatNeverEndShort) {
  shakeHands();
  const Bytes unit = counted(GetParam().unit);
  ByteView rest = unit;
  while (!rest.empty()) {
    const std::size_t taken = channel.encryptRecord(rest);
    ASSERT_GT(taken, 0u);
    rest = rest.subspan(taken);
  }
  ASSERT_EQ(channel.flush(), Result::done);
  EXPECT_EQ(channel.unsentBytes(), 0u);

  std::vector<std::size_t> records;
  Bytes got;
  while (got.size() < unit.size()) {
    const int length = SSL_read(foreign.get(), buffer.data(), static_cast<int>(buffer.size()));
    ASSERT_GT(length, 0);
    records.push_back(static_cast<std::size_t>(length));
    got.insert(got.end(), buffer.begin(), buffer.begin() + length);
  }
  EXPECT_EQ(records, GetParam().records);
  EXPECT_TRUE(got == unit);
}

INSTANTIATE_TEST_SUITE_P(Lengths, Units,
                         testing::Values(UnitCase{3, {3}}, UnitCase{16384, {16384}},
                                         UnitCase{16385, {16376, 9}}, UnitCase{16390, {16381, 9}},
                                         UnitCase{16392, {16383, 9}}, UnitCase{16393, {16384, 9}},
                                         UnitCase{32770, {16384, 16377, 9}}),
                         [](const auto &row) { return "Of" + std::to_string(row.param.unit); });

TEST_F(Server, TakesAFINWithoutCloseNotifyAsTheEnd) {
  shakeHands();
  foreignWrites(counted(16390));
  sockets.closeTheirs();
  EXPECT_EQ(chunkLengths(Result::ended), std::vector<std::size_t>{16390});
  EXPECT_EQ(chunkLengths(Result::ended), std::vector<std::size_t>{});
  EXPECT_EQ(channel.errorNumber(), 0);
}

TEST_F(Server, SaysGoodbyeAndHearsIt) {
  shakeHands();
  channel.sayGoodbye();
  ASSERT_EQ(channel.flush(), Result::done);
  std::uint8_t byte = 0;
  const int got = SSL_read(foreign.get(), &byte, 1);
  EXPECT_EQ(SSL_get_error(foreign.get(), got), SSL_ERROR_ZERO_RETURN);
  SSL_shutdown(foreign.get());
  EXPECT_EQ(chunkLengths(Result::ended), std::vector<std::size_t>{});
}

TEST_F(Server, FailsForGoodAfterAReset) {
  shakeHands();
  foreignWrites(counted(16384));
  ASSERT_EQ(channel.encryptRecord(counted(10)), 10u);
  ASSERT_EQ(channel.flush(), Result::done);
  sockets.closeTheirs();
  EXPECT_EQ(chunkLengths(Result::failed), std::vector<std::size_t>{16384});
  EXPECT_EQ(chunkLengths(Result::failed), std::vector<std::size_t>{});
  EXPECT_EQ(channel.errorNumber(), ECONNRESET);
}

TEST_F(Server, ReadsWhatCameInBeforeItsSendFailed) {
  shakeHands();
  foreignWrites(counted(5));
  sockets.closeTheirs();
  ASSERT_GT(channel.encryptRecord(counted(10)), 0u);
  EXPECT_EQ(channel.flush(), Result::failed);
  EXPECT_EQ(channel.errorNumber(), EPIPE);
  EXPECT_EQ(channel.encryptRecord(counted(10)), 0u);
  ByteView chunk;
  EXPECT_EQ(channel.readChunk(buffer, chunk), Result::done);
  EXPECT_EQ(chunk.size(), 5u);
}

TEST_F(Server, FailsAtARecordThatWasChanged) {
  shakeHands();
  const Bytes record{23, 3,  3,  0,  20, 1,  2,  3,  4,  5,  6,  7, 8,
                     9,  10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20};
  ASSERT_EQ(::send(sockets.theirs, record.data(), record.size(), 0), 25);
  EXPECT_EQ(chunkLengths(Result::failed), std::vector<std::size_t>{});
  EXPECT_EQ(channel.errorNumber(), EPROTO);
}

TEST_F(Server, KeepsWhatTheSocketDoesNotTake) {
  shakeHands();
  Result result = Result::done;
  std::size_t units = 0;
  const Bytes unit = counted(16384);
  for (; units < 4096 && result == Result::done; ++units) {
    ASSERT_EQ(channel.encryptRecord(unit), unit.size());
    result = channel.flush();
  }
  ASSERT_EQ(result, Result::wantsWrite);
  EXPECT_GT(channel.unsentBytes(), 0u);
  for (std::size_t left = units * unit.size(); left > 0;) {
    static_cast<void>(channel.flush());
    const int length = SSL_read(foreign.get(), buffer.data(), static_cast<int>(buffer.size()));
    ASSERT_GT(length, 0);
    left -= static_cast<std::size_t>(length);
  }
  EXPECT_EQ(channel.unsentBytes(), 0u);
}

TEST_F(Server, AnswersAKeyUpdateAndReadsOn) {
  shakeHands();
  ASSERT_EQ(SSL_key_update(foreign.get(), SSL_KEY_UPDATE_REQUESTED), 1);
  foreignWrites(counted(7));
  EXPECT_EQ(chunkLengths(Result::wantsRead), std::vector<std::size_t>{7});
  ASSERT_EQ(channel.encryptRecord(counted(9)), 9u);
  ASSERT_EQ(channel.flush(), Result::done);
  EXPECT_EQ(SSL_read(foreign.get(), buffer.data(), 100), 9) << "read with the new keys";
}

TEST_F(Server, StopsAPeerThatSendsNothingButKeyUpdates) {
  shakeHands();
  BIO *flood = BIO_new(BIO_s_mem());
  SSL_set0_wbio(foreign.get(), flood);
  while (BIO_pending(flood) < 160 * 1024) {
    ASSERT_EQ(SSL_key_update(foreign.get(), SSL_KEY_UPDATE_NOT_REQUESTED), 1);
    ASSERT_EQ(SSL_do_handshake(foreign.get()), 1);
  }
  char *bytes = nullptr;
  const long length = BIO_get_mem_data(flood, &bytes);
  ASSERT_EQ(::send(sockets.theirs, bytes, static_cast<std::size_t>(length), MSG_DONTWAIT), length);
  EXPECT_EQ(chunkLengths(Result::failed), std::vector<std::size_t>{});
  EXPECT_EQ(channel.errorNumber(), EPROTO);
}

TEST_F(Server, IssuesNoTicket) {
  int tickets = 0;
  SSL_CTX_set_app_data(foreignContext.get(), &tickets);
  SSL_CTX_sess_set_new_cb(foreignContext.get(), [](SSL *ssl, SSL_SESSION * /*session*/) {
    ++*static_cast<int *>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)));
    return 0;
  });
  shakeHands();
  ASSERT_EQ(channel.encryptRecord(counted(1)), 1u);
  ASSERT_EQ(channel.flush(), Result::done);
  ASSERT_EQ(SSL_read(foreign.get(), buffer.data(), 1), 1);
  EXPECT_EQ(tickets, 0);
}

TEST_F(Server, FailsAtAHandshakeThatIsNone) {
  const std::string_view request = "GET / HTTP/1.1\r\nHost: here\r\n\r\n";
  ASSERT_GT(::send(sockets.theirs, request.data(), request.size(), 0), 0);
  EXPECT_EQ(channel.handshake(), Result::failed);
  EXPECT_EQ(channel.errorNumber(), EPROTO);
  EXPECT_NE(channel.errorText(), "");
  EXPECT_EQ(channel.handshake(), Result::failed);

  // the next connection of this thread hears nothing of it
  SocketPair others;
  TlsChannel next(serverContext(), TlsChannel::Role::server, others.ours);
  EXPECT_EQ(next.handshake(), Result::wantsRead);
}

TEST_F(Server, FailsWhenThePeerLeavesDuringTheHandshake) {
  EXPECT_EQ(channel.handshake(), Result::wantsRead);
  sockets.closeTheirs();
  EXPECT_EQ(channel.handshake(), Result::failed);
  EXPECT_EQ(channel.errorNumber(), ECONNRESET);
}

TEST_F(Server, RefusesOldVersions) {
  SSL_CTX_set_security_level(foreignContext.get(), 0);
  SSL_set_security_level(foreign.get(), 0);
  SSL_set_min_proto_version(foreign.get(), TLS1_VERSION);
  ASSERT_EQ(SSL_set_max_proto_version(foreign.get(), TLS1_1_VERSION), 1);
  BIO_socket_nbio(sockets.theirs, 1);
  ASSERT_NE(SSL_do_handshake(foreign.get()), 1);
  EXPECT_EQ(channel.handshake(), Result::failed);
  EXPECT_EQ(channel.errorNumber(), EPROTO);
}

TEST(TlsChannel, ShowsTheClientWhomItTalksTo) {
  const SocketPair sockets;
  TlsChannel server(serverContext(), TlsChannel::Role::server, sockets.theirs);
  TlsChannel client(clientContext(), TlsChannel::Role::client, sockets.ours);
  Result result = Result::wantsRead;
  for (int step = 0; step < 20 && result != Result::done; ++step) {
    static_cast<void>(client.handshake());
    result = server.handshake();
  }
  ASSERT_EQ(result, Result::done);
  ASSERT_EQ(client.handshake(), Result::done);
  EXPECT_EQ(client.peerCertificate()->commonName(), "server");
  EXPECT_FALSE(server.peerCertificate());
}

}  // namespace
