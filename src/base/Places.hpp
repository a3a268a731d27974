#pragma once

#include <cstdint>

namespace base {

// Where the daemon and its clients find each other. Paths are those of the system: whoever uses one
// maps it under the root.

// Remote clients come to this port, programs on this machine to the other one on 127.0.0.1.
inline constexpr std::uint16_t kPublicPort = 4116;
inline constexpr std::uint16_t kLoopbackPort = 4117;

// An empty file that tells the token driver that a card is inserted.
inline constexpr const char *kCardMarkerFolder = "/tmp";
inline constexpr const char *kCardMarker = "/tmp/scinsert";

// The certificate that the daemon shows, for clients on this machine to pin its public key.
inline constexpr const char *kServerCertificate = "/etc/keyferry/server.pem";

// What the daemon tells root of itself (protocol/StateKeys.hpp).
inline constexpr const char *kStateFile = "/run/keyferry/state.json";

}  // namespace base
