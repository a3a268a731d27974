// A program that signs all the time on eight threads while the daemon, the remote client, the card
// or the link goes and comes back, or the holder's answers are worth nothing.

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "interop/CardUse.hpp"
#include "system/CardMachine.hpp"

namespace system_tests {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

long millisecondsSince(Clock::time_point begin) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
}

// Signs from its making to its end, and looks at each signature.
class Stream {
 public:
  struct Tally {
    long calls = 0;
    long signatures = 0;
    long longestCall = 0;  // milliseconds
  };

  explicit Stream(CK_FUNCTION_LIST &functions) {
    for (Tally &tally : tallies_) {
      threads_.emplace_back([&](const std::stop_token &stop) { run(functions, tally, stop); });
    }
  }

  // Waits until each thread has come further by one of these.
  [[nodiscard]] bool goesOn(long Tally::*counter) {
    const auto before = tallies();
    return eventually(
        [&] { return std::ranges::equal(before, tallies(), std::less(), counter, counter); });
  }

  // Of all threads.
  [[nodiscard]] Tally sum() {
    Tally sum;
    for (const Tally &tally : tallies()) {
      sum.calls += tally.calls;
      sum.signatures += tally.signatures;
      sum.longestCall = std::max(sum.longestCall, tally.longestCall);
    }
    return sum;
  }

  std::atomic<CK_RV> lastFailure = CKR_OK;

 private:
  using Tallies = std::array<Tally, 8>;

  Tallies tallies() {
    const std::scoped_lock lock(mutex_);
    return tallies_;
  }

  void run(CK_FUNCTION_LIST &functions, Tally &tally, const std::stop_token &stop) {
    CardUse card(functions);
    EXPECT_TRUE(card.open());
    Bytes data(32);
    for (Bytes signature; !stop.stop_requested(); ++data[0]) {
      const auto begin = Clock::now();
      const CK_RV result = card.sign(data, signature);
      if (result == CKR_OK) {
        EXPECT_TRUE(rsaIdentity().key.publicKey().verifyRawPKCS1(signature, data));
      } else {
        lastFailure = result;
        std::this_thread::sleep_for(10ms);  // as a program does that tries again
      }
      const std::scoped_lock lock(mutex_);
      ++tally.calls;
      tally.signatures += result == CKR_OK ? 1 : 0;
      tally.longestCall = std::max(tally.longestCall, millisecondsSince(begin));
    }
  }

  std::mutex mutex_;
  Tallies tallies_;
  std::vector<std::jthread> threads_;
};

using Tally = Stream::Tally;

// What this process holds.
struct Footprint {
  long descriptors = 0;
  long residentKiB = 0;

  static Footprint now() {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return {std::distance(begin(open), end(open)), pages * 4};
  }
};

// A program that has signed for a while already, on this machine.
class DriverFaults : public CardMachine {
 public:
  ~DriverFaults() override {
    stream.reset();
    EXPECT_EQ(functions.C_Finalize(nullptr), CKR_OK);
  }

  void startSigning() {
    ASSERT_EQ(functions.C_Initialize(nullptr), CKR_OK);
    stream = std::make_unique<Stream>(functions);
    ASSERT_TRUE(stream->goesOn(&Tally::signatures));
    base = Footprint::now();
  }

  // Called when all is well again.
  void expectRecovery(const char *from) {
    const auto begin = Clock::now();
    EXPECT_TRUE(stream->goesOn(&Tally::signatures)) << "a thread is left behind";
    const long served = millisecondsSince(begin);
    EXPECT_TRUE(eventually([&] { return Footprint::now().descriptors == base.descriptors; }));
    const Footprint now = Footprint::now();
    EXPECT_LT(now.residentKiB, base.residentKiB + 8 * 1024);
    const Tally sum = stream->sum();
    std::printf(
        "%s: all served after %ld ms; longest call %ld ms, %ld of %ld calls signed, last failure "
        "0x%lx, resident %ld then %ld KiB\n",
        from, served, sum.longestCall, sum.signatures, sum.calls, stream->lastFailure.load(),
        base.residentKiB, now.residentKiB);
  }

  CK_FUNCTION_LIST &functions = *loadDriver();
  std::unique_ptr<Stream> stream;
  Footprint base;
};

class DeviceFaults : public DriverFaults {
 public:
  // A second network, in which the other device is, on a cable to this one.
  DeviceFaults() {
    succeed("/bin/sh",
            {"-ec",
             "PATH=$PATH:/usr/sbin; ip netns add other\n"
             "ip link add near type veth peer name far netns other\n"
             "ip addr add 10.4.1.1/24 dev near; ip -n other addr add 10.4.1.2/24 dev far\n"
             "ip link set near up; ip -n other link set far up"});
    remote = startRemoteElsewhere();
  }
  ~DeviceFaults() override {
    stream.reset();
    remote.reset();
    succeed("/usr/sbin/ip", {"netns", "del", "other"});
  }

  static std::chrono::seconds stall() { return std::getenv("KEYFERRY_LONG") != nullptr ? 20s : 4s; }

  std::unique_ptr<Process> startRemoteElsewhere() {
    auto started =
        start("/usr/bin/nsenter",
              {"--net=/run/netns/other", KEYFERRY_PROGRAMS "/kfy-remote", "connect", "10.4.1.1",
               "--home", at("/other-device/home"), "--key", at("/other-device/rsa.pem"),
               "--fingerprint", fingerprint_, "--no-confirm"});
    EXPECT_TRUE(started->hasSaid(kInserted)) << started->output();
    return started;
  }

  // Each of these strikes, and returns when all is well again.
  void daemonIsKilled() {
    daemon->end(SIGKILL);
    startDaemon();
    EXPECT_TRUE(eventually([&] {
      const std::string said = remote->output();
      return said.find(kInserted) != said.rfind(kInserted);
    })) << remote->output();
  }
  void remoteIsKilled() {
    remote->end(SIGKILL);
    remote = startRemoteElsewhere();
  }
  void cardIsRemoved() {
    EXPECT_EQ(remote->end(SIGTERM), 0);
    EXPECT_TRUE(stream->goesOn(&Tally::calls));
    EXPECT_EQ(stream->lastFailure, CKR_DEVICE_REMOVED);
    remote = startRemoteElsewhere();
  }
  void linkIsStalled() {
    succeed("/usr/sbin/ip", {"link", "set", "near", "down"});
    std::this_thread::sleep_for(stall() / 2);
    const long before = stream->sum().signatures;
    std::this_thread::sleep_for(stall() / 2);
    EXPECT_EQ(stream->sum().signatures, before) << "the link is down";
    succeed("/usr/sbin/ip", {"link", "set", "near", "up"});
  }

  static constexpr const char *kInserted = "card inserted: ";
  std::unique_ptr<Process> remote;
};

struct Fault {
  const char *name;
  void (DeviceFaults::*strike)();
};

class EachFault : public DeviceFaults, public testing::WithParamInterface<Fault> {};

TEST_P(EachFault, EndsAndAllThreadsAreServedAgain) {
  startSigning();
  (this->*GetParam().strike)();
  expectRecovery(GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(Of, EachFault,
                         testing::Values(Fault{"DaemonIsKilled", &DeviceFaults::daemonIsKilled},
                                         Fault{"RemoteIsKilled", &DeviceFaults::remoteIsKilled},
                                         Fault{"CardIsRemoved", &DeviceFaults::cardIsRemoved},
                                         Fault{"LinkIsStalled", &DeviceFaults::linkIsStalled}),
                         [](const auto &row) { return std::string(row.param.name); });

// How the key's holder answers.
struct Answer {
  const char *name;
  CK_RV result;            // what programs hear
  std::size_t length = 0;  // of a meaningless signature; 0: the right one
  bool status = true;
  bool isUnderItsID = true;
  int times = 1;
};

constexpr std::array kAnswers{
    Answer{.name = "garbage", .result = CKR_DEVICE_ERROR, .length = 256},
    Answer{.name = "a wrong length", .result = CKR_DEVICE_ERROR, .length = 100},
    Answer{.name = "a refusal", .result = CKR_FUNCTION_REJECTED, .status = false},
    Answer{.name = "another ID", .result = CKR_FUNCTION_FAILED, .isUnderItsID = false},
    Answer{.name = "silence", .result = CKR_FUNCTION_FAILED, .times = 0},
    Answer{.name = "the same twice", .result = CKR_OK, .times = 2},
};

void give(Peer &holder, const Answer &answer, const QuillMessage &request) {
  const Bytes right = *rsaIdentity().key.signRawPKCS1(*request.dataToSign);
  for (int time = 0; time < answer.times; ++time) {
    holder.send(QuillMessage::initWithReplyMessageForSignMessage(
        answer.status, answer.isUnderItsID ? request.messageID : UUID::random(),
        answer.length == 0 ? right : Bytes(answer.length, 0x5A)));
  }
}

TEST_F(DriverFaults, AnswersThatAreWorthNothingReachNoProgram) {
  write("/etc/keyferry/pkcs11.toml", "timeLimitSeconds = 2");
  pair(otherRSAIdentity().key);
  Peer holder = Peer::remote();
  ASSERT_TRUE(holder.authenticate(otherRSAIdentity()));
  ASSERT_TRUE(holder.insert(rsaIdentity()));
  std::atomic<const Answer *> answer = &kAnswers.back();
  const std::jthread holding([&](const std::stop_token &stop) {
    while (!stop.stop_requested()) {
      const auto asked = holder.connection->receive(client::Patience::lasting(20ms));
      if (asked && asked->dataToSign) {
        give(holder, *answer, *asked);
      }
    }
  });
  startSigning();
  for (const Answer &row : kAnswers) {
    answer = &row;
    EXPECT_TRUE(stream->goesOn(&Tally::calls));  // those that had the answer before
    const long before = stream->sum().signatures;
    EXPECT_TRUE(stream->goesOn(&Tally::calls));
    EXPECT_EQ(stream->sum().signatures == before, row.result != CKR_OK) << row.name;
    EXPECT_TRUE(row.result == CKR_OK || stream->lastFailure == row.result) << row.name;
    answer = &kAnswers.back();
    expectRecovery(row.name);
  }
  EXPECT_LT(stream->sum().longestCall, 8000) << "the time limit is two seconds";
  stream.reset();  // while the holder answers
}

}  // namespace
}  // namespace system_tests
