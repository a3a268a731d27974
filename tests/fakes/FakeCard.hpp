#pragma once

#include <functional>
#include <map>

#include "driver/CardToken.hpp"
#include "fakes/MadeKeys.hpp"

namespace fakes {

// A card with real keys, and the behaviour of its holder as a test sets it. It outlives the
// driver's view of it, so there is a single one, which factory() shows.
struct CardInHand {
  std::mutex mutex;
  std::map<Bytes, crypto::PrivateKey> keys;  // by certificate hash
  std::shared_ptr<const driver::CardContent> content;
  std::uint64_t generation = 1;
  driver::RequestOutcome outcome = driver::RequestOutcome::done;
  bool answersWrongly = false;
  int uses = 0;
  std::string lastPin;
  std::string lastFailure;
  int abandoned = 0;
  std::function<void()> meanwhile;  // runs once, when the card's content is read next

  static CardInHand &instance() {
    static CardInHand card;
    return card;
  }

  // Inserts a card with these keys, labelled "key 0" and so on.
  void insert(const std::vector<crypto::PrivateKey> &inserted) {
    driver::CardContent made;
    for (const crypto::PrivateKey &key : inserted) {
      const auto &[certificate, own] =
          identityOf(key, "card holder " + std::to_string(made.size()));
      made.push_back({certificate, certificate.sha1(), *key.publicKey().hash(),
                      "key " + std::to_string(made.size()), /*canSign=*/true, /*canDecrypt=*/true,
                      /*canUnwrap=*/true});
      keys.insert_or_assign(made.back().certificateHash, key);
    }
    show(std::make_shared<const driver::CardContent>(std::move(made)));
  }

  // Inserts a card with this content; null removes it.
  void show(std::shared_ptr<const driver::CardContent> shown) {
    const std::lock_guard lock(mutex);
    content = std::move(shown);
    ++generation;
  }

  static std::unique_ptr<driver::Card> factory(const driver::DriverSettings &settings,
                                               driver::Journal &journal);
};

class FakeCard : public driver::Card {
 public:
  bool isPresent() override { return content() != nullptr; }
  std::shared_ptr<const driver::CardContent> content() override {
    if (const auto event = std::exchange(card_.meanwhile, nullptr)) {
      event();
    }
    const std::lock_guard lock(card_.mutex);
    return card_.content;
  }
  void awaitRestart() override {}
  std::uint64_t generation() override {
    const std::lock_guard lock(card_.mutex);
    return card_.generation;
  }
  driver::RequestResult sign(const driver::CardIdentity &identity, ByteView data,
                             const SecretText &pin) override {
    return use(identity, pin, [&](const crypto::PrivateKey &key) { return signature(key, data); });
  }
  driver::RequestResult decrypt(const driver::CardIdentity &identity, ByteView data,
                                const SecretText &pin) override {
    return use(identity, pin, [&](const crypto::PrivateKey &key) {
      return key.publicKey().type() == crypto::KeyType::rsa ? key.rawRSA(data)
                                                            : key.deriveECDH(data);
    });
  }
  std::string lastError() override { return card_.lastFailure; }
  void abandon() override { ++card_.abandoned; }

 private:
  static std::optional<SecretBytes> signature(const crypto::PrivateKey &key, ByteView data) {
    const auto secret = [](const std::optional<Bytes> &made) {
      return made ? std::optional(SecretBytes(ByteView(*made))) : std::nullopt;
    };
    switch (key.publicKey().type()) {
      case crypto::KeyType::rsa:
        return data.size() * 8 + 7 >= static_cast<std::size_t>(key.publicKey().bits())
                   ? key.rawRSA(data)
                   : secret(key.signRawPKCS1(data));
      case crypto::KeyType::ec:
        return secret(key.signDigestECDSA(data));
      default:
        return secret(key.signEd25519(data));
    }
  }

  template <typename Operation>
  driver::RequestResult use(const driver::CardIdentity &identity, const SecretText &pin,
                            Operation &&operation) {
    ++card_.uses;
    card_.lastPin = pin.reveal();
    if (!isPresent() || card_.outcome != driver::RequestOutcome::done) {
      return {isPresent() ? card_.outcome : driver::RequestOutcome::cardGone, {}};
    }
    const auto answer = operation(card_.keys.at(identity.certificateHash));
    if (!answer) {
      return {driver::RequestOutcome::refused, {}};
    }
    Bytes bytes(answer->reveal().begin(), answer->reveal().end());
    bytes.back() ^= card_.answersWrongly ? 1 : 0;
    return {driver::RequestOutcome::done, SecretBytes(ByteView(bytes))};
  }

  CardInHand &card_ = CardInHand::instance();
};

inline std::unique_ptr<driver::Card> CardInHand::factory(const driver::DriverSettings &,
                                                         driver::Journal &) {
  return std::make_unique<FakeCard>();
}

}  // namespace fakes
