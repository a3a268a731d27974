// What one machine may hold here and make this program say.

#include <gtest/gtest.h>

#include <sys/mman.h>

#include <array>
#include <string>
#include <vector>

#include "base/Descriptor.hpp"
#include "remote/RefusalLines.hpp"
#include "remote/UseQuota.hpp"

namespace remote {
namespace {

TEST(UseQuota, CountsWhatWaitsInNumberAndBytesUntilNobodyHoldsIt) {
  UseQuota quota;
  std::vector<std::shared_ptr<int>> waiting;
  const auto ask = [&](std::size_t bytes) {
    waiting.push_back(std::make_shared<int>());
    if (!quota.admits(waiting.back(), bytes)) {
      waiting.pop_back();
      return false;
    }
    return true;
  };
  while (waiting.size() <= UseQuota::kMostUses && ask(32)) {
  }
  EXPECT_EQ(waiting.size(), UseQuota::kMostUses);
  waiting.pop_back();
  EXPECT_TRUE(ask(32));
  waiting.clear();
  EXPECT_TRUE(ask(2 * UseQuota::kMostBytes)) << "one alone may be longer";
  EXPECT_FALSE(ask(0));
  waiting.clear();
  EXPECT_TRUE(ask(UseQuota::kMostBytes - 1) && ask(1));
  EXPECT_FALSE(ask(1));
}

TEST(RefusalLines, SayAFewASecondAndCountTheRest) {
  const base::Descriptor file(::memfd_create("said", MFD_CLOEXEC));
  Console console(file.get(), file.get());
  RefusalLines lines(console, "host");
  const auto begin = std::chrono::steady_clock::now();
  for (int number = 0; number < 1000; ++number) {
    lines.say("first " + std::to_string(number), begin + std::chrono::microseconds(number));
  }
  EXPECT_EQ(lines.dueAt(), begin + std::chrono::seconds(1));
  lines.turn(begin + std::chrono::milliseconds(999));
  lines.turn(lines.dueAt());
  lines.turn(begin + std::chrono::seconds(2));
  lines.say("later", begin + std::chrono::seconds(3));
  (void)console.flush({});
  std::array<char, 1024> text{};
  const ssize_t length = ::pread(file.get(), text.data(), text.size(), 0);
  const std::string warning = "kfy-remote: warning: ";
  EXPECT_EQ(std::string(text.data(), static_cast<std::size_t>(length)),
            warning + "first 0\n" + warning + "first 1\n" + warning + "first 2\n" + warning +
                "first 3\n" + warning + "first 4\n" + warning +
                "refused 995 more requests of host within a second\n" + warning + "later\n");
}

}  // namespace
}  // namespace remote
