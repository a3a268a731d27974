#include "linux/process/SpawnToolRunner.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <csignal>

#include "base/Descriptor.hpp"
#include "fakes/TemporaryFolder.hpp"

namespace {

using platform_linux::SpawnToolRunner;
using namespace std::chrono_literals;

constexpr platform::RunLimits kGenerous{60s, 1024 * 1024};
constexpr platform::RunLimits kHasty{200ms, 1024 * 1024};

std::optional<std::string> run(const std::string &script, platform::RunLimits limits,
                               const std::string &folder = "/") {
  const std::vector<std::string> arguments{"-c", script};
  const auto output = SpawnToolRunner().outputOf("/bin/sh", arguments, folder, limits);
  return output ? std::optional(std::string(base::textOf(*output))) : std::nullopt;
}

TEST(SpawnToolRunner, GivesAllOutputOrNothing) {
  const std::tuple<const char *, platform::RunLimits, std::optional<std::string>> kCases[] = {
      {"printf 'a\\0\\377\\nb'", kGenerous, std::string("a\0\377\nb", 5)},
      {"echo x; exit 3", kGenerous, "x\n"},
      {"echo x; exec >&-; sleep 0.05", kGenerous, "x\n"},
      {"echo x; exec >&-; sleep 60", kHasty, {}},
      {"trap '' TERM INT HUP; sleep 60", kHasty, {}},
      {"yes", {60s, 100'000'000}, {}},
      {"printf 123456", {60s, 5}, {}},
  };
  for (const auto &[script, limits, output] : kCases) {
    EXPECT_EQ(run(script, limits), output) << script;
  }
  const fakes::TemporaryFolder folder;
  EXPECT_EQ(run("pwd -P", kGenerous, folder.path()), folder.path() + "\n");
  EXPECT_FALSE(run("echo x", kGenerous, folder / "none"));
  EXPECT_FALSE(SpawnToolRunner().outputOf("/nonexistent/tool", {}, "/", kGenerous));
}

// The first process has ended by itself; the one it left behind holds our pipe.
TEST(SpawnToolRunner, PastTheLimitWhatTheProgramLeftBehindEndsToo) {
  const fakes::TemporaryFolder folder;
  ASSERT_EQ(::mkfifo((folder / "alive").c_str(), 0600), 0);
  const base::Descriptor alive(::open((folder / "alive").c_str(), O_RDONLY | O_NONBLOCK));
  EXPECT_FALSE(run("exec 9>alive; echo x >&9; sleep 60 & exit 0", kHasty, folder.path()));
  char mark = 0;
  ASSERT_EQ(::read(alive.get(), &mark, 1), 1);
  ASSERT_EQ(::read(alive.get(), &mark, 1), 1);
  ASSERT_TRUE(base::waitToRead(alive.get(), std::chrono::steady_clock::now() + 30s));
  EXPECT_EQ(::read(alive.get(), &mark, 1), 0) << "somebody still holds the other end";
}

TEST(SpawnToolRunner, OnlyTheThreeStandardDescriptorsAreHandedOn) {
  const base::Descriptor leak(::fcntl(STDERR_FILENO, F_DUPFD, 77));
  ASSERT_GE(leak.get(), 77);
  EXPECT_EQ(
      run("for n in /proc/$$/fd/*; do [ -e $n ] && [ ${n##*/} -gt 9 ] && echo $n; done", kGenerous),
      "");
}

TEST(SpawnToolRunner, SignalsAreUnblockedAndAtTheirDefaultsInTheProgram) {
  sigset_t before;
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  ::sigprocmask(SIG_BLOCK, &blocked, &before);
  std::signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(run("kill -TERM $$; echo alive", kGenerous), "");
  EXPECT_EQ(run("kill -PIPE $$; echo alive", kGenerous), "");
  std::signal(SIGPIPE, SIG_DFL);
  ::sigprocmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace
