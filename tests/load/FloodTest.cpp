// Honest clients go on while others do what they can to the daemon.

#include <fcntl.h>

#include <filesystem>

#include "base/Places.hpp"
#include "client/TcpConnect.hpp"
#include "load/LoadedMachine.hpp"
#include "protocol/Frame.hpp"

namespace load {
namespace {

using namespace std::chrono_literals;

class Flood : public LoadedMachine {
 public:
  // Two equal rounds: a crowd that makes noise, once before its handshakes and once after them,
  // among others that stand still, and a signer.
  void holdTwice() {
    // the beginning of a ClientHello of 512 bytes (RFC 8446 4.1.2 and 5.1), and then nothing
    const Behaviour stopsInItsHandshake{.says = {{22, 3, 1, 2, 0, 1, 0, 1, 0xFC, 3, 3, 0x5A}},
                                        .shakesHands = false};
    const Behaviour garbageForAHandshake{
        .says = {base::bytesOf("GET / HTTP/1.0\r\n\r\n"), Bytes(4096, 0xA5)},
        .isEndless = true,
        .shakesHands = false};
    const Behaviour garbageForMessages{
        .says = {Bytes(5000, 0xA5), base::bytesOf("[DATA][ENDDATA]"),
                 base::bytesOf(R"([DATA]{"type":"request","command":"insert"[ENDDATA])")},
        .isEndless = true};
    const auto question = protocol::frameOf(QuillMessage::initCommandMessageGetCertificates());
    const Behaviour neverReadsItsAnswers{.says = {Bytes(question.begin(), question.end())},
                                         .isEndless = true};
    const std::size_t share = isFull() ? 1 : 10;
    const Holder holder(/*signs=*/true);
    sign(100ms);  // by now it has opened what it opens once
    const std::size_t base = descriptors();
    std::array<std::size_t, 2> memory{};
    for (std::size_t &held : memory) {
      std::vector<double> times;
      for (const Behaviour &noise : {garbageForAHandshake, garbageForMessages}) {
        std::vector<Behaviour> members(50 / share, neverReadsItsAnswers);
        members.insert(members.end(), 400 / share, noise);
        members.insert(members.end(), 500 / share, stopsInItsHandshake);
        const Crowd crowd(base::kPublicPort, std::move(members));
        const std::vector<double> some = sign(isFull() ? 10s : 500ms);
        times.insert(times.end(), some.begin(), some.end());
      }
      std::printf("  %zu signatures, p50 %.2f ms, p99 %.2f ms (wanted: below 50)\n", times.size(),
                  percentile(times, 0.5) / 1e3, percentile(times, 0.99) / 1e3);
      expectDescriptors(base);
      held = residentKiB();
    }
    std::printf("  memory: %zu KiB, after an equal round %zu KiB\n", memory[0], memory[1]);
    // the short form's rounds end before all memory is in use
    EXPECT_TRUE(!isFull() || memory[1] <= memory[0] + memory[0] / 10);
    EXPECT_TRUE(Peer::local().ask(QuillMessage::initCommandMessageGetCertificates()).status);
  }
};

// Connections that are only made, on both ports, those of this machine by another user.
TEST_F(Flood, OfConnectionsKeepsNoNewcomerWaiting) {
  startDaemon();
  const Holder holder(/*signs=*/true);
  sign(100ms);
  const std::size_t base = descriptors();
  const std::size_t memory = residentKiB();
  const std::vector<Behaviour> members(isFull() ? 1000 : 100);
  std::vector<double> times;
  using Clock = std::chrono::steady_clock;
  for (int round = 0; round < (isFull() ? 10 : 1); ++round) {
    const Crowd far(base::kPublicPort, members);
    const Crowd near(base::kLoopbackPort, members, /*user=*/65534);
    for (const auto end = Clock::now() + (isFull() ? 1s : 200ms); Clock::now() < end;) {
      const auto start = Clock::now();
      EXPECT_TRUE(Peer::local().ask(system_tests::signRequest(Bytes(32))).status);
      times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    EXPECT_TRUE(eventually([&] { return near.established + near.ended >= members.size(); }));
  }
  expectDescriptors(base);
  std::printf("  %zu newcomers, p50 %.0f ms, p99 %.0f ms (wanted: at most 500)\n", times.size(),
              percentile(times, 0.5), percentile(times, 0.99));
#ifndef __SANITIZE_ADDRESS__  // which keeps what was given back for a while
  EXPECT_TRUE(eventually([&] { return residentKiB() < memory + 16 * 1024; })) << residentKiB();
#endif
  std::printf("  memory: %zu KiB, afterwards %zu KiB\n", memory, residentKiB());
}

// At first what is logged is read, and then by nobody.
TEST_F(Flood, StopsNoSigning) {
  startDaemon();
  holdTwice();
  daemon->end(SIGTERM);
  std::filesystem::remove(at("/run/systemd/journal/socket"));
  openJournal(/*isRead=*/false);
  // Standard error is a pipe that nobody reads.
  const std::string pipe = at("/var/log/pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const base::Descriptor end(::open(pipe.c_str(), O_RDWR | O_CLOEXEC));
  daemon = start("/bin/sh", {"-c", "exec " KEYFERRY_PROGRAMS "/kfyd >" + pipe + " 2>&1"});
  ASSERT_TRUE(eventually([] {
    return client::connectTcp(client::kLoopbackHost, base::kLoopbackPort, {}, nullptr).isOpen();
  }));
  holdTwice();
}

}  // namespace
}  // namespace load
