// bench_relay KFYD RESULTS: what a request costs on its way through this kfyd, beside the least
// that a relay of TLS connections costs. Runs in the root and network that scripts/bench prepares.

#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <random>

#include "BareRelay.hpp"
#include "Load.hpp"
#include "Machine.hpp"
#include "Results.hpp"
#include "base/Places.hpp"
#include "base/Root.hpp"

namespace bench {
namespace {

constexpr std::size_t kRounds = 15;
constexpr std::size_t kRequests = 3000;  // of a round
constexpr std::array<std::size_t, 3> kClients{1, 8, 64};
constexpr std::uint16_t kBarePort = 5117;

// The rounds of one relay with one number of clients.
struct Course {
  Load *load;
  std::size_t clients;
  std::vector<Round> rounds = {};
};

std::vector<double> column(const Course &course, double Round::*quantity) {
  std::vector<double> values;
  std::ranges::transform(course.rounds, std::back_inserter(values),
                         [&](const Round &round) { return round.*quantity; });
  return values;
}

void report(const Results &results, const Course &bare, const Course &kfyd) {
  const std::string condition =
      std::to_string(bare.clients) + (bare.clients == 1 ? " client" : " clients");
  const auto add = [&](const char *name, double Round::*quantity) {
    results.addRatio({"relay", condition, name}, column(bare, quantity), column(kfyd, quantity));
  };
  add("p50, µs", &Round::p50);
  add("p99, µs", &Round::p99);
  add("relays/s", &Round::perSecond);
  add("CPU/relay, µs", &Round::processor);
}

void measure(const std::string &kfyd, const Results &results) {
  check(!base::root().empty(), "KFYD_ROOT is not set; try: scripts/bench");
  const crypto::Identity card = makeCard();
  const auto context = crypto::TlsContext::client().value();
  const Child bareRelay = runBareRelay(makeRelayIdentity(), kBarePort, Saves::time);
  const Machine machine(kfyd);
  Load bare(context, bareRelay, kBarePort, kBarePort, kClients.back(), card, /*inserts=*/false);
  Load daemon(context, machine.daemon(), base::kPublicPort, base::kLoopbackPort, kClients.back(),
              card, /*inserts=*/true);
  std::vector<Course> courses;
  for (const std::size_t clients : kClients) {
    courses.push_back({&bare, clients});
    courses.push_back({&daemon, clients});
  }
  for (const Course &course : courses) {
    (void)course.load->run(course.clients, kRequests);  // not counted: all memory is got once
  }
  std::vector<Course *> order;
  std::ranges::transform(courses, std::back_inserter(order), [](Course &each) { return &each; });
  std::mt19937 random(std::random_device{}());
  for (std::size_t round = 0; round < kRounds; ++round) {
    std::ranges::shuffle(order, random);
    for (Course *const course : order) {
      course->rounds.push_back(course->load->run(course->clients, kRequests));
    }
  }
  for (std::size_t each = 0; each < courses.size(); each += 2) {
    report(results, courses[each], courses[each + 1]);
  }
}

}  // namespace
}  // namespace bench

int main(int count, char **arguments) {
  try {
    bench::check(count == 3, "usage: bench_relay KFYD RESULTS");
    bench::measure(arguments[1], bench::Results(arguments[2]));
    return 0;
  } catch (const std::exception &failure) {
    std::fprintf(stderr, "bench_relay: error: %s\n", failure.what());
    return 1;
  }
}
