#include "ctl/DaemonState.hpp"

#include <sys/types.h>

#include <boost/json.hpp>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <string_view>
#include <utility>

#include "base/Files.hpp"
#include "base/Places.hpp"
#include "base/Root.hpp"
#include "ctl/PairingHash.hpp"
#include "protocol/ParsedJSON.hpp"
#include "protocol/StateKeys.hpp"

namespace ctl {
namespace {

namespace json = boost::json;
namespace keys = protocol::state_keys;

constexpr std::size_t kLargestStateFile = std::size_t{16} << 20;

std::int64_t numberUnder(const json::object &object, std::string_view key) {
  const json::value *value = object.if_contains(key);
  const std::int64_t *number = value == nullptr ? nullptr : value->if_int64();
  return number == nullptr ? 0 : *number;
}

bool isTrueUnder(const json::object &object, std::string_view key) {
  const json::value *value = object.if_contains(key);
  const bool *truth = value == nullptr ? nullptr : value->if_bool();
  return truth != nullptr && *truth;
}

const json::array *arrayUnder(const json::object &object, std::string_view key) {
  const json::value *value = object.if_contains(key);
  return value == nullptr ? nullptr : value->if_array();
}

std::string textUnder(const json::object &object, std::string_view key) {
  const json::value *value = object.if_contains(key);
  const json::string *text = value == nullptr ? nullptr : value->if_string();
  return text == nullptr ? "" : std::string(std::string_view(*text));
}

DaemonState::Peer peerFrom(const json::object &object) {
  DaemonState::Peer peer;
  peer.address = textUnder(object, keys::kAddress);
  peer.port = numberUnder(object, keys::kPort);
  peer.isLocal = isTrueUnder(object, keys::kLocal);
  peer.isAuthenticated = isTrueUnder(object, keys::kAuthenticated);
  const json::array *cards = arrayUnder(object, keys::kCards);
  peer.certificates = cards == nullptr ? 0 : cards->size();
  return peer;
}

std::vector<DaemonState::Peer> peersIn(const json::object &object) {
  std::vector<DaemonState::Peer> peers;
  const json::array *connections = arrayUnder(object, keys::kConnections);
  for (const json::value &element : connections == nullptr ? json::array() : *connections) {
    if (const json::object *connection = element.if_object()) {
      peers.push_back(peerFrom(*connection));
    }
  }
  return peers;
}

std::vector<DaemonState::Limit> limitsIn(const json::object &object) {
  std::vector<DaemonState::Limit> limits;
  const json::value *value = object.if_contains(keys::kLimits);
  const json::object *counts = value == nullptr ? nullptr : value->if_object();
  for (const json::key_value_pair &member : counts == nullptr ? json::object() : *counts) {
    limits.push_back({std::string(std::string_view(member.key())),
                      numberUnder(*counts, std::string_view(member.key()))});
  }
  return limits;
}

bool isRunning(std::int64_t pid) {
  return pid > 0 && std::in_range<pid_t>(pid) &&
         (::kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH);
}

// A time that the clock can't hold counts as missing.
std::chrono::system_clock::time_point timeFrom(std::int64_t secondsSince1970) {
  using std::chrono::seconds;
  using std::chrono::system_clock;
  constexpr auto kLatest = std::chrono::floor<seconds>(system_clock::duration::max()).count();
  const bool isTime = secondsSince1970 >= 0 && secondsSince1970 <= kLatest;
  return system_clock::time_point(seconds(isTime ? secondsSince1970 : 0));
}

std::vector<DaemonState::UnpairedDevice> unpairedIn(const json::object &object) {
  std::vector<DaemonState::UnpairedDevice> devices;
  const json::array *const list = arrayUnder(object, keys::kUnpaired);
  for (const json::value &element : list == nullptr ? json::array() : *list) {
    const json::object *const device = element.if_object();
    const auto hash = device == nullptr
                          ? std::nullopt
                          : publicKeyHashFromText(textUnder(*device, keys::kPublicKeyHash));
    if (hash) {
      devices.push_back({textUnder(*device, keys::kAddress), *hash,
                         timeFrom(numberUnder(*device, keys::kLastTried))});
    }
  }
  return devices;
}

}  // namespace

std::string daemonStatePath() {
  return base::rooted(base::kStateFile);
}

std::optional<DaemonState> readDaemonState(Error *error) {
  const auto content = base::readFile(daemonStatePath(), kLargestStateFile, error);
  if (!content) {
    return std::nullopt;
  }
  const protocol::ParsedJSON parsed(*content);
  const json::object *object = parsed.value() == nullptr ? nullptr : parsed.value()->if_object();
  if (object == nullptr) {
    base::report(error, "state", 0, daemonStatePath() + " holds no state of kfyd");
    return std::nullopt;
  }
  DaemonState state;
  state.json = base::textOf(*content);
  state.pid = numberUnder(*object, keys::kProcess);
  state.isRunning = isRunning(state.pid);
  state.started = timeFrom(numberUnder(*object, keys::kStarted));
  state.peers = peersIn(*object);
  state.connections = numberUnder(*object, keys::kConnectionCount);
  state.pending = numberUnder(*object, keys::kPending);
  state.relays = numberUnder(*object, keys::kRelays);
  state.refusals = numberUnder(*object, keys::kRefusals);
  state.limits = limitsIn(*object);
  state.unpaired = unpairedIn(*object);
  return state;
}

}  // namespace ctl
