#include "requests/PairingListing.hpp"

#include <array>
#include <chrono>
#include <cstddef>
#include <string>

#include "base/UTF8.hpp"
#include "support/CVNLog.hpp"
#include "support/HexString.hpp"
#include "support/Settings.hpp"

namespace requests {
namespace {

constexpr const char *kTool = "/usr/sbin/sc_auth";
constexpr const char *kToolFolder = "/var";
constexpr std::string_view kTokenHeader = "SmartCard: com.corvane.keyferry.ctkextension";
constexpr std::string_view kPairedSection = "Paired identities which are used for authentication";
constexpr std::size_t kHashCharacters = 40;
constexpr int kAttempts = 30;
constexpr std::chrono::seconds kPause{1};

platform::RunLimits limitsOfOneRun(platform::UserDefaults &defaults) {
  return {std::chrono::seconds(support::valueOf(support::kPairingToolSeconds, defaults)),
          static_cast<std::size_t>(support::valueOf(support::kPairingToolBytes, defaults))};
}

Bytes runTool(const RequestProcessor::Platform &platform) {
  CVNLogDebug("running /usr/sbin/sc_auth identities to get bound user hash");
  const std::array<std::string, 1> arguments{"identities"};
  const support::BlockingStep step;
  return platform.tools.outputOf(kTool, arguments, kToolFolder, limitsOfOneRun(platform.defaults))
      .value_or(Bytes{});
}

void pause(const RequestProcessor::Platform &platform) {
  const support::BlockingStep step;
  platform.clock.pause(kPause);
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
    if (isHeaderSeen && line.find(kPairedSection) != std::string_view::npos) {
      isSectionSeen = true;
      CVNLogDebug("found identity section. parsing");
    }
    if (line.find(kTokenHeader) != std::string_view::npos) {
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
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const Bytes listing = runTool(platform);
    if (listing.empty()) {
      CVNLog(
          "no paired identity found yet with no output. waiting for 1 second and trying again...");
      pause(platform);
      continue;
    }
    CVNLogDebug("found data from sc_auth. parsing.");
    if (const auto text = hashTextIn(listing)) {
      // Text that is no hash ends the search as well: waiting would not mend it.
      return support::dataWithHexString(*text);
    }
    CVNLog("no paired identity found yet. waiting for 1 second and trying again...");
    pause(platform);
  }
  return std::nullopt;
}

}  // namespace requests
