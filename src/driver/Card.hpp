#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"
#include "crypto/Certificate.hpp"

namespace driver {

// One certificate of the card, with what is known of its key.
struct CardIdentity {
  crypto::Certificate certificate;
  Bytes certificateHash;  // SHA-1 of its DER bytes: names it in requests
  Bytes publicKeyHash;    // SHA-1 of the public key's exported bytes, never empty: the object ID
  std::string label;
  bool canSign = false;
  bool canDecrypt = false;
  bool canUnwrap = false;
};

// What the card holds, as it was read at one time; the order is the card's.
using CardContent = std::vector<CardIdentity>;

// How a use of a key ended.
enum class RequestOutcome {
  done,      // the answer is there
  refused,   // status false while the card is still there: a refusal, a wrong PIN
  cardGone,  // the card is not there, or went and stayed away for 5 s
  timedOut,  // no answer within the time limit
  failed,    // the daemon can't be reached or answered something unusable
};

struct RequestResult {
  RequestOutcome outcome = RequestOutcome::failed;
  SecretBytes answer;  // the signature, the raw decrypted block, or the shared X coordinate
};

// The card that remote clients insert, as the token driver sees it. Any thread may call; no lock is
// held while a call waits for the daemon, so a slow use never delays another.
class Card {
 public:
  virtual ~Card() = default;

  // Whether a card is there now. Looks at the marker and what is known already, or asks the daemon
  // where no marker can be seen; never waits for the key's holder.
  [[nodiscard]] virtual bool isPresent() = 0;

  // What the card holds now; null if none is there or the list can't be had. Read again only when
  // the marker has changed.
  [[nodiscard]] virtual std::shared_ptr<const CardContent> content() = 0;

  // For a use of a key that finds no card. Where the card that was there has gone together with its
  // daemon, which may be restarting, waits until both are back, at most 3 s from when the card was
  // missed first. Returns at once where the card is there or none ever was, and soon where the
  // daemon runs without it.
  virtual void awaitRestart() = 0;

  // A number that changes whenever a card came or went. Never waits.
  [[nodiscard]] virtual std::uint64_t generation() = 0;

  // Has the holder sign or decrypt. What `data` is, and what comes back, depends on the kind of
  // key; it is not looked into here. Blocks, at most as long as the time limit.
  [[nodiscard]] virtual RequestResult sign(const CardIdentity &identity, ByteView data,
                                           const SecretText &pin) = 0;
  [[nodiscard]] virtual RequestResult decrypt(const CardIdentity &identity, ByteView data,
                                              const SecretText &pin) = 0;

  // Why the daemon could not be asked the last time, in one line; empty if it could.
  [[nodiscard]] virtual std::string lastError() = 0;

  // For a process that got this card through fork: lets go of the connection without a word.
  virtual void abandon() = 0;
};

}  // namespace driver
