// What may be called from any thread, called from several at once: the thread sanitizer looks on.

#include <fcntl.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <thread>

#include "base/Descriptor.hpp"
#include "base/Files.hpp"
#include "base/Root.hpp"
#include "encodings/HexString.hpp"
#include "fakes/FakeMainQueue.hpp"
#include "fakes/MadeIdentity.hpp"
#include "identity/CVNKeychain.hpp"
#include "linux/clock/SystemClock.hpp"
#include "linux/defaults/TomlUserDefaults.hpp"
#include "linux/log/LogCollector.hpp"
#include "linux/store/SqliteItemStore.hpp"
#include "linux/tokens/P11TokenWatcher.hpp"
#include "logging/CVNLog.hpp"
#include "logging/CVNRealHomeFolder.hpp"
#include "logging/LogPlatform.hpp"
#include "settings/SettingFaults.hpp"

namespace {

void report(const std::string &line) {
  CVNLog("%s", line);
}

// Calls of one thread, those that fail and are logged among them; how many answers were right.
int useEverything(const CVNKeychain &keychain, ByteView hash, const std::string &account) {
  const std::optional<SecretText> noPIN;
  int right = 0;
  for (int round = 0; round < 25; ++round) {
    const bool answers[] = {
        keychain.findIdentityWithSHA1Hash(hash, /*tokenOnly=*/false, noPIN) != nullptr,
        !keychain.findIdentityWithSubjectName("none", /*tokenOnly=*/false, noPIN),
        keychain.smartcardCertificateArrayFromKeychain().empty(),
        keychain.iosCertificateArrayFromKeychain().size() == 1,
        keychain.findIdentityWithSubject("HOST") != nullptr,
        keychain.setPasswordForAccount(SecretText("word"), account, std::nullopt),
        keychain.passwordForAccount(account, std::nullopt).has_value(),
        !encodings::dataWithHexString("0g"),
        realHomeFolder(0) == "/nonexistent"};
    right += static_cast<int>(std::ranges::count(answers, true));
  }
  return right;
}

TEST(AnyThread, FindsWritesAndLogs) {
  std::filesystem::create_directories(base::rooted("/etc/keyferry"));
  const base::Descriptor nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  fakes::FakeMainQueue queue;  // stands still: the collector alone uses it, one at a time
  platform_linux::SystemClock clock;
  platform_linux::TomlUserDefaults defaults(report, "/etc/keyferry", logging::currentMoment,
                                            settings::complaintsAbout);
  platform_linux::LogCollector log(queue, "kfyd", {}, nowhere.get());
  logging::useLogPlatform(std::make_unique<logging::LogPlatform>(
      logging::LogPlatform{clock, defaults, log, log, "kfyd", 0, std::nullopt}));
  platform_linux::SqliteItemStore store(base::rooted("/var/lib/keyferry/keychain.db"), report);
  platform_linux::P11TokenWatcher tokens(report, base::rooted("/etc/pkcs11/modules"));
  const CVNKeychain keychain(store, tokens, defaults);
  const auto host = fakes::makeIdentity("host", "label");
  ASSERT_EQ(store.addIdentity(host, std::nullopt), 0);

  std::atomic<int> right = 0;
  std::vector<std::thread> threads;
  for (const char *account : {"one", "two", "three"}) {
    threads.emplace_back([&, account] {
      right += useEverything(keychain, host.reference->certificate.sha1(), account);
    });
  }
  for (int round = 0; round < 100; ++round) {
    logging::eventBegins();
    const std::string text = "debugLogging = " + std::to_string(round % 2) + "\nverbos = 1\n";
    EXPECT_TRUE(
        base::replaceFile(base::rooted("/etc/keyferry/kfyd.toml"), base::viewOf(text), 0644));
    logging::flushLogs();
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  EXPECT_EQ(right, 3 * 25 * 9);
  logging::useLogPlatform(nullptr);
}

}  // namespace
