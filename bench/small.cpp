// bench_small RESULTS: what the single steps of a relay and of a card cost, without a network.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <utility>

#include "Machine.hpp"
#include "Results.hpp"
#include "Statistics.hpp"
#include "crypto/HashAlgorithm.hpp"
#include "encodings/HexString.hpp"
#include "linux/clock/SystemClock.hpp"
#include "linux/defaults/ChangeWatch.hpp"
#include "linux/defaults/TomlUserDefaults.hpp"
#include "logging/CVNLog.hpp"
#include "logging/LogPlatform.hpp"
#include "protocol/Frame.hpp"
#include "settings/Settings.hpp"

namespace bench {
namespace {

constexpr int kRounds = 9;
constexpr double kSecondsOfRound = 0.05;
constexpr int kCertificates = 32;

// Collects the rounds; they come one by one.
class Collector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context & /*context*/) override { return true; }

  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &run : runs) {
      if (run.run_type == Run::RT_Iteration) {
        check(!run.error_occurred, "a step fails");
        const std::string &name = run.run_name.function_name;
        if (rounds_.empty() || rounds_.back().first != name) {
          rounds_.push_back({name, {}});
        }
        rounds_.back().second.push_back(run.GetAdjustedRealTime());
      }
    }
  }

  void Finalize() override {
    for (const auto &[name, rounds] : rounds_) {
      results_.add({"small", name, "time, ns"}, "", rounds);
    }
  }

  explicit Collector(const Results &results) : results_(results) {}

 private:
  const Results &results_;
  std::vector<std::pair<std::string, std::vector<double>>> rounds_;
};

// A step that gives something, which must not be left out by the compiler.
template <typename Step>
void add(const char *name, Step step) {
  benchmark::RegisterBenchmark(name,
                               [step](benchmark::State &state) {
                                 for (auto _ : state) {
                                   benchmark::DoNotOptimize(step());
                                 }
                               })
      ->Repetitions(kRounds)
      ->MinTime(kSecondsOfRound);
}

// A message is written and read, and collected from its chunk.
void addMessage(const std::string &name, const QuillMessage &message) {
  const CleansedBytes frame = protocol::frameOf(message);
  const CleansedBytes json = message.json().value();
  check(QuillMessage::initWithJSONData(json).has_value(), "a message can't be read");
  const std::string size = ", " + std::to_string(frame.size()) + " bytes";
  add(("encode " + name + size).c_str(), [message] { return protocol::frameOf(message); });
  add(("decode " + name + size).c_str(), [json] { return QuillMessage::initWithJSONData(json); });
  if (frame.size() <= crypto::kTlsRecordBytes) {
    const auto buffer = std::make_shared<CleansedBytes>();
    add(("collect " + name + size).c_str(),
        [frame, buffer] { return protocol::collectChunk(*buffer, frame).outcome; });
  }
}

void addMessages(const crypto::Identity &card) {
  const auto hash = crypto::HashAlgorithm::sha256;
  const auto request = QuillMessage::initCommandMessageSignData(
      crypto::digestInfo(hash, crypto::digestOf(hash, {})), card.certificate.sha1(), SecretText());
  addMessage("sign_data", request);
  addMessage("its answer", QuillMessage::initWithReplyMessageForSignMessage(
                               /*status=*/true, request.messageID, Bytes(256, 0xA5)));
  const std::vector<crypto::Certificate> many(kCertificates, card.certificate);
  addMessage("insert of 32", insertOf(many));
}

void addTexts(const crypto::Identity &card) {
  const Bytes bytes(1024, 0xA5);
  const std::string hex = encodings::hexString(bytes);
  add("hexadecimal, write 1 KiB", [bytes] { return encodings::hexString(bytes); });
  add("hexadecimal, read 1 KiB", [hex] { return encodings::dataWithHexString(hex); });
  const std::string text = encodings::base64EncodeBytes(bytes, /*separateLines=*/false);
  add("Base64, write 1 KiB",
      [bytes] { return encodings::base64EncodeBytes(bytes, /*separateLines=*/false); });
  add("Base64, read 1 KiB, lenient", [text] { return encodings::dataFromBase64String(text); });
  add("Base64, read 1 KiB, field", [text] { return encodings::dataFromBase64Field(text); });
  add("digests of a list of 32",
      [certificate = encodings::base64EncodeBytes(card.certificate.der(),
                                                  /*separateLines=*/false)] {
        std::size_t size = 0;
        for (int entry = 0; entry < kCertificates; ++entry) {
          size += protocol::certificateSHA1In(certificate).size();
        }
        return size;
      });
}

// What a disabled trace must not reach.
struct NoLog : platform::UnifiedLog, platform::StandardError {
  [[nodiscard]] bool accepts() override { return true; }
  void entry(std::string_view /*text*/) override { check(false, "a disabled trace was written"); }
  void write(std::string_view /*text*/) override { check(false, "a disabled trace was written"); }
  void flush() override {}
};

// With the daemon's own look-up of whether debug mode is on, which it is not.
class DisabledTrace {
 public:
  DisabledTrace() {
    logging::useLogPlatform(std::make_unique<logging::LogPlatform>(logging::LogPlatform{
        clock_, defaults_, log_, log_, "bench", /*realUserID=*/0,
        /*bundleLogFileName=*/std::nullopt, [this] { return changes_.mayHaveChanged(); }}));
    add("disabled trace, first of an event", [] {
      logging::eventBegins();
      return trace();
    });
    add("disabled trace, further one", trace);
  }
  ~DisabledTrace() { logging::useLogPlatform(nullptr); }
  DisabledTrace(const DisabledTrace &) = delete;
  DisabledTrace &operator=(const DisabledTrace &) = delete;

 private:
  static int trace() {
    CVNLogDebug("%i of %s", 1, "a text");
    return 0;
  }

  NoLog log_;
  platform_linux::SystemClock clock_;
  platform_linux::TomlUserDefaults defaults_{
      [](const std::string & /*line*/) { check(false, "a settings file is wrong"); },
      "/etc/keyferry", logging::currentMoment};
  platform_linux::ChangeWatch changes_{{std::string(logging::kDebugMarker),
                                        defaults_.pathOf(platform::kStandardDefaults),
                                        defaults_.pathOf(settings::kIdentityDomain)}};
};

void measure(const Results &results) {
  const crypto::Identity card = makeCard();
  const DisabledTrace disabledTrace;
  addMessages(card);
  addTexts(card);
  Collector collector(results);
  check(benchmark::RunSpecifiedBenchmarks(&collector) > 0, "nothing was measured");
}

}  // namespace
}  // namespace bench

int main(int count, char **arguments) {
  try {
    bench::check(count == 2, "usage: bench_small RESULTS");
    bench::measure(bench::Results(arguments[1]));
    return 0;
  } catch (const std::exception &failure) {
    std::fprintf(stderr, "bench_small: error: %s\n", failure.what());
    return 1;
  }
}
