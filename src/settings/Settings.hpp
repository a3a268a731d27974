#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/UserDefaults.hpp"

// Every setting of the system, in one table. Each is looked up where it is used, so that a change
// takes effect at once. A number below the minimum, or a value of another type, counts as absent. A
// number above the maximum counts as the maximum.
namespace settings {

// The domains beside the process's standard user defaults: the daemon's TLS identity, and the token
// driver.
inline constexpr std::string_view kIdentityDomain = "com.corvane.kfyd";
inline constexpr std::string_view kDriverDomain = "pkcs11";

enum class SettingType { boolean, integer, text, certificateHash, pinMode };

// A row of the table.
struct Setting {
  const char *key;
  std::string_view domain;
  SettingType type;
  const char *meaning;
  std::int64_t valueIfAbsent = 0;  // of numbers; of booleans 0 or 1
  const char *textIfAbsent = "";   // of texts; empty: none
  std::int64_t least = 0;          // of numbers, as the next
  std::int64_t most = 0;
};

// Practically no limit, and small enough for time arithmetic.
inline constexpr std::int64_t kLargestNumber = std::int64_t{1} << 31;

// A setting that is a number.
struct Bound : Setting {
  constexpr Bound(const char *name, std::int64_t absent, std::int64_t lowest, const char *about,
                  std::string_view where = platform::kStandardDefaults,
                  std::int64_t highest = kLargestNumber)
      : Setting{name, where, SettingType::integer, about, absent, "", lowest, highest} {}
};

// A setting that is true or false.
struct Switch : Setting {
  constexpr Switch(const char *name, bool isOn, const char *about,
                   std::string_view where = platform::kStandardDefaults)
      : Setting{name, where, SettingType::boolean, about, isOn ? 1 : 0} {}
};

// A setting that is a text of some kind.
struct Text : Setting {
  constexpr Text(const char *name, const char *absent, const char *about,
                 std::string_view where = platform::kStandardDefaults,
                 SettingType kind = SettingType::text)
      : Setting{name, where, kind, about, 0, absent} {}
};

// The daemon's TLS identity.
inline constexpr Text kIdentityHash{"ssl_certificate_sha1_hash", "",
                                    "SHA-1 hash of the certificate of kfyd's TLS identity",
                                    kIdentityDomain, SettingType::certificateHash};
inline constexpr Text kIdentityName{
    "ssl_certificate_common_name", "",
    "label of kfyd's TLS identity, in lower case; counts where no hash is set", kIdentityDomain};
inline constexpr Text kTLSTokenPINFile{
    "tlsTokenPinFile", "", "root-only file with the PIN of a token that holds kfyd's TLS identity"};

// Debug mode and its log.
inline constexpr Switch kDebugLogging{"debugLogging", /*isOn=*/false,
                                      "debug mode: frames and passwords stand in the log"};
inline constexpr Switch kVerboseLogging{"verboseLogging", /*isOn=*/false,
                                        "debug mode also traces the keychain's certificates"};
inline constexpr Text kLogFolderPath{
    "LogFolderPath", "", "an existing folder for the log of debug mode, instead of /tmp/kfy"};
inline constexpr Text kLogFileName{"LogFileName", "Keyferry.log",
                                   "name of the log file in that folder"};

// The token driver.
inline constexpr Bound kTimeLimitSeconds{
    "timeLimitSeconds",
    60,
    1,
    "how long one use of a key may take in a program, the question at the device too",
    kDriverDomain,
    3600};
inline constexpr Switch kShowEd25519{
    "showEd25519", /*isOn=*/false,
    "programs also see Ed25519 keys, beside which some find no key at all", kDriverDomain};
inline constexpr Text kPINMode{
    "pinMode", "none",
    "\"none\": no login; \"pass\": programs log in with a PIN, \"protected\": without one",
    kDriverDomain, SettingType::pinMode};

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

// Settings that close gaps of the protocol. While they are off, each command behaves as prescribed.
inline constexpr Switch kInsertRequiresAuthentication{
    "insertRequiresAuthentication", /*isOn=*/false,
    "only an authenticated client may insert a card"};
inline constexpr Switch kListRequiresAuthentication{
    "listRequiresAuthentication", /*isOn=*/false,
    "only programs on this machine and authenticated clients may read the card's list"};
inline constexpr Switch kAnswersOnlyFromHolder{
    "answersOnlyFromHolder", /*isOn=*/false, "only the client that was asked may answer a request"};
inline constexpr Switch kCardEndsWithItsConnection{
    "cardEndsWithItsConnection", /*isOn=*/false,
    "only the end of the connection that inserted the card withdraws it"};
inline constexpr Switch kNewestRemoteFirst{
    "newestRemoteFirst", /*isOn=*/false, "of several clients that hold a key the newest is asked"};
inline constexpr Switch kRelayAuthenticationKey{
    "relayAuthenticationKey", /*isOn=*/true,
    "programs may also use the key with which the client authenticated"};
inline constexpr Switch kRefuseRepeatedMessageID{
    "refuseRepeatedMessageID", /*isOn=*/false,
    "a request whose message ID waits for another program's answer is refused"};
inline constexpr Switch kRedactUnifiedLog{"redactUnifiedLog", /*isOn=*/false,
                                          "entries of the machine's log become kfy:<private>"};

// With blanks between the names.
inline constexpr Text kLocalUsers{
    "localUsers", "", "names of those who may connect on this machine beside root; all if empty"};

// The table, in the order in which it is listed.
inline constexpr auto kSettings = std::to_array<const Setting *>({
    &kIdentityHash,
    &kIdentityName,
    &kDebugLogging,
    &kVerboseLogging,
    &kLogFolderPath,
    &kLogFileName,
    &kTLSTokenPINFile,
    &kTimeLimitSeconds,
    &kPINMode,
    &kShowEd25519,
    &kLocalUsers,
    &kInsertRequiresAuthentication,
    &kListRequiresAuthentication,
    &kAnswersOnlyFromHolder,
    &kCardEndsWithItsConnection,
    &kNewestRemoteFirst,
    &kRelayAuthenticationKey,
    &kRefuseRepeatedMessageID,
    &kRedactUnifiedLog,
    &kHandshakeSeconds,
    &kMaxHandshakes,
    &kMaxHandshakesPerAddress,
    &kMaxPublicConnections,
    &kMaxConnectionsPerAddress,
    &kMaxLocalConnections,
    &kMaxLocalConnectionsPerUser,
    &kMaxFrameBytes,
    &kMaxUnsentBytes,
    &kMaxBufferedBytes,
    &kStalledOutputSeconds,
    &kMaxPendingPerConnection,
    &kMaxPending,
    &kPairingToolSeconds,
    &kPairingToolBytes,
    &kPairingSeconds,
    &kConnectsPerMinute,
    &kUnauthenticatedSeconds,
    &kStrangerLogBytesPerSecond,
});

// The setting with this key in the domain; null if there is none.
[[nodiscard]] const Setting *settingWithKey(std::string_view key, std::string_view domain);

// The value of a number.
[[nodiscard]] std::int64_t valueOf(const Bound &bound, platform::UserDefaults &defaults);

[[nodiscard]] bool isOn(const Switch &setting, platform::UserDefaults &defaults);

// For people: "a number from 1 to 3600", "true or false".
[[nodiscard]] std::string kindOf(const Setting &setting);

// The default value as it is written; empty: none.
[[nodiscard]] std::string writtenDefault(const Setting &setting);

// A value as it is written, a text without its quotes.
[[nodiscard]] std::string written(const platform::SettingValue &value);

}  // namespace settings
