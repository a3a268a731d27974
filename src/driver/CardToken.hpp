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

// Creates the card of the token. Called at the first use after each C_Initialize. The journal
// outlives the card.
using CardFactory = std::unique_ptr<Card> (*)(const DriverSettings &settings, Journal &journal);

// What the key's holder is asked to do.
enum class CardOperation { sign, decrypt };

// The token in the slot: the card, its objects and the login state. Thread-safe. The lock is never
// held during a request to the daemon or the key's holder.
class CardToken {
 public:
  CardToken(CardFactory factory, HandleCounter &handles) : factory_(factory), builder_(handles) {}

  // For the child of a fork; see Card.
  void abandon();

  // See Card.
  [[nodiscard]] bool isPresent() { return card().isPresent(); }
  [[nodiscard]] std::uint64_t generation() { return card().generation(); }

  // See Card. For calls that use a key, not for those that only look.
  void awaitRestart() { card().awaitRestart(); }

  // The generation at the program's first use of the token. Only later changes are slot events.
  [[nodiscard]] std::uint64_t firstGeneration();

  // The card's current objects; null if there is no card.
  [[nodiscard]] std::shared_ptr<const CardObjects> objects();

  [[nodiscard]] PinMode pinMode();
  [[nodiscard]] bool isLoggedIn();

  // True if the program may see and use the object now.
  [[nodiscard]] bool isAccessible(const Object &object) {
    return !object.has(CKA_PRIVATE) || isLoggedIn();
  }

  // C_Login as CKU_USER, and C_Logout. The PIN is sent with later requests to this card only: it is
  // cleared as soon as another card is seen.
  [[nodiscard]] CK_RV logIn(SecretText pin);
  [[nodiscard]] CK_RV logOut();

  // Asks the holder to sign or decrypt with a private key. CKR_OK and the answer; otherwise the
  // reason, which is also written to the journal.
  [[nodiscard]] CK_RV request(CardOperation operation, const Object &privateKey, ByteView data,
                              SecretBytes &answer);

  // Writes a line to the journal.
  void report(const std::string &line) { journal_.report(line); }

 private:
  struct Login {
    SecretText pin;
    std::string serialNumber;  // of the card at login; empty if there was none
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
  std::atomic<Card *> card_{nullptr};  // the same card; read without a lock after a fork

  std::mutex mutex_;
  CardObjectBuilder builder_;
  std::shared_ptr<const CardObjects> objects_;
  std::unique_ptr<Login> login_;
};

}  // namespace driver
