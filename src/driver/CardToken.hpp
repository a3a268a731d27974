#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "base/Secret.hpp"
#include "driver/Card.hpp"
#include "driver/CardObjects.hpp"
#include "driver/DriverSettings.hpp"
#include "driver/Journal.hpp"

namespace driver {

// Makes the card that the token shows. Called once in each life of the driver, at its first use.
// The journal outlives the card.
using CardFactory = std::unique_ptr<Card> (*)(const DriverSettings &settings, Journal &journal);

// What a key's holder is asked to do.
enum class CardOperation { sign, decrypt };

// The token in the one slot: the card, its objects, and whether the user has logged in. For any
// thread; its lock is never held while the daemon or the key's holder is asked.
class CardToken {
 public:
  CardToken(CardFactory factory, HandleCounter &handles) : factory_(factory), builder_(handles) {}

  // For a process that got this through fork; see Card.
  void abandon();

  // See Card.
  [[nodiscard]] bool isPresent() { return card().isPresent(); }
  [[nodiscard]] std::uint64_t generation() { return card().generation(); }

  // See Card: for calls that use a key, not for those that only look.
  void awaitRestart() { card().awaitRestart(); }

  // The generation when the program first looked at the token: what it has seen since then it need
  // not be told.
  [[nodiscard]] std::uint64_t firstGeneration();

  // The card's objects as they are now, null while there is no card.
  [[nodiscard]] std::shared_ptr<const CardObjects> objects();

  [[nodiscard]] PinMode pinMode();
  [[nodiscard]] bool isLoggedIn();

  // Whether a program may see and use the object now.
  [[nodiscard]] bool isAccessible(const Object &object) {
    return !object.has(CKA_PRIVATE) || isLoggedIn();
  }

  // C_Login as CKU_USER and C_Logout. The PIN goes with later requests about this card alone: one
  // that belongs to another holder is forgotten as soon as another card is seen.
  [[nodiscard]] CK_RV logIn(SecretText pin);
  [[nodiscard]] CK_RV logOut();

  // Has the holder sign or decrypt with a private key. CKR_OK and the answer, else the reason as
  // programs are told it; it then also stands in the journal.
  [[nodiscard]] CK_RV request(CardOperation operation, const Object &privateKey, ByteView data,
                              SecretBytes &answer);

  // A line for the journal about this card's key.
  void report(const std::string &line) { journal_.report(line); }

 private:
  struct Login {
    SecretText pin;
    std::string serialNumber;  // of the card that was there; empty if none was
  };

  [[nodiscard]] Card &card();
  void reportMissingContent();
  [[nodiscard]] SecretText currentPin();

  CardFactory factory_;
  Journal journal_;
  std::once_flag once_;
  DriverSettings settings_;
  std::uint64_t firstGeneration_ = 0;
  std::unique_ptr<Card> owned_;
  std::atomic<Card *> card_{nullptr};  // the same, to be found without a lock after fork

  std::mutex mutex_;
  CardObjectBuilder builder_;
  std::shared_ptr<const CardObjects> objects_;
  std::unique_ptr<Login> login_;
};

}  // namespace driver
