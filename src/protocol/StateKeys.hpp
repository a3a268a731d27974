#pragma once

// The keys of the JSON object in base::kStateFile.
namespace protocol::state_keys {

inline constexpr const char *kStarted = "started";  // seconds since 1970, UTC
inline constexpr const char *kProcess = "pid";
inline constexpr const char *kConnections = "connections";          // objects; a long list is cut
inline constexpr const char *kConnectionCount = "connectionCount";  // of all connections
inline constexpr const char *kPending = "pending";                  // requests that wait
inline constexpr const char *kRelays = "relays";  // since the start, as is the next one
inline constexpr const char *kRefusals = "refusals";
inline constexpr const char *kLimits = "limits";  // an object: setting, how often it was reached
inline constexpr const char *kUnpaired =
    "unpaired";  // objects: devices that are paired with nobody

// Of an unpaired device; its address stands under kAddress.
inline constexpr const char *kPublicKeyHash = "publicKeyHash";  // 40 hexadecimal digits
inline constexpr const char *kLastTried = "lastTried";          // seconds since 1970, UTC

// Of a connection.
inline constexpr const char *kAddress = "address";
inline constexpr const char *kPort = "port";
inline constexpr const char *kLocal = "local";
inline constexpr const char *kAuthenticated = "authenticated";
inline constexpr const char *kCards = "cards";  // certificates' SHA-1 hashes; a long list is cut

}  // namespace protocol::state_keys
