// bench_relay KFYD: what a signature costs on its way through this kfyd, beside the least that a
// relay of two TLS connections costs. Runs in the root and network that scripts/bench prepares.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <thread>
#include <vector>

#include "BareRelay.hpp"
#include "Child.hpp"
#include "Peer.hpp"
#include "base/Places.hpp"
#include "base/Root.hpp"
#include "client/Connection.hpp"
#include "client/TcpConnect.hpp"
#include "crypto/HashAlgorithm.hpp"
#include "encodings/HexString.hpp"
#include "protocol/Frame.hpp"

namespace bench {
namespace {

constexpr int kRounds = 20;
constexpr int kRequests = 100;  // of a round, and as many messages and handshakes
constexpr std::uint16_t kBarePort = 5117;

// The value that this share of all does not exceed.
double percentile(std::vector<double> values, double share) {
  const auto place =
      values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::ranges::nth_element(values, place);
  return *place;
}

double median(const std::vector<double> &values) {
  return percentile(values, 0.5);
}

template <typename Work>
double timed(Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
      .count();
}

void check(bool isRight, const char *what) {
  if (!isRight) {
    throw std::runtime_error(what);
  }
}

// The frames of one request and its answer, as long as those of a signature with RSA-2048.
struct Exchange {
  explicit Exchange(const crypto::Identity &card) {
    const auto hash = crypto::HashAlgorithm::sha256;
    const auto message = QuillMessage::initCommandMessageSignData(
        crypto::digestInfo(hash, crypto::digestOf(hash, {})), card.certificate.sha1(),
        SecretText());
    request = protocol::frameOf(message);
    answer = protocol::frameOf(QuillMessage::initWithReplyMessageForSignMessage(
        /*status=*/true, message.messageID, Bytes(256, 0xA5)));
  }

  CleansedBytes request;
  CleansedBytes answer;
};

ByteView payloadOf(ByteView frame) {
  return frame.subspan(protocol::kFrameStart.size(),
                       frame.size() - protocol::kFrameStart.size() - protocol::kFrameEnd.size());
}

// A relay with a peer at either side, and what was measured of it; times are in microseconds.
struct Course {
  const Child &relay;
  Peer requester;
  Peer holder;
  std::vector<double> all = {};
  std::vector<double> processor = {};  // of the relay, for one request, by round

  // One request after the other; the median.
  double runRound(const Exchange &exchange) {
    std::vector<double> round;
    const double before = relay.processorTime();
    for (int request = 0; request < kRequests; ++request) {
      round.push_back(timed([&] {
        requester.send(exchange.request);
        check(holder.receive().size() == payloadOf(exchange.request).size(), "request changed");
        holder.send(exchange.answer);
        check(requester.receive().size() == payloadOf(exchange.answer).size(), "answer changed");
      }));
    }
    processor.push_back((relay.processorTime() - before) / kRequests);
    all.insert(all.end(), round.begin(), round.end());
    return median(round);
  }

  void print(const char *name) const {
    std::printf("  %-11s p50 %6.1f   p99 %6.1f   CPU of the relay %6.1f\n", name, median(all),
                percentile(all, 0.99), median(processor));
  }
};

void insertCard(Peer &holder, const crypto::Identity &card) {
  const Bytes hash = encodings::sha1(card.key.publicKey().externalRepresentation().value());
  const auto reply = holder.ask(QuillMessage::initCommandMessageConnectWithCertificate({hash}));
  (void)holder.ask(QuillMessage::initCommandMessageAuthenticateWithSignature(
      card.key.signRawPKCS1(reply.challenge.value()).value(), card.certificate.der()));
  encodings::CertificateInfo info;
  info.certificate = encodings::base64EncodeBytes(card.certificate.der(), /*separateLines=*/false);
  const std::vector<protocol::CardElement> list{info};
  (void)holder.ask(QuillMessage::initCommandMessageInsertSmartCardWithCertificates(
      protocol::makeCardList(list)));
}

void measureRelays(const crypto::TlsContext &context, const Child &daemon,
                   const crypto::Identity &card) {
  const Child bareRelay = runBareRelay(card, kBarePort);
  Course bare{bareRelay, {context, kBarePort}, {context, kBarePort}};
  Course kfyd{daemon, {context, base::kLoopbackPort}, {context, base::kPublicPort}};
  insertCard(kfyd.holder, card);
  const Exchange exchange(card);
  std::vector<double> ratios;
  for (int round = 0; round < kRounds; ++round) {
    const double floor = bare.runRound(exchange);
    ratios.push_back(kfyd.runRound(exchange) / floor);
  }
  std::printf("sign_data, %d requests one at a time, %d rounds, frames of %zu and %zu bytes; µs:\n",
              kRounds * kRequests, kRounds, exchange.request.size(), exchange.answer.size());
  bare.print("bare relay");
  kfyd.print("kfyd");
  std::printf("  p50(kfyd)/p50(bare relay) %.2f; of the rounds: median %.2f, %.2f to %.2f\n",
              median(kfyd.all) / median(bare.all), median(ratios), std::ranges::min(ratios),
              std::ranges::max(ratios));
}

void measureCodec(const crypto::Identity &card) {
  const Exchange exchange(card);
  std::vector<double> rounds;
  for (int round = 0; round < kRounds; ++round) {
    const double time = timed([&] {
      for (int message = 0; message < kRequests; ++message) {
        const auto decoded = QuillMessage::initWithJSONData(payloadOf(exchange.request));
        check(protocol::frameOf(*decoded).size() == exchange.request.size(), "message changed");
      }
    });
    rounds.push_back(time / kRequests);
  }
  std::printf("sign_data decoded and encoded once: %.2f µs\n", median(rounds));
}

// At the loopback port: the end of a connection to the public one withdraws the card.
void measureHandshakes(const crypto::TlsContext &context, const Child &daemon) {
  std::vector<double> times;
  const double before = daemon.processorTime();
  for (int handshake = 0; handshake < kRequests; ++handshake) {
    times.push_back(timed([&] { const Peer peer(context, base::kLoopbackPort); }));
  }
  std::printf("handshakes: %.0f a second, one at a time; p50 %.0f µs, CPU of kfyd %.0f µs\n",
              1e6 / median(times), median(times), (daemon.processorTime() - before) / kRequests);
}

void measure(const char *kfyd) {
  check(!base::root().empty(), "KFYD_ROOT is not set; try: scripts/bench");
  const auto key = crypto::PrivateKey::generateRSA(2048).value();
  const crypto::Identity card{
      crypto::Certificate::selfSigned(key, "card", /*days=*/1, /*serverName=*/false).value(), key};
  const auto context = crypto::TlsContext::client().value();
  const Child journal = runJournal();
  const Child daemon([&] { execute(kfyd); });
  for (int tries = 0;
       !client::connectTcp(client::kLoopbackHost, base::kLoopbackPort, {}, nullptr).isOpen();
       ++tries) {
    check(tries < 1000, "kfyd does not listen");
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  measureRelays(context, daemon, card);
  measureCodec(card);
  measureHandshakes(context, daemon);
}

}  // namespace
}  // namespace bench

int main(int count, char **arguments) {
  try {
    bench::check(count == 2, "usage: bench_relay KFYD");
    bench::measure(arguments[1]);
    return 0;
  } catch (const std::exception &failure) {
    std::fprintf(stderr, "bench_relay: error: %s\n", failure.what());
    return 1;
  }
}
