#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/Bytes.hpp"
#include "base/Error.hpp"

namespace ctl {

// The daemon's state file, which is for root.
struct DaemonState {
  // One connection.
  struct Peer {
    std::string address;
    std::int64_t port = 0;
    bool isLocal = false;
    bool isAuthenticated = false;
    std::size_t certificates = 0;
  };

  // A limit that was reached.
  struct Limit {
    std::string setting;
    std::int64_t times = 0;
  };

  // A device that wanted to authenticate and is paired with nobody.
  struct UnpairedDevice {
    std::string address;
    Bytes publicKeyHash;
    std::chrono::system_clock::time_point lastTried;
  };

  std::string json;  // the file as it is
  std::int64_t pid = 0;
  bool isRunning = false;  // that process is still there
  std::chrono::system_clock::time_point started;
  std::vector<Peer> peers;       // may be cut
  std::int64_t connections = 0;  // the number of all
  std::int64_t pending = 0;      // requests that wait for an answer
  std::int64_t relays = 0;       // since the start, like the next
  std::int64_t refusals = 0;
  std::vector<Limit> limits;
  std::vector<UnpairedDevice> unpaired;  // the newest last
};

// Where the file lies, under the root.
[[nodiscard]] std::string daemonStatePath();

// Reads the file. Nothing, with the reason, if it can't be read (errno) or is no state file
// ("state"). Missing members count as empty.
[[nodiscard]] std::optional<DaemonState> readDaemonState(Error *error);

}  // namespace ctl
