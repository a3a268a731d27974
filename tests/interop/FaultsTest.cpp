// A program that signs all the time on eight threads while the daemon, the remote client or the
// card goes and comes back.

#include <filesystem>

#include "interop/CardUse.hpp"
#include "system/CardMachine.hpp"

namespace system_tests {
namespace {

using namespace std::chrono_literals;

// Signs from its making to its end, and looks at each signature.
class Stream {
 public:
  using Counts = std::array<std::atomic<long>, 8>;  // one of each thread

  explicit Stream(CK_FUNCTION_LIST &functions) {
    for (std::size_t number = 0; number < calls.size(); ++number) {
      threads_.emplace_back([this, &functions, number](const std::stop_token &stop) {
        run(functions, number, stop);
      });
    }
  }

  // Waits until each thread has come further by one of these.
  [[nodiscard]] static bool goesOn(const Counts &counts) {
    const std::vector<long> before(counts.begin(), counts.end());
    return eventually([&] { return std::ranges::equal(before, counts, std::less()); });
  }

  Counts calls{};
  Counts signatures{};
  std::atomic<CK_RV> lastFailure = CKR_OK;

 private:
  void run(CK_FUNCTION_LIST &functions, std::size_t number, const std::stop_token &stop) {
    CardUse card(functions);
    EXPECT_TRUE(card.open());
    Bytes data(32);
    for (Bytes signature; !stop.stop_requested(); ++data[0]) {
      const CK_RV result = card.sign(data, signature);
      if (result == CKR_OK) {
        EXPECT_TRUE(rsaIdentity().key.publicKey().verifyRawPKCS1(signature, data));
        ++signatures[number];
      } else {
        lastFailure = result;
        std::this_thread::sleep_for(10ms);  // as a program does that tries again
      }
      ++calls[number];
    }
  }

  std::vector<std::jthread> threads_;
};

// A program on this machine that signs with a key of the other device.
class EachFault : public CardMachine {
 public:
  void TearDown() override {
    stream.reset();
    EXPECT_EQ(functions.C_Finalize(nullptr), CKR_OK);
  }

  // Each of these strikes, and returns when all is well again.
  void daemonIsKilled() {
    daemon->end(SIGKILL);
    startDaemon();
  }
  void remoteIsKilled() {
    remote->end(SIGKILL);
    remote = startConfirmingRemote();
  }
  void cardIsRemoved() {
    EXPECT_EQ(remote->end(SIGTERM), 0);
    EXPECT_TRUE(Stream::goesOn(stream->calls));
    EXPECT_EQ(stream->lastFailure, CKR_DEVICE_REMOVED);
    remote = startConfirmingRemote();
  }

  CK_FUNCTION_LIST &functions = *loadDriver();
  std::unique_ptr<Process> remote = startConfirmingRemote();
  std::unique_ptr<Stream> stream;
};

TEST_F(EachFault, EndsAndAllThreadsAreServedAgain) {
  ASSERT_EQ(functions.C_Initialize(nullptr), CKR_OK);
  stream = std::make_unique<Stream>(functions);
  ASSERT_TRUE(Stream::goesOn(stream->signatures));
  const auto descriptors = [] {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return std::distance(begin(open), end(open));
  };
  const auto descriptorsBefore = descriptors();
  for (const auto strike :
       {&EachFault::daemonIsKilled, &EachFault::remoteIsKilled, &EachFault::cardIsRemoved}) {
    (this->*strike)();
    EXPECT_TRUE(Stream::goesOn(stream->signatures)) << "a thread is left behind";
    EXPECT_TRUE(eventually([&] { return descriptors() == descriptorsBefore; }));
  }
}

}  // namespace
}  // namespace system_tests
