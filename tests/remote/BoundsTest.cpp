// What one machine may hold here and make this program say.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>

#include "base/Descriptor.hpp"
#include "remote/RefusalReporter.hpp"
#include "remote/UseQuota.hpp"

namespace remote {
namespace {

using Outcome = OutputWriter::Outcome;

TEST(UseQuota, CountsWhatWaitsInNumberAndBytesUntilNobodyHoldsIt) {
  UseQuota quota;
  std::vector<std::shared_ptr<int>> waiting;
  const auto admits = [&](std::size_t bytes) {
    waiting.push_back(std::make_shared<int>());
    return quota.tryAcquire(waiting.back(), bytes);
  };
  while (waiting.size() < UseQuota::kMostUses) {
    EXPECT_TRUE(admits(32));
  }
  EXPECT_FALSE(admits(32));
  waiting.erase(waiting.begin());
  EXPECT_TRUE(admits(32));
  waiting.clear();
  EXPECT_TRUE(admits(2 * UseQuota::kMostBytes)) << "one alone may be longer";
  EXPECT_FALSE(admits(0));
}

TEST(RefusalReporter, SaysAFewASecondAndCountsTheRest) {
  const base::Descriptor file(::memfd_create("said", MFD_CLOEXEC));
  Console console(file.get(), file.get());
  RefusalReporter lines(console, "host");
  const auto begin = std::chrono::steady_clock::now();
  for (int number = 0; number < 1000; ++number) {
    lines.say(std::to_string(number), begin + std::chrono::microseconds(number));
  }
  lines.turn(begin + std::chrono::milliseconds(999));
  lines.turn(lines.dueAt());
  lines.turn(begin + std::chrono::seconds(2));
  lines.say(std::string(1000000, 'x'), begin + std::chrono::seconds(3));
  EXPECT_EQ(console.flush({}), Outcome::written);
  std::string said(10000, ' ');
  said.resize(static_cast<std::size_t>(::pread(file.get(), said.data(), said.size(), 0)));
  const std::string next = "\nkfy-remote: warning: ";
  EXPECT_EQ("\n" + said, next + "0" + next + "1" + next + "2" + next + "3" + next + "4" + next +
                             "refused 995 more requests of host within a second" + next +
                             std::string(2000, 'x') + "\n");
}

TEST(Console, HoldsSoMuchForAReaderWhoStandsStillAndCountsTheRest) {
  constexpr std::size_t kLines = 10000;
  constexpr std::size_t kLine = 128;
  std::array<int, 4> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC) | ::pipe2(&ends[2], O_CLOEXEC), 0);
  const std::array<base::Descriptor, 4> pipes{base::Descriptor(ends[0]), base::Descriptor(ends[1]),
                                              base::Descriptor(ends[2]), base::Descriptor(ends[3])};
  std::string full(static_cast<std::size_t>(::fcntl(ends[1], F_GETPIPE_SZ)), ' ');
  ASSERT_EQ(::write(ends[1], full.data(), full.size()), std::ssize(full));
  std::array<char, kLine> piece{};
  {
    Console console(ends[1], ends[3]);
    for (std::size_t number = 0; number < kLines; ++number) {
      console.say(std::string(kLine - 1, '.'));
    }
    console.warn("");
    EXPECT_EQ(::read(ends[2], piece.data(), piece.size()), 22) << "the other reader is served";
    EXPECT_EQ(console.flush({client::Deadline::max(), ends[0]}), Outcome::lost);
  }  // a thread is left behind
  ASSERT_EQ(::read(ends[0], full.data(), full.size()), std::ssize(full));
  std::string read;
  while (!read.ends_with("nobody read them\n")) {
    const ssize_t count = ::read(ends[0], piece.data(), piece.size());
    ASSERT_GT(count, 0);
    read.append(piece.data(), static_cast<std::size_t>(count));
  }
  constexpr std::size_t kShown = OutputWriter::kMostBytes / kLine;
  EXPECT_EQ(read.substr(kShown * kLine), "kfy-remote: " + std::to_string(kLines - kShown) +
                                             " lines dropped, since nobody read them\n");
}

}  // namespace
}  // namespace remote
