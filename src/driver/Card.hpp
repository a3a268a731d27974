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

// A certificate on the card and the properties of its key.
struct CardIdentity {
  crypto::Certificate certificate;
  Bytes certificateHash;  // SHA-1 of the DER encoding; identifies the certificate in requests
  Bytes publicKeyHash;    // SHA-1 of the exported public key, never empty; used as CKA_ID
  std::string label;
  bool canSign = false;
  bool canDecrypt = false;
  bool canUnwrap = false;
};

// The content of the card at the time of reading, in the card's order.
using CardContent = std::vector<CardIdentity>;

// How a request to the key's holder ended.
enum class RequestOutcome {
  done,      // the answer is available
  refused,   // status false although the card is present: refused, or a wrong PIN
  cardGone,  // no card, or it was removed during the request and stayed away for 5 s
  timedOut,  // no answer within the time limit
  failed,    // the daemon is unreachable or its answer is unusable
};

struct RequestResult {
  RequestOutcome outcome = RequestOutcome::failed;
  SecretBytes answer;  // the signature, the raw decrypted block, or the shared X coordinate
};

// The card that a remote client inserted, as the token driver sees it. Thread-safe. No lock is held
// while a call waits for the daemon, so a slow request never delays another.
class Card {
 public:
  virtual ~Card() = default;

  // True if a card is present. Uses the card marker and the cache, or asks the daemon if the marker
  // is hidden. Never waits for the key's holder.
  [[nodiscard]] virtual bool isPresent() = 0;

  // The content of the card; null if there is no card or the list can't be read. Read again only
  // after the marker changed.
  [[nodiscard]] virtual std::shared_ptr<const CardContent> content() = 0;

  // Call before a request that needs a missing card. If the card disappeared together with its
  // daemon, which may be restarting, waits until both are back, at most 3 s from when the card was
  // first missed. Returns at once if the card is present or there never was one, and soon if the
  // daemon runs without it.
  virtual void awaitRestart() = 0;

  // A number that changes whenever a card is inserted or removed. Never waits.
  [[nodiscard]] virtual std::uint64_t generation() = 0;

  // Asks the holder to sign or decrypt. The meaning of `data` and of the answer depends on the type
  // of key and is not checked here. Blocks until the time limit at most.
  [[nodiscard]] virtual RequestResult sign(const CardIdentity &identity, ByteView data,
                                           const SecretText &pin) = 0;
  [[nodiscard]] virtual RequestResult decrypt(const CardIdentity &identity, ByteView data,
                                              const SecretText &pin) = 0;

  // The error of the last request to the daemon, in one line; empty if it succeeded.
  [[nodiscard]] virtual std::string lastError() = 0;

  // For the child of a fork: closes the connection and sends nothing.
  virtual void abandon() = 0;
};

}  // namespace driver
