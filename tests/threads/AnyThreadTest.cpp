// What may be called from any thread, called from several at once: the thread sanitizer looks on.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "base/Descriptor.hpp"
#include "base/Files.hpp"
#include "base/Root.hpp"
#include "fakes/MadeKeys.hpp"
#include "identity/CVNKeychain.hpp"
#include "identity/NewIdentity.hpp"
#include "linux/clock/SystemClock.hpp"
#include "linux/defaults/TomlUserDefaults.hpp"
#include "linux/log/LogCollector.hpp"
#include "linux/store/SqliteItemStore.hpp"
#include "linux/tokens/P11TokenWatcher.hpp"
#include "support/CVNLog.hpp"
#include "support/CVNRealHomeFolder.hpp"
#include "support/HexString.hpp"
#include "support/LogPlatform.hpp"
#include "support/SettingFaults.hpp"

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 25;

// A main queue without a clock: the sanitizer does not know the fences of the real one.
class Inbox final : public platform::MainQueue {
 public:
  void run() override {
    while (!isStopped_) {
      support::eventBegins();
      for (const auto &work : take()) {
        work();
      }
      std::this_thread::yield();
    }
  }
  void stop() override { isStopped_ = true; }
  void post(std::function<void()> work) override {
    const std::lock_guard lock(mutex_);
    waiting_.push_back(std::move(work));
  }
  void postAfter(std::chrono::milliseconds /*delay*/, std::function<void()> work) override {
    post(std::move(work));
  }
  void setBeforeEvent(std::function<void()> /*beforeEvent*/) override {}

 private:
  std::vector<std::function<void()>> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(waiting_, {});
  }

  std::atomic<bool> isStopped_ = false;
  std::mutex mutex_;
  std::vector<std::function<void()>> waiting_;
};

void report(const std::string &line) {
  CVNLog("%s", line);
}

// Counts the answers that were right.
int useEverything(const CVNKeychain &keychain, ByteView hash, const std::string &account) {
  const std::optional<SecretText> noPIN;
  int right = 0;
  for (int round = 0; round < kRounds; ++round) {
    right += keychain.findIdentityWithSHA1Hash(hash, /*tokenOnly=*/false, noPIN) ? 1 : 0;
    right += keychain.findIdentityWithSubjectName("none", /*tokenOnly=*/false, noPIN) ? 0 : 1;
    right += keychain.smartcardCertificateArrayFromKeychain().empty() ? 1 : 0;
    right += keychain.iosCertificateArrayFromKeychain().size() == 1 ? 1 : 0;
    right += keychain.findIdentityWithSubject("HÖST") ? 1 : 0;
    right += keychain.setPasswordForAccount(SecretText("word"), account, std::nullopt) ? 1 : 0;
    right += keychain.passwordForAccount(account, std::nullopt) ? 1 : 0;
    right += support::dataWithHexString("0g") ? 0 : 1;
    right += realHomeFolder(0) == "/nonexistent" ? 1 : 0;
  }
  return right;
}

TEST(AnyThread, FindsWritesAndLogs) {
  std::filesystem::create_directories(base::rooted("/etc/keyferry"));
  const base::Descriptor nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  Inbox queue;
  platform_linux::SystemClock clock;
  platform_linux::TomlUserDefaults defaults(report, "/etc/keyferry", support::currentEvent,
                                            support::complaintsAbout);
  platform_linux::LogCollector log(queue, "kfyd", {}, nowhere.get());
  support::useLogPlatform(std::make_unique<support::LogPlatform>(
      support::LogPlatform{clock, defaults, log, log, "kfyd", 0, std::nullopt}));
  platform_linux::SqliteItemStore store(base::rooted("/var/lib/keyferry/keychain.db"), report);
  platform_linux::P11TokenWatcher tokens(report, base::rooted("/etc/pkcs11/modules"));
  const CVNKeychain keychain(store, tokens, defaults);
  const auto key = *crypto::PrivateKey::generateP256();
  const crypto::Identity host{
      *crypto::Certificate::selfSigned(key, "höst", /*days=*/1, /*serverName=*/false), key};
  ASSERT_EQ(store.addIdentity(identity::describeNew(host, "host"), std::nullopt), 0);

  std::vector<int> right(kThreads);
  std::thread loop([&] { queue.run(); });
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back([&, number] {
      right[static_cast<std::size_t>(number)] =
          useEverything(keychain, host.certificate.sha1(), std::to_string(number));
    });
  }
  for (int round = 0; round < 4 * kRounds; ++round) {
    const std::string text = "debugLogging = " + std::to_string(round % 2) + "\nverbos = 1\n";
    EXPECT_TRUE(
        base::replaceFile(base::rooted("/etc/keyferry/kfyd.toml"), base::viewOf(text), 0644));
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  queue.stop();
  loop.join();
  EXPECT_THAT(right, testing::Each(9 * kRounds));
  support::useLogPlatform(nullptr);
}

}  // namespace
