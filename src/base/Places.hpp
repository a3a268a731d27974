#pragma once

#include <cstdint>

namespace base {

// Ports and paths by which the daemon and its clients find each other. Paths are not mapped under
// the root yet: the code that opens one does that (base::rooted).

// Remote clients connect to kPublicPort, programs on this machine to the other port on 127.0.0.1.
inline constexpr std::uint16_t kPublicPort = 4116;
inline constexpr std::uint16_t kLoopbackPort = 4117;

// An empty file that tells the token driver that a card is inserted.
inline constexpr const char *kCardMarkerFolder = "/tmp";
inline constexpr const char *kCardMarker = "/tmp/scinsert";

// The daemon's TLS certificate. Clients on this machine pin its public key.
inline constexpr const char *kServerCertificate = "/etc/keyferry/server.pem";

// The daemon's state, readable by root alone (protocol/StateKeys.hpp).
inline constexpr const char *kStateFile = "/run/keyferry/state.json";

}  // namespace base
