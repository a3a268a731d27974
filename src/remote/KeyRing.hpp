#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "base/Secret.hpp"
#include "crypto/Identity.hpp"
#include "protocol/CardList.hpp"

namespace remote {

// A key that is inserted as part of the card.
struct CardKey {
  std::string label;
  crypto::Identity identity;
  Bytes certificateSHA1;
  Bytes publicKeyHash;
  bool authenticates = false;  // it is also the authentication key
};

// Gives the password of a key file for attempt 0, 1, … Nothing, with the reason, if there is no
// further password.
using PasswordSource =
    std::function<std::optional<SecretText>(const std::string &file, int attempt, Error *error)>;

// The keys of the card. Immutable, so threads may share it.
class KeyRing {
 public:
  // Reads a key and its certificate from each file (PEM or PKCS #12). The label of a key is the one
  // of `labels` at its place, else its certificate's common name, else the file's name.
  // `authenticationKeyHash` marks a key that is also the authentication key. Nothing, with the
  // reason, if any file can't be used.
  [[nodiscard]] static std::optional<KeyRing> load(std::span<const std::string> files,
                                                   std::span<const std::string> labels,
                                                   ByteView authenticationKeyHash,
                                                   const PasswordSource &passwords,
                                                   Error *error = nullptr);

  [[nodiscard]] std::span<const CardKey> keys() const { return keys_; }

  // The key whose certificate has this SHA-1 digest; null if there is none.
  [[nodiscard]] const CardKey *find(ByteView certificateSHA1) const;

  // The list that `insert` sends.
  [[nodiscard]] std::shared_ptr<const protocol::CardList> cardList() const;

  // True if the list holds exactly these keys' certificates under these labels.
  [[nodiscard]] bool areThoseOf(const protocol::CardList &list) const;

 private:
  std::vector<CardKey> keys_;
};

}  // namespace remote
