#pragma once

#include <array>
#include <cstdint>

#include "platform/UserDefaults.hpp"

// The settings in the process's standard user defaults that bound what the daemon holds, or change
// what it does. Each is looked up where it is used, so that a change takes effect at once. A value
// that is of another type or below the least counts as absent.
namespace support {

// A setting that is a number.
struct Bound {
  const char *key;
  std::int64_t valueIfAbsent;
  std::int64_t least;
  const char *meaning;
};

// A setting that is true or false.
struct Switch {
  const char *key;
  bool valueIfAbsent;
  const char *meaning;
};

// The network.
inline constexpr Bound kHandshakeSeconds{"handshakeSeconds", 10, 1,
                                         "how long a TLS handshake may take"};
inline constexpr Bound kMaxHandshakes{"maxHandshakes", 256, 1,
                                      "unfinished handshakes on each of the two ports"};
inline constexpr Bound kMaxHandshakesPerAddress{
    "maxHandshakesPerAddress", 16, 1, "unfinished handshakes from one address on the public port"};
inline constexpr Bound kMaxPublicConnections{"maxPublicConnections", 512, 1,
                                             "connections on the public port"};
inline constexpr Bound kMaxConnectionsPerAddress{"maxConnectionsPerAddress", 32, 1,
                                                 "connections from one address on the public port"};
inline constexpr Bound kMaxLocalConnections{"maxLocalConnections", 4096, 1,
                                            "connections of programs on this machine"};
inline constexpr Bound kMaxLocalConnectionsPerUser{
    "maxLocalConnectionsPerUser", 1024, 1,
    "connections of one user's programs on this machine; root has no such bound"};
inline constexpr Bound kMaxFrameBytes{"maxFrameBytes", 2 << 20, 64 << 10,
                                      "the longest frame, markers included"};
inline constexpr Bound kMaxUnsentBytes{"maxUnsentBytes", 4 << 20, 64 << 10,
                                       "what may wait to be sent on one connection"};
inline constexpr Bound kMaxBufferedBytes{"maxBufferedBytes", 64 << 20, 1 << 20,
                                         "what all connections together may hold in memory"};
inline constexpr Bound kStalledOutputSeconds{
    "stalledOutputSeconds", 45, 1,
    "how long a peer may take nothing of what waits for it before it is dropped"};

// Requests.
inline constexpr Bound kMaxPendingPerConnection{
    "maxPendingPerConnection", 1024, 1,
    "relayed requests of one connection that wait for an answer"};
inline constexpr Bound kMaxPending{"maxPending", 16384, 1,
                                   "all relayed requests that wait for an answer"};
inline constexpr Bound kPairingToolSeconds{"pairingToolSeconds", 20, 1,
                                           "how long one run of the pairing listing may take"};
inline constexpr Bound kPairingToolBytes{"pairingToolBytes", 1 << 20, 1,
                                         "how much one run of the pairing listing may print"};
inline constexpr Bound kPairingSeconds{
    "pairingSeconds", 0, 0,
    "how long all runs of the pairing listing for one client may take; 0: 30 attempts"};
inline constexpr Bound kConnectsPerMinute{
    "connectsPerMinute", 0, 0, "how often one address may begin to authenticate; 0: no limit"};
inline constexpr Bound kUnauthenticatedSeconds{
    "unauthenticatedSeconds", 0, 0,
    "after this time a remote client that has not authenticated is dropped; 0: never"};

inline constexpr Bound kStrangerLogBytesPerSecond{
    "strangerLogBytesPerSecond", 0, 0,
    "what remote clients that have not authenticated may have written to the logs; 0: no limit"};

inline constexpr std::array kBounds{
    kHandshakeSeconds,
    kMaxHandshakes,
    kMaxHandshakesPerAddress,
    kMaxPublicConnections,
    kMaxConnectionsPerAddress,
    kMaxLocalConnections,
    kMaxLocalConnectionsPerUser,
    kMaxFrameBytes,
    kMaxUnsentBytes,
    kMaxBufferedBytes,
    kStalledOutputSeconds,
    kMaxPendingPerConnection,
    kMaxPending,
    kPairingToolSeconds,
    kPairingToolBytes,
    kPairingSeconds,
    kConnectsPerMinute,
    kUnauthenticatedSeconds,
    kStrangerLogBytesPerSecond,
};

// What closes a gap that the protocol leaves open. Off, each command does what it always did.
inline constexpr Switch kInsertRequiresAuthentication{
    "insertRequiresAuthentication", false, "only an authenticated client may insert a card"};
inline constexpr Switch kListRequiresAuthentication{
    "listRequiresAuthentication", false,
    "only programs on this machine and authenticated clients may read the card's list"};
inline constexpr Switch kAnswersOnlyFromHolder{
    "answersOnlyFromHolder", false, "only the client that was asked may answer a request"};
inline constexpr Switch kCardEndsWithItsConnection{
    "cardEndsWithItsConnection", false,
    "only the end of the connection that inserted the card withdraws it"};
inline constexpr Switch kNewestRemoteFirst{
    "newestRemoteFirst", false, "of several clients that hold a key the newest is asked"};
inline constexpr Switch kRelayAuthenticationKey{
    "relayAuthenticationKey", true,
    "programs may also use the key with which the client authenticated"};
inline constexpr Switch kRefuseRepeatedMessageID{
    "refuseRepeatedMessageID", false,
    "a request whose message ID waits for another program's answer is refused"};
inline constexpr Switch kRedactUnifiedLog{"redactUnifiedLog", false,
                                          "entries of the machine's log become kfy:<private>"};

inline constexpr std::array kSwitches{
    kInsertRequiresAuthentication, kListRequiresAuthentication, kAnswersOnlyFromHolder,
    kCardEndsWithItsConnection,    kNewestRemoteFirst,          kRelayAuthenticationKey,
    kRefuseRepeatedMessageID,      kRedactUnifiedLog,
};

// The names, with blanks between them, of those who may connect on this machine beside root. Absent
// or empty: everybody.
inline constexpr const char *kLocalUsers = "localUsers";

// The value of a bound, 2^31 at most: so much is no limit any more, and clocks still count in it.
[[nodiscard]] std::int64_t valueOf(const Bound &bound, platform::UserDefaults &defaults);

[[nodiscard]] bool isOn(const Switch &setting, platform::UserDefaults &defaults);

}  // namespace support
