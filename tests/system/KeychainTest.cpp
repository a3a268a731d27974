// The keychain survives what happens to files: killed writers, two at once, full and read-only
// disks.

#include <sqlite3.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/time.h>

#include <future>

#include "fakes/ChildProcess.hpp"
#include "fakes/TemporaryFolder.hpp"
#include "linux/store/SqliteItemStore.hpp"
#include "system/Machine.hpp"

namespace system_tests {
namespace {

using platform_linux::SqliteItemStore;
using testing::HasSubstr;
using Items = std::map<std::string, std::string>;

constexpr std::size_t kLength = 16 * 1024;  // many pages: a kill may fall between two of them

// What a writer stores in this step.
std::string valueOf(int step) {
  return std::string(kLength, static_cast<char>('0' + step));
}

// The endless work of a writer: it adds an item and changes it again and again.
platform::ItemStatus doStep(SqliteItemStore &store, const std::string &account, int step) {
  const platform::PasswordName name{"service", account, std::nullopt};
  const SecretBytes value(base::bytesOf(valueOf(step)));
  return step == 0 ? store.addPassword(name, value) : store.updatePassword(name, value);
}

// Kills a writer some time after a number of its steps; how many it had done in all, -1 if it had
// failed by itself.
int stepsUntilKilled(const std::string &path, const std::string &account, int first,
                     std::chrono::microseconds time) {
  static auto &done = *static_cast<std::atomic<int> *>(::mmap(
      nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, /*fd=*/-1, 0));
  done = 0;
  const int status = fakes::statusOfChild([&] {
    SqliteItemStore store(path, nullptr);
    do {
      if (done == first) {
        const itimerval end{{}, {0, time.count()}};  // the signal strikes anywhere, as any kill
        ::setitimer(ITIMER_REAL, &end, nullptr);
      }
    } while (doStep(store, account, done) == 0 && ++done > 0);
    return 1;
  });
  return status == -SIGALRM ? done.load() : -1;
}

// What stands in the file, read by nothing of ours, with a complaint of the library as an item.
Items contentOf(const std::string &path) {
  Items items;
  const auto collect = [](void *place, int count, char **values, char **) {
    (*static_cast<Items *>(place))[values[0]] = count == 2 ? values[1] : "";
    return 0;
  };
  sqlite3 *database = nullptr;
  sqlite3_open(path.c_str(), &database);
  sqlite3_exec(database, "PRAGMA integrity_check", collect, &items, nullptr);
  EXPECT_EQ(items.erase("ok"), 1U) << sqlite3_errmsg(database);
  sqlite3_exec(database, "SELECT account, CAST(value AS TEXT) FROM passwords", collect, &items,
               nullptr);
  sqlite3_close(database);
  return items;
}

TEST(Keychain, SurvivesTwoHundredKilledWriters) {
  constexpr int kKills = 200;
  constexpr int kKillsOfAFile = 10;  // the making of the file is to be hit as well
  const fakes::TemporaryFolder folder;
  std::string path;
  Items stored;
  int steps = 0;
  for (int round = 0; round < kKills; ++round) {
    const std::string account = std::to_string(round);
    if (round % kKillsOfAFile == 0) {
      path = folder / account + "/keychain.db";
      stored.clear();
    }
    const int done = stepsUntilKilled(path, account, /*first=*/round % 5,
                                      std::chrono::microseconds(1 + round * 457 % 10000));
    ASSERT_GE(done, 0) << "the writer failed";
    SqliteItemStore store(path, nullptr);
    ASSERT_EQ(store.searchPassword({"service", "none", {}}, false).status, platform::itemNotFound);
    if (done > 0) {
      stored[account] = valueOf(done - 1);
    }
    Items withTheNext = stored;
    withTheNext[account] = valueOf(done);
    const Items found = std::filesystem::exists(path) ? contentOf(path) : Items();
    ASSERT_TRUE(found == stored || found == withTheNext) << "torn in round " << round;
    stored = found;
    steps += done;
  }
  EXPECT_GT(steps, kKills);
}

TEST(Keychain, TakesTwoWritersAtOnce) {
  constexpr int kItems = 50;
  const fakes::TemporaryFolder folder;
  const auto writeAll = [&] {
    return fakes::statusOfChild([&] {
      SqliteItemStore store(folder / "new/keychain.db", nullptr);
      int left = kItems;
      const std::string prefix = std::to_string(::getpid()) + ".";
      while (left > 0 && doStep(store, prefix + std::to_string(left), 0) == 0) {
        --left;
      }
      return left;
    });
  };
  auto other = std::async(std::launch::async, writeAll);
  EXPECT_EQ(writeAll(), 0);
  EXPECT_EQ(other.get(), 0);
  EXPECT_EQ(contentOf(folder / "new/keychain.db").size(), 2U * kItems);
}

// A machine whose keychain lies on a disk of its own, of 128 KiB.
class SmallDisk : public Machine {
 public:
  void SetUp() override {
    mountDisk("/var/lib/keyferry", "size=128k,mode=0700");
    ASSERT_EQ(set("first").status, 0);
  }

  // A change is refused, with what is wrong and what to type next, and what is there is there.
  void expectNoChange(const std::string &what, const std::string &next) {
    const Outcome refused = set("second");
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.output, AllOf(HasSubstr(what), HasSubstr(next)));
    EXPECT_EQ(succeed("kfyctl", {"password", "get", "ann", "--show"}), "first\n");
    EXPECT_EQ(contentOf(folder_ + "/keychain.db").size(), 1U);
  }
  Outcome set(const char *password) {
    write("/pw", password);
    return run("kfyctl", {"password", "set", "ann", "--password-file", at("/pw")});
  }

  std::string folder_ = at("/var/lib/keyferry");
};

TEST_F(SmallDisk, FullOrReadOnlyLosesNothing) {
  write("/var/lib/keyferry/filler", std::string(256 * 1024, 'x'));
  expectNoChange("full", "try: df -h");
  std::filesystem::remove(folder_ + "/filler");
  ASSERT_EQ(::mount("none", folder_.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
  expectNoChange("readonly", "remount,rw");
  ASSERT_EQ(::mount("none", folder_.c_str(), nullptr, MS_REMOUNT, nullptr), 0);
  EXPECT_EQ(set("second").status, 0);
  EXPECT_EQ(succeed("kfyctl", {"password", "get", "ann", "--show"}), "second\n");
}

}  // namespace
}  // namespace system_tests
