// One client asks for more than its share.

#include <poll.h>

#include <filesystem>
#include <future>

#include "load/LoadedMachine.hpp"
#include "support/HexString.hpp"

namespace load {
namespace {

using namespace std::chrono_literals;
using system_tests::rsaIdentity;

using Pressure = LoadedMachine;

TEST_F(Pressure, ListsOfThoseWhoFailToAuthenticateAreNotKept) {
  startDaemon();
  const std::vector<protocol::CardElement> elements(128, Bytes(1536, 0x5A));  // 256 KiB as text
  const auto insertion = QuillMessage::initCommandMessageInsertSmartCardWithCertificates(
      protocol::makeCardList(elements));
  const auto fail = [&](int times) {
    for (int count = 0; count < times; ++count) {
      Peer remote = Peer::remote();
      EXPECT_TRUE(remote.ask(insertion).status);
      EXPECT_FALSE(remote
                       .ask(QuillMessage::initCommandMessageAuthenticateWithSignature(
                           Bytes(256, 1), system_tests::ecIdentity().certificate.der()))
                       .status);
      EXPECT_TRUE(remote.isEnded());
    }
    return residentKiB();
  };
  const int times = isFull() ? 150 : 15;
  const std::size_t first = fail(times);
  const std::size_t second = fail(times);
  compareMemory(first, second);
#ifndef __SANITIZE_ADDRESS__  // which keeps what was given back for a while
  EXPECT_LT(second, first + static_cast<std::size_t>(times) * 128) << "half of each list was kept";
#endif
}

TEST_F(Pressure, HandshakesBegunWhileTheQueueIsBlockedSucceed) {
  if (!isFull()) {
    succeed("kfyctl", {"defaults", "write", "pairingSeconds", "4"});
    succeed("kfyctl", {"defaults", "write", "handshakeSeconds", "1"});
  }
  std::filesystem::remove(at("/usr/sbin/sc_auth"));
  write("/usr/sbin/sc_auth", "#!/bin/sh\necho ran >ran\n", 0755);
  startDaemon();
  Peer remote = Peer::remote();
  Peer local = Peer::local();
  remote.send(QuillMessage::initCommandMessageConnectWithCertificate(
      {system_tests::publicKeyHash(rsaIdentity().key)}));
  // the tool has run once: from now on the queue is blocked
  ASSERT_TRUE(eventually([&] { return read("/var/ran") == "ran\n"; }));
  const Crowd crowd(client::kPublicPort, std::vector<Behaviour>(20));
  ASSERT_TRUE(remote.connection->receive(client::Patience::lasting(60s)))
      << "the look-up has an end";
  EXPECT_TRUE(eventually([&] { return crowd.established() == 20; })) << crowd.established();
  EXPECT_EQ(crowd.ended(), 0U);
}

TEST_F(Pressure, RemoteThatReadsSlowlyIsNotDroppedForWhatAnAskerSends) {
  startDaemon();
  Peer remote = Peer::holder();
  const int count = isFull() ? 100 : 20;
  int served = 0;
  int refused = 0;
  std::atomic<bool> isSent = false;
  const auto asking = std::async(std::launch::async, [&] {
    Peer asker = Peer::local();
    std::vector<UUID> sent;
    for (int number = 0; number < count; ++number) {
      const QuillMessage request =
          system_tests::signRequest(Bytes(1400 * 1000, 0x5A));  // nearly 2 MiB as a frame
      sent.push_back(*request.messageID);
      asker.send(request);
      while (asker.connection->wantsWrite() && asker.connection->pump()) {
        pollfd socket{asker.connection->descriptor(), POLLOUT, 0};
        ::poll(&socket, 1, 1000);
      }
    }
    isSent = true;
    for (const UUID &messageID : sent) {
      const auto answer = asker.connection->await(messageID, client::Patience::lasting(60s));
      ASSERT_TRUE(answer);
      ++(answer->status ? served : refused);
      EXPECT_EQ(answer->signedData, answer->status ? Bytes{1} : Bytes{}) << "a readable refusal";
    }
    EXPECT_FALSE(asker.connection->take()) << "each has exactly one answer";
  });
  EXPECT_TRUE(eventually([&] { return isSent.load(); })) << "who does not read holds up nobody";
  while (asking.wait_for(0s) != std::future_status::ready && !remote.connection->end()) {
    if (const auto request = remote.connection->receive(client::Patience::lasting(100ms))) {
      remote.answer(*request, Bytes{1});
    }
  }
  asking.wait();
  std::printf("  %d large requests: %d served, %d refused\n", count, served, refused);
  EXPECT_FALSE(remote.connection->end()) << "the remote stays connected";
  EXPECT_EQ(served + refused, count);
  EXPECT_GT(served, 0);
  EXPECT_GT(refused, 0);
}

}  // namespace
}  // namespace load
