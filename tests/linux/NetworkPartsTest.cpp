// What the network is made of, each by itself.

#include <sys/resource.h>

#include "linux/NetworkTest.hpp"
#include "linux/network/BufferQuota.hpp"
#include "linux/network/DescriptorReserve.hpp"
#include "linux/network/Endpoints.hpp"
#include "linux/network/GarbageLimiter.hpp"

namespace platform_linux {
namespace {

TEST(AsioMainQueue, CallsItsHookBeforeEachEventAndOutlivesOneWithoutMemory) {
  std::string said;
  AsioMainQueue queue([&](const std::string &line) { said += line; });
  queue.setBeforeEvent([&] { said += '.'; });
  queue.postAfter(1ms, [&] {
    said += 'c';
    queue.stop();
  });
  queue.post([] { throw std::bad_alloc(); });
  queue.post([&] { said += 'b'; });
  queue.run();
  EXPECT_EQ(said, ".out of memory: an event is lost.b.c");
}

// The limits are looked up ("?") past 64 KiB of one and 1 MiB of all.
TEST(BufferQuota, DropsWhoHoldsTooMuch) {
  std::string heard;
  const platform::ConnectionLimits limits{
      {70000, "frame"}, {80000, "unsent"}, {(1 << 20) + 10, "all"}, {}};
  const auto quota = std::make_shared<BufferQuota>(
      [&] {
        heard += '?';
        return limits;
      },
      [&](const platform::ReachedLimit &reached) {
        heard += " " + reached.consequence + ": " + std::string(reached.limit.setting);
      });
  std::map<std::string, BufferQuota::Account> accounts;
  const auto heardOf = [&](const std::string &name, std::size_t frame, std::size_t other,
                           std::size_t unsent) {
    const auto drop = [&](int error) { heard += strerrorname_np(error); };
    auto &account = accounts.try_emplace(name, quota, name, drop).first->second;
    account.setHeldBytes(frame, other);
    account.setUnsentBytes(unsent);
    return std::exchange(heard, "");
  };
  EXPECT_EQ(heardOf("a", 65536, 0, 0), "");
  EXPECT_EQ(heardOf("a", 65535, 1, 1), "?");
  EXPECT_EQ(heardOf("a", 65535, 1, 1), "");
  EXPECT_EQ(heardOf("a", 70000, 0, 0), "?");
  EXPECT_EQ(heardOf("a", 0, 0, 80000), "?");
  EXPECT_EQ(heardOf("a", 0, 0, 80001), "?ENOBUFS a dropped: unsent");
  EXPECT_EQ(heardOf("b", 70001, 0, 0), "?EMSGSIZE b dropped: frame");
  for (int number = 0; number < 15; ++number) {
    EXPECT_EQ(heardOf(std::to_string(number), 65000, 0, 0), "");
  }
  EXPECT_EQ(heardOf("big", 30000, 30000, 5536), "");
  EXPECT_EQ(heardOf("last", 8040, 0, 0), "");
  EXPECT_EQ(heardOf("last", 8041, 0, 0), "?");
  EXPECT_EQ(heardOf("last", 8050, 0, 0), "?");
  EXPECT_EQ(heardOf("last", 8051, 0, 0), "?ENOBUFS big dropped: all");
  accounts.clear();
  for (const char *name : {"c", "d"}) {
    EXPECT_EQ(heardOf(name, 65536, 0, 0), "");
  }
}

TEST(GarbageLimiter, AreManyWhenTheHundredthComesWithinASecond) {
  GarbageLimiter rejections;
  const auto add = [&](int times, std::chrono::nanoseconds now) {
    int many = 0;
    for (; times > 0; --times) {
      many += rejections.add(std::chrono::steady_clock::time_point(now)) ? 1 : 0;
    }
    return many;
  };
  EXPECT_EQ(add(99, 5s), 0);
  EXPECT_EQ(add(1, 6s), 1);
  EXPECT_EQ(add(99, 6s), 0);
  EXPECT_EQ(add(99, 7s + 1ns), 0);
  EXPECT_EQ(add(1, 8s), 1);
}

TEST(Endpoints, AddressesThatOnePeerHasAreCountedAsOne) {
  const auto sourceOf = [](const char *address) {
    return endpointOf({boost::asio::ip::make_address(address), 1}).source;
  };
  EXPECT_EQ(sourceOf("2001:db8:1:2:ffff:ffff:ffff:ffff"), "2001:db8:1:2::/64");
  EXPECT_EQ(sourceOf("::ffff:192.0.2.7"), "192.0.2.7");
}

TEST(DescriptorReserve, KeepsAQuarterOrSixtyFour) {
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  rlimit small = before;
  std::vector<base::Descriptor> files;
  // so many are open, and with this limit enough are left
  for (const auto &[open, enough] : {std::pair{40, 54U}, {300, 365U}}) {
    setrlimit(RLIMIT_NOFILE, &before);
    while (nextDescriptor() < open) {
      files.emplace_back(::dup(STDERR_FILENO));
    }
    for (small.rlim_cur = enough - 1; small.rlim_cur <= enough; ++small.rlim_cur) {
      setrlimit(RLIMIT_NOFILE, &small);
      const auto reached = reachedDescriptorReserve();
      EXPECT_EQ(reached ? reached->most : enough, small.rlim_cur);
    }
  }
  raiseDescriptorLimit();
  getrlimit(RLIMIT_NOFILE, &small);
  EXPECT_EQ(small.rlim_cur, before.rlim_max);
  setrlimit(RLIMIT_NOFILE, &before);
}

}  // namespace
}  // namespace platform_linux
