// bench_driver BUILD FOLDER RESULTS: signatures with one RSA-2048 key through the token driver,
// kfyd and kfy-remote, beside other ways to a key that is not in the program. Runs in what
// scripts/bench prepares: a root, the key in FOLDER, in a token and in an ssh-agent.

#include <algorithm>
#include <array>
#include <barrier>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <random>
#include <thread>

#include "AgentSigner.hpp"
#include "Device.hpp"
#include "Machine.hpp"
#include "Pkcs11Module.hpp"
#include "Results.hpp"
#include "Statistics.hpp"
#include "base/Places.hpp"
#include "base/Root.hpp"

namespace bench {
namespace {

constexpr int kRounds = 11;
constexpr int kSignatures = 400;  // of a round, of all threads together
constexpr std::array<int, 2> kThreads{1, 8};
constexpr std::uint16_t kSlowPort = 5119;  // leads to the public port, and delays
constexpr const char *kSoftHSM = "/usr/lib/softhsm/libsofthsm2.so";
constexpr const char *kPin = "1234";

// A way to the key. `open` gives one thread what it signs with.
struct Way {
  std::string name;
  std::function<std::function<void()>()> open;
};

struct Course {
  const Way *way;
  int threads;
  std::vector<double> p50 = {};
  std::vector<double> perSecond = {};

  void runRound() {
    std::vector<std::vector<double>> times(static_cast<std::size_t>(threads));
    Clock::time_point start;
    std::barrier ready(threads, [&]() noexcept { start = Clock::now(); });
    std::vector<std::jthread> running;
    for (auto &own : times) {
      running.emplace_back([this, &own, &ready] {
        const auto sign = way->open();
        sign();  // not counted: a first use looks things up
        ready.arrive_and_wait();
        for (int each = 0; each < kSignatures / threads; ++each) {
          own.push_back(timed(sign));
        }
      });
    }
    running.clear();
    const double all = microsecondsSince(start);
    std::vector<double> joined;
    for (const auto &own : times) {
      joined.insert(joined.end(), own.begin(), own.end());
    }
    p50.push_back(median(joined));
    perSecond.push_back(static_cast<double>(joined.size()) / all * 1e6);
  }
};

Way wayThrough(const std::string &name, const std::string &path, const std::string &pin) {
  const auto module = std::make_shared<Pkcs11Module>(path, pin);
  // The login holds as long as a session of this program does.
  const auto first = std::make_shared<Pkcs11Module::Signer>(*module);
  return {name, [module, first] {
            const auto signer = std::make_shared<Pkcs11Module::Signer>(*module);
            return [signer] { signer->sign(); };
          }};
}

std::string environment(const char *name) {
  const char *const value = std::getenv(name);
  check(value != nullptr, name);
  return value;
}

struct Places {
  std::string driver;
  std::string client;  // of p11-kit, beside which it is installed
  std::string first;
};

void measureSignatures(const Places &places, const Results &results) {
  const std::string agent = environment("SSH_AUTH_SOCK");
  const std::vector<Way> ways{wayThrough("kfy-pkcs11.so", places.driver, ""),
                              wayThrough("SoftHSM2", kSoftHSM, kPin),
                              wayThrough("SoftHSM2 through p11-kit", places.client, kPin),
                              {"ssh-agent", [agent] {
                                 const auto signer = std::make_shared<AgentSigner>(agent);
                                 return [signer] { signer->sign(); };
                               }}};
  std::vector<Course> courses;
  for (const int threads : kThreads) {
    for (const Way &way : ways) {
      courses.push_back({&way, threads});
    }
  }
  std::vector<Course *> order;
  std::ranges::transform(courses, std::back_inserter(order), [](Course &each) { return &each; });
  std::mt19937 random(std::random_device{}());
  for (int round = 0; round < kRounds; ++round) {
    std::ranges::shuffle(order, random);
    std::ranges::for_each(order, [](Course *course) { course->runRound(); });
  }
  for (const Course &course : courses) {
    const std::string condition =
        std::to_string(course.threads) + (course.threads == 1 ? " thread" : " threads");
    results.add({"driver", condition, "p50, µs"}, course.way->name, course.p50);
    results.add({"driver", condition, "per second"}, course.way->name, course.perSecond);
  }
}

// What bench_first prints, round by round.
struct FirstUse {
  std::vector<double> initialised, found, firstSigned;

  void runRound(const std::string &command) {
    const std::unique_ptr<FILE, decltype(&::pclose)> output(::popen(command.c_str(), "r"),
                                                            ::pclose);
    std::array<double, 3> times{};
    check(output && std::fscanf(output.get(), "%lf %lf %lf", &times[0], &times[1], &times[2]) == 3,
          "a first use fails");
    initialised.push_back(times[0]);
    found.push_back(times[1]);
    firstSigned.push_back(times[2]);
  }

  void report(const Results &results, const std::string &group, const std::string &condition,
              const std::string &subject) const {
    results.add({group, condition, "load and C_Initialize, µs"}, subject, initialised);
    results.add({group, condition, "login and find, µs"}, subject, found);
    results.add({group, condition, "first signature, µs"}, subject, firstSigned);
  }
};

void measureFirstUses(const Places &places, const Results &results) {
  const std::array<std::array<std::string, 3>, 3> modules{
      {{"kfy-pkcs11.so", places.driver, ""},
       {"SoftHSM2", kSoftHSM, kPin},
       {"SoftHSM2 through p11-kit", places.client, kPin}}};
  std::array<FirstUse, 3> uses;
  for (int round = 0; round < kRounds; ++round) {
    for (std::size_t each = 0; each < modules.size(); ++each) {
      uses[each].runRound(places.first + " '" + modules[each][1] + "' " + modules[each][2]);
    }
  }
  for (std::size_t each = 0; each < modules.size(); ++each) {
    uses[each].report(results, "first use", "fresh program", modules[each][0]);
  }
}

// A device that is near, and one behind the proxy that delays.
void measureSlowNetwork(const Places &places, const std::string &build, const std::string &folder,
                        const Results &results) {
  struct Distance {
    const char *name;
    std::uint16_t port;
    std::vector<double> inserted = {};
    FirstUse use = {};
    std::vector<double> later = {};
  };
  std::array<Distance, 2> distances{{{"no delay", base::kPublicPort}, {"15 ms", kSlowPort}}};
  const Pkcs11Module module(places.driver, "");
  for (int round = 0; round < kRounds; ++round) {
    for (Distance &each : distances) {
      const auto start = Clock::now();
      const Device device(build + "/src/kfy-remote", folder, each.port);
      each.inserted.push_back(microsecondsSince(start));
      each.use.runRound(places.first + " '" + places.driver + "'");
      Pkcs11Module::Signer signer(module);
      signer.sign();
      each.later.push_back(timed([&] { signer.sign(); }));
    }
  }
  for (const Distance &each : distances) {
    results.add({"slow network", each.name, "start to card, µs"}, "", each.inserted);
    each.use.report(results, "slow network", each.name, "");
    results.add({"slow network", each.name, "later signature, µs"}, "", each.later);
  }
}

void measure(const std::string &build, const std::string &folder, const Results &results) {
  check(!base::root().empty(), "KFYD_ROOT is not set; try: scripts/bench");
  const Places places{build + "/src/kfy-pkcs11.so", environment("KEYFERRY_BENCH_P11_KIT_CLIENT"),
                      build + "/bench/bench_first"};
  const Machine machine(build + "/src/kfyd");
  {
    const Device device(build + "/src/kfy-remote", folder, base::kPublicPort);
    measureSignatures(places, results);
    measureFirstUses(places, results);
  }
  measureSlowNetwork(places, build, folder, results);
}

}  // namespace
}  // namespace bench

int main(int count, char **arguments) {
  try {
    bench::check(count == 4, "usage: bench_driver BUILD FOLDER RESULTS");
    bench::measure(arguments[1], arguments[2], bench::Results(arguments[3]));
    return 0;
  } catch (const std::exception &failure) {
    std::fprintf(stderr, "bench_driver: error: %s\n", failure.what());
    return 1;
  }
}
