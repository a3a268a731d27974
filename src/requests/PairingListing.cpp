#include "requests/PairingListing.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "base/UTF8.hpp"
#include "encodings/HexString.hpp"
#include "identity/ListingTexts.hpp"
#include "logging/CVNLog.hpp"
#include "settings/Settings.hpp"

namespace requests {
namespace {

constexpr const char *kTool = "/usr/sbin/sc_auth";
constexpr const char *kToolFolder = "/var";
constexpr std::size_t kHashCharacters = 40;
constexpr int kLookUps = 30;
constexpr std::chrono::seconds kPause{1};
constexpr std::chrono::milliseconds kShortestRun{1};

// The time for all attempts of one look-up together, if the setting limits it.
class LookUpTime {
 public:
  explicit LookUpTime(const RequestProcessor::Platform &platform)
      : platform_(platform),
        most_(settings::valueOf(settings::kPairingSeconds, platform.defaults)),
        start_(platform.clock.now()) {}

  [[nodiscard]] std::chrono::milliseconds left() {
    if (most_.count() == 0) {
      return std::chrono::milliseconds::max();
    }
    const auto now = platform_.clock.now();
    start_ = std::min(start_, now);  // if the clock was set back, the time starts again
    return std::chrono::duration_cast<std::chrono::milliseconds>(start_ + most_ - now);
  }

  // Pauses before the next attempt. False, with a report, if the time is over.
  [[nodiscard]] bool pause() {
    if (left() <= kPause) {
      platform_.limits.reached(
          {{static_cast<std::uint64_t>(most_.count()), settings::kPairingSeconds.key},
           "look-up of the pairing ended before its last attempt"});
      return false;
    }
    const logging::BlockingStep step;
    platform_.clock.pause(kPause);
    return true;
  }

 private:
  const RequestProcessor::Platform &platform_;
  std::chrono::seconds most_;
  platform::Clock::Time start_;
};

platform::RunLimits limitsOfOneRun(platform::UserDefaults &defaults, LookUpTime &time) {
  const std::chrono::milliseconds most =
      std::chrono::seconds(settings::valueOf(settings::kPairingToolSeconds, defaults));
  // the pause itself may have taken all the time that was left
  return {std::clamp(time.left(), kShortestRun, most),
          static_cast<std::size_t>(settings::valueOf(settings::kPairingToolBytes, defaults))};
}

Bytes runTool(const RequestProcessor::Platform &platform, LookUpTime &time) {
  CVNLogDebug("running /usr/sbin/sc_auth identities to get bound user hash");
  const std::array<std::string, 1> arguments{"identities"};
  const logging::BlockingStep step;
  return platform.tools
      .outputOf(kTool, arguments, kToolFolder, limitsOfOneRun(platform.defaults, time))
      .value_or(Bytes{});
}

// The first characters of a bind line; nothing if there is none or it is too short to hold a hash.
std::optional<std::string_view> hashTextIn(ByteView listing) {
  const auto line = findBindLine(listing);
  if (!line || base::characterCount(*line) < kHashCharacters) {
    return std::nullopt;
  }
  CVNLogDebug("parsing data by getting the first 40 bytes");
  return base::firstCharacters(*line, kHashCharacters);
}

}  // namespace

std::optional<std::string_view> findBindLine(ByteView listing) {
  if (!base::isUTF8(listing)) {
    return std::nullopt;
  }
  std::string_view rest = base::textOf(listing);
  bool isHeaderSeen = false;
  bool isSectionSeen = false;
  while (true) {
    const std::size_t end = rest.find('\n');
    const std::string_view line = rest.substr(0, end);
    if (isHeaderSeen && isSectionSeen) {
      CVNLogDebug("Found user bind line to parse");
      return line;
    }
    if (isHeaderSeen && line.find(identity::kListingPairedLine) != std::string_view::npos) {
      isSectionSeen = true;
      CVNLogDebug("found identity section. parsing");
    }
    if (line.find(identity::kListingTokenLine) != std::string_view::npos) {
      CVNLogDebug("header. parsing");
      isHeaderSeen = true;
    }
    if (end == std::string_view::npos) {
      return std::nullopt;
    }
    rest.remove_prefix(end + 1);
  }
}

std::optional<Bytes> findPairedHash(const RequestProcessor::Platform &platform) {
  LookUpTime time(platform);
  bool goesOn = true;
  for (int attempt = 0; attempt < kLookUps && goesOn; ++attempt) {
    const Bytes listing = runTool(platform, time);
    if (listing.empty()) {
      CVNLog(
          "no paired identity found yet with no output. waiting for 1 second and trying again...");
      goesOn = time.pause();
      continue;
    }
    CVNLogDebug("found data from sc_auth. parsing.");
    if (const auto text = hashTextIn(listing)) {
      // Text that is no hash also ends the search: waiting would not change it.
      return encodings::dataWithHexString(*text);
    }
    CVNLog("no paired identity found yet. waiting for 1 second and trying again...");
    goesOn = time.pause();
  }
  return std::nullopt;
}

}  // namespace requests
