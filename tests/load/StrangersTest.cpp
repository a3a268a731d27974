// Clients that have not authenticated ask for what costs most.

#include "base/Places.hpp"
#include "encodings/HexString.hpp"
#include "load/LoadedMachine.hpp"
#include "protocol/Frame.hpp"

namespace load {
namespace {

using namespace std::chrono_literals;

// Lists of a frame's length, of few long elements or of many short ones.
QuillMessage insertionOf(std::size_t elements, std::size_t bytesOfOne) {
  const std::string text =
      encodings::base64EncodeBytes(Bytes(bytesOfOne, 0x5A), /*separateLines=*/false);
  const std::vector<protocol::CardElement> list(
      elements, encodings::CertificateInfo{text, true, true, true, "", std::nullopt});
  return QuillMessage::initCommandMessageInsertSmartCardWithCertificates(
      protocol::makeCardList(list));
}

class Strangers : public LoadedMachine {
 public:
  // One attack by 31 clients; how long honest relays take meanwhile is printed.
  void attack(const char *name, const Behaviour &behaviour, bool isJournalBounded) {
    const Holder holder(/*signs=*/false);
    const double calm = percentile(sign(isFull() ? 2s : 50ms, /*isSigned=*/false), 0.5);
    expectJournalKeepsUp();  // what is counted below is written by strangers alone
    const Crowd crowd(base::kPublicPort, std::vector<Behaviour>(31, behaviour));
    EXPECT_TRUE(eventually([&] { return crowd.established >= 31; }));
    const auto start = std::chrono::steady_clock::now();
    const std::size_t written = journalBytes();
#ifdef __SANITIZE_ADDRESS__  // each takes many times as long
    constexpr int kMessages = 3;
#else
    constexpr int kMessages = 30;
#endif
    EXPECT_TRUE(
        eventually([&, before = crowd.said.load()] { return crowd.said > before + kMessages; }));
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    const auto bytes = static_cast<double>(journalBytes() - written);
    // twice the longest entry may be under way
    EXPECT_TRUE(!isJournalBounded || bytes < 65536 * (time.count() + 3)) << bytes;
    const std::vector<double> times = sign(isFull() ? 10s : 300ms, /*isSigned=*/false);
    std::printf("  %-30s calm p50 %5.2f ms; p50 %7.2f ms, p99 %7.2f ms; journal %6.0f KiB/s\n",
                name, calm / 1e3, percentile(times, 0.5) / 1e3, percentile(times, 0.99) / 1e3,
                bytes / 1024 / time.count());
  }

  void attackInEveryWay(bool isJournalBounded) {
    startDaemon();
    for (const auto &[name, message] :
         {std::pair{"connect", QuillMessage::initCommandMessageConnectWithCertificate(
                                   {system_tests::publicKeyHash(system_tests::rsaIdentity().key)})},
          {"insert, 1,000 certificates", insertionOf(1000, 1200)},
          {"insert, 18,000 elements", insertionOf(18000, 3)},
          {"get_certificates", QuillMessage::initCommandMessageGetCertificates()}}) {
      const auto frame = protocol::frameOf(message);
      attack(name,
             {.says = {Bytes(frame.begin(), frame.end())}, .isEndless = true, .readsAnswers = true},
             isJournalBounded);
    }
    const Bytes noJSON = base::bytesOf("[DATA]" + std::string(60000, '{') + "[ENDDATA]");
    attack("no JSON", {.says = {noJSON}, .isEndless = true}, isJournalBounded);
  }
};

TEST_F(Strangers, KeepNobodyWaiting) {
  attackInEveryWay(/*isJournalBounded=*/false);
  daemon->end(SIGTERM);
  // the hardened profile
  write("/etc/keyferry/kfyd.toml",
        "insertRequiresAuthentication = true\nlistRequiresAuthentication = true\n"
        "answersOnlyFromHolder = true\ncardEndsWithItsConnection = true\n"
        "newestRemoteFirst = true\nconnectsPerMinute = 6\npairingSeconds = 5\n"
        "refuseRepeatedMessageID = true\nstrangerLogBytesPerSecond = 65536\n");
  attackInEveryWay(/*isJournalBounded=*/true);
}

TEST_F(Strangers, LeaveNothingOfTheirListsWhenTheyFail) {
  startDaemon();
  const QuillMessage insertion = insertionOf(128, 1536);  // 256 KiB as text
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
  [[maybe_unused]] const std::size_t first = fail(times);
  [[maybe_unused]] const std::size_t second = fail(times);
#ifndef __SANITIZE_ADDRESS__  // which keeps what was given back for a while
  EXPECT_LT(second, first + static_cast<std::size_t>(times) * 128) << "half of each list was kept";
#endif
}

}  // namespace
}  // namespace load
