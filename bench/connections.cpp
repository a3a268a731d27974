// bench_connections KFYD RESULTS: what a connection costs this kfyd, beside the least that one
// costs with the same TLS library, and what a card costs its main thread. Runs in the root and
// network that scripts/bench prepares.

#include <algorithm>
#include <cstdio>
#include <exception>
#include <functional>
#include <list>
#include <random>
#include <thread>

#include "BareRelay.hpp"
#include "Machine.hpp"
#include "Results.hpp"
#include "Statistics.hpp"
#include "base/Places.hpp"
#include "base/Root.hpp"
#include "protocol/Frame.hpp"

namespace bench {
namespace {

constexpr int kRounds = 11;
constexpr int kHandshakes = 200;  // of a round
constexpr int kIdle = 1000;
constexpr std::chrono::seconds kUntilIdle{5};  // then nobody holds buffers for what has come
constexpr int kInserts = 40;                   // of a round
constexpr int kCertificates = 32;
constexpr std::uint16_t kBarePort = 5117;
constexpr std::uint16_t kThriftyPort = 5118;

struct Handshakes {
  std::vector<double> p50, perSecond, processor;

  // One after the other. At kfyd's loopback port: the end of a connection to the public one
  // withdraws the card.
  void runRound(const crypto::TlsContext &context, const Child &relay, std::uint16_t port) {
    std::vector<double> times;
    const double before = relay.processorTime();
    const double all = timed([&] {
      for (int handshake = 0; handshake < kHandshakes; ++handshake) {
        times.push_back(timed([&] { const Peer peer(context, port); }));
      }
    });
    p50.push_back(median(times));
    perSecond.push_back(kHandshakes / all * 1e6);
    processor.push_back((relay.processorTime() - before) / kHandshakes);
  }
};

void measureHandshakes(const crypto::TlsContext &context, const Child &bareRelay,
                       const Child &daemon, const Results &results) {
  Handshakes bare;
  Handshakes kfyd;
  std::mt19937 random(std::random_device{}());
  std::vector<std::function<void()>> order{
      [&] { bare.runRound(context, bareRelay, kBarePort); },
      [&] { kfyd.runRound(context, daemon, base::kLoopbackPort); }};
  for (int round = 0; round < kRounds; ++round) {
    std::ranges::shuffle(order, random);
    std::ranges::for_each(order, [](const auto &run) { run(); });
  }
  const char *condition = "handshake";
  results.addRatio({"connections", condition, "p50, µs"}, bare.p50, kfyd.p50);
  results.addRatio({"connections", condition, "per second"}, bare.perSecond, kfyd.perSecond);
  results.addRatio({"connections", condition, "CPU, µs"}, bare.processor, kfyd.processor);
}

// What each of many connections adds to the resident memory, in KiB. Once, since a process does not
// give back all that it had.
double memoryOfIdle(const crypto::TlsContext &context, const Child &relay, std::uint16_t port) {
  const double before = relay.residentKiB();
  std::list<Peer> peers;
  for (int peer = 0; peer < kIdle; ++peer) {
    peers.emplace_back(context, port);
  }
  std::this_thread::sleep_for(kUntilIdle);
  return (relay.residentKiB() - before) / kIdle;
}

void measureInsert(const crypto::TlsContext &context, const Child &daemon,
                   const crypto::Identity &card, const Results &results) {
  std::vector<crypto::Certificate> certificates;
  for (int number = 0; number < kCertificates; ++number) {
    certificates.push_back(
        crypto::Certificate::selfSigned(card.key, "Key " + std::to_string(number), /*days=*/1,
                                        /*serverName=*/false)
            .value());
  }
  Peer holder(context, base::kPublicPort);
  authenticate(holder, card);
  const QuillMessage insert = insertOf(certificates);
  std::vector<double> p50;
  std::vector<double> processor;
  for (int round = 0; round < kRounds; ++round) {
    std::vector<double> times;
    const double before = daemon.mainThreadTime();
    for (int each = 0; each < kInserts; ++each) {
      times.push_back(timed([&] { (void)holder.ask(insert); }));
    }
    processor.push_back((daemon.mainThreadTime() - before) / kInserts);
    p50.push_back(median(times));
  }
  const std::string condition = "insert of " + std::to_string(kCertificates) + ", " +
                                std::to_string(protocol::frameOf(insert).size() / 1024) + " KiB";
  results.add({"connections", condition, "p50, µs"}, "kfyd", p50);
  results.add({"connections", condition, "CPU, µs"}, "kfyd", processor);
}

void measure(const std::string &kfyd, const Results &results) {
  check(!base::root().empty(), "KFYD_ROOT is not set; try: scripts/bench");
  raiseDescriptorLimit();
  const crypto::Identity identity = makeRelayIdentity();
  const auto context = crypto::TlsContext::client().value();
  const Child bareRelay = runBareRelay(identity, kBarePort, Saves::time);
  const Child thriftyRelay = runBareRelay(identity, kThriftyPort, Saves::memory);
  const Machine machine(kfyd);
  measureHandshakes(context, bareRelay, machine.daemon(), results);
  const std::string idle = std::to_string(kIdle) + " idle";
  results.addRatio({"connections", idle, "memory of each, KiB"},
                   {memoryOfIdle(context, thriftyRelay, kThriftyPort)},
                   {memoryOfIdle(context, machine.daemon(), base::kLoopbackPort)});
  measureInsert(context, machine.daemon(), makeCard(), results);
}

}  // namespace
}  // namespace bench

int main(int count, char **arguments) {
  try {
    bench::check(count == 3, "usage: bench_connections KFYD RESULTS");
    bench::measure(arguments[1], bench::Results(arguments[2]));
    return 0;
  } catch (const std::exception &failure) {
    std::fprintf(stderr, "bench_connections: error: %s\n", failure.what());
    return 1;
  }
}
