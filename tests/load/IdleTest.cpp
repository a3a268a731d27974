// Connections that only stand cost a relay nothing.

#include <sched.h>

#include <ctime>

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

// Keeps this process and those that it starts on one processor: where the kernel puts them would
// change what a relay costs more than idle connections do.
class OneProcessor {
 public:
  OneProcessor() {
    EXPECT_EQ(sched_getaffinity(0, sizeof before_, &before_), 0);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    EXPECT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
  }
  ~OneProcessor() { sched_setaffinity(0, sizeof before_, &before_); }
  OneProcessor(const OneProcessor &) = delete;
  OneProcessor &operator=(const OneProcessor &) = delete;

 private:
  cpu_set_t before_{};
};

TEST_F(LoadedMachine, IdleConnectionsCostARelayNothing) {
  const OneProcessor onOne;
  const std::size_t count = isFull() ? 5000 : 200;
  for (const char *bound : {"maxLocalConnections", "maxLocalConnectionsPerUser", "maxHandshakes"}) {
    succeed("kfyctl", {"defaults", "write", bound, "10000"});
  }
  startDaemon();
  const Holder holder(/*signs=*/false);
  // what a relay costs: processor time of the daemon, and the time until the answer comes; µs
  const auto measure = [&] {
    const double before = microsecondsOf(daemon->id());
    const std::vector<double> times = sign(isFull() ? 3s : 100ms, /*isSigned=*/false);
    return std::pair((microsecondsOf(daemon->id()) - before) / static_cast<double>(times.size()),
                     percentile(times, 0.5));
  };
  measure();  // not counted: all memory is got once
  std::vector<double> processor;
  std::vector<double> p50;
  for (int round = 0; round < (isFull() ? 5 : 1); ++round) {
    const auto [alone, p50Alone] = measure();
    const std::size_t base = descriptors();
    {
      const Crowd crowd(client::kLoopbackPort, std::vector<Behaviour>(count));
      ASSERT_TRUE(eventually([&] { return crowd.established() == count; })) << crowd.established();
      const auto [among, p50Among] = measure();
      EXPECT_EQ(crowd.ended(), 0U);
      processor.push_back(among / alone);
      p50.push_back(p50Among / p50Alone);
      std::printf("  a relay alone: %.1f µs of kfyd, p50 %.1f µs; among %zu idle: %.1f, %.1f\n",
                  alone, p50Alone, count, among, p50Among);
    }
    expectDescriptors(base);
  }
  std::printf("  ratio, median of the rounds (wanted: at most 1.05): %.3f, p50 %.3f\n",
              percentile(processor, 0.5), percentile(p50, 0.5));
}

}  // namespace
}  // namespace load
