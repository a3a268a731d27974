// Connections that only stand cost a relay nothing.

#include <ctime>

#include "load/LoadedMachine.hpp"

namespace load {
namespace {

using namespace std::chrono_literals;

// What a relay costs: processor time of the daemon, and the time until the answer comes; µs.
struct Cost {
  double processor;
  double p50;
};

// The processor time of a process so far.
double microsecondsOf(pid_t process) {
  clockid_t clock = 0;
  timespec time{};
  EXPECT_EQ(::clock_getcpuclockid(process, &clock), 0);
  EXPECT_EQ(::clock_gettime(clock, &time), 0);
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

TEST_F(LoadedMachine, IdleConnectionsCostARelayNothing) {
  const std::size_t count = isFull() ? 5000 : 200;
  for (const char *bound : {"maxLocalConnections", "maxLocalConnectionsPerUser", "maxHandshakes"}) {
    succeed("kfyctl", {"defaults", "write", bound, "10000"});
  }
  startDaemon();
  const Holder holder(/*signs=*/false);
  const auto measure = [&] {
    const double before = microsecondsOf(daemon->id());
    const std::vector<double> times = sign(isFull() ? 3s : 100ms, /*isSigned=*/false);
    return Cost{(microsecondsOf(daemon->id()) - before) / static_cast<double>(times.size()),
                percentile(times, 0.5)};
  };
  measure();  // not counted: all memory is got once
  for (int round = 0; round < (isFull() ? 3 : 1); ++round) {
    const Cost alone = measure();
    const std::size_t base = descriptors();
    {
      const Crowd crowd(client::kLoopbackPort, std::vector<Behaviour>(count));
      ASSERT_TRUE(eventually([&] { return crowd.established() == count; })) << crowd.established();
      const Cost among = measure();
      EXPECT_EQ(crowd.ended(), 0U);
      std::printf(
          "  a relay alone: %.1f µs of kfyd, p50 %.1f µs; among %zu idle: %.1f, %.1f; ratio "
          "(wanted: at most 1.05): %.3f, %.3f\n",
          alone.processor, alone.p50, count, among.processor, among.p50,
          among.processor / alone.processor, among.p50 / alone.p50);
    }
    expectDescriptors(base);
  }
}

}  // namespace
}  // namespace load
