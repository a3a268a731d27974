// Connections that only stand cost a relay nothing.

#include "base/Places.hpp"
#include "load/LoadedMachine.hpp"

namespace load {
namespace {

using namespace std::chrono_literals;

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
  // where the kernel puts it would change what a relay costs more than idle connections do
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  EXPECT_EQ(sched_setaffinity(daemon->id(), sizeof one, &one), 0);
  const Holder holder(/*signs=*/false);
  // what a relay costs the daemon, in µs
  const auto measure = [&] {
    const double before = microsecondsOf(daemon->id());
    const std::size_t relays = sign(isFull() ? 10s : 100ms, /*isSigned=*/false).size();
    return (microsecondsOf(daemon->id()) - before) / static_cast<double>(relays);
  };
  measure();  // not counted: all memory is got once
  const double alone = measure();
  const Crowd crowd(base::kLoopbackPort, std::vector<Behaviour>(count));
  ASSERT_TRUE(eventually([&] { return crowd.established == count; })) << crowd.established;
  const double among = measure();
  EXPECT_EQ(crowd.ended, 0U);
  std::printf(
      "  a relay alone: %.1f µs of kfyd; among %zu idle: %.1f µs; ratio %.3f (at most 1.05)\n",
      alone, count, among, among / alone);
}

}  // namespace
}  // namespace load
