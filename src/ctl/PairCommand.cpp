#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "base/DisplayText.hpp"
#include "ctl/Commands.hpp"
#include "ctl/DaemonState.hpp"
#include "ctl/PairKey.hpp"
#include "ctl/PairingHash.hpp"
#include "encodings/HexString.hpp"

namespace ctl {
namespace {

using std::chrono::minutes;
using std::chrono::seconds;

// Whoever sets a device up has it in hand.
constexpr minutes kJustNow(10);

struct DeviceOptions {
  std::string user;
  std::string hash;
  bool replace = false;
};

// Those that have tried just now, the newest first.
std::vector<DaemonState::UnpairedDevice> devicesAtHand(const DaemonState &state) {
  std::vector<DaemonState::UnpairedDevice> devices;
  const auto now = std::chrono::system_clock::now();
  std::ranges::copy_if(state.unpaired, std::back_inserter(devices), [&](const auto &device) {
    return device.lastTried <= now && now - device.lastTried < kJustNow;
  });
  std::ranges::reverse(devices);
  return devices;
}

std::string lineAbout(const DaemonState::UnpairedDevice &device) {
  const auto age = std::chrono::floor<seconds>(std::chrono::system_clock::now() - device.lastTried);
  return base::inGroups(encodings::hexString(device.publicKeyHash)) + "  from " +
         base::displayText(device.address) + ", " + std::to_string(age.count()) + " s ago";
}

Outcome pairWith(Bytes hash, const DeviceOptions &options, Invocation &invocation) {
  const std::string command = "kfyctl pair " + options.user + " " + encodings::hexString(hash);
  return pairKey({options.user, std::move(hash)}, {"kfyctl", command, options.replace}, invocation);
}

// False unless a person says yes.
bool isConfirmed(const DeviceOptions &options, Invocation &invocation) {
  invocation.notes << "Does the device show the same digits? Pair it with \"" << options.user
                   << "\"? [y/N] " << std::flush;
  std::string answer;
  std::getline(invocation.input, answer);
  return answer == "y" || answer == "yes";
}

Outcome pairDevice(const DeviceOptions &options, Invocation &invocation) {
  Error error;
  if (!options.hash.empty()) {
    auto hash = publicKeyHashFromText(options.hash, &error);
    return hash ? pairWith(std::move(*hash), options, invocation)
                : Failure{error.description, "kfy-remote keys"};
  }
  const auto state = readDaemonState(&error);
  if (!state) {
    return failureFrom(error, "kfyctl pair " + options.user, "sudo kfyctl status");
  }
  const auto devices = devicesAtHand(*state);
  if (devices.empty()) {
    return Failure{"no device that is not paired has tried to connect within ten minutes",
                   "kfy-remote setup HOST"};
  }
  for (const DaemonState::UnpairedDevice &device : devices) {
    invocation.notes << lineAbout(device) << '\n';
  }
  const std::string first = encodings::hexString(devices.front().publicKeyHash);
  if (devices.size() > 1) {
    return Failure{"several devices have tried to connect; name the one to pair",
                   "kfyctl pair " + options.user + " " + first};
  }
  if (!isConfirmed(options, invocation)) {
    return Failure{"nothing was changed", "kfyctl pair " + options.user + " " + first};
  }
  return pairWith(devices.front().publicKeyHash, options, invocation);
}

}  // namespace

void addPairCommand(CLI::App &app, Invocation &invocation) {
  const auto options = std::make_shared<DeviceOptions>();
  CLI::App *const command = app.add_subcommand(
      "pair", "let a device stand for a user, the one that just tries to connect");
  command->add_option("USER", options->user, "a user of this machine")->required();
  command->add_option("HASH", options->hash,
                      "the 40 digits of the device's key; default: of a device that has tried "
                      "to connect within ten minutes");
  command->add_flag("--replace", options->replace, "instead of the key that is paired now");
  command->callback(
      [options, &invocation] { invocation.outcome = pairDevice(*options, invocation); });
}

}  // namespace ctl
