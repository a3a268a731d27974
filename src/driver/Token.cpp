#include "driver/Token.hpp"

#include "driver/OpenSSLContext.hpp"

namespace driver {
namespace {

struct Trouble {
  CK_RV result;
  const char *cause;
  const char *remedy;
};

// What a program is told, and what the user finds in the journal, which says more.
Trouble troubleOf(UseOutcome outcome) {
  switch (outcome) {
    case UseOutcome::done:
      return {CKR_OK, "", ""};
    case UseOutcome::refused:
      return {CKR_FUNCTION_REJECTED, "the key's holder refused",
              "look at what kfy-remote says on the device that holds the key"};
    case UseOutcome::cardGone:
      return {CKR_DEVICE_REMOVED, "the card is gone",
              "connect the device that holds the key, then kfyctl status"};
    case UseOutcome::timedOut:
      return {CKR_FUNCTION_FAILED, "no answer within timeLimitSeconds",
              "answer the question on the device that holds the key, or raise timeLimitSeconds in "
              "/etc/keyferry/pkcs11.toml"};
    case UseOutcome::failed:
      return {CKR_DEVICE_ERROR, "kfyd can't be reached or answered something unusable",
              "kfyctl doctor"};
  }
  return {CKR_GENERAL_ERROR, "", ""};
}

}  // namespace

Card &Token::card() {
  std::call_once(once_, [this] {
    workInOwnContext();
    settings_ = readSettings([this](const std::string &line) { journal_.report(line); });
    owned_ = factory_(settings_, journal_);
    firstGeneration_ = owned_->generation();
    card_ = owned_.get();
  });
  return *card_;
}

void Token::abandon() {
  if (Card *const inherited = card_) {
    inherited->abandon();
  }
}

std::uint64_t Token::firstGeneration() {
  static_cast<void>(card());
  return firstGeneration_;
}

PinMode Token::pinMode() {
  static_cast<void>(card());
  return settings_.pinMode;
}

std::shared_ptr<const CardObjects> Token::objects() {
  const std::shared_ptr<const CardContent> content = card().content();
  if (!content || content->empty()) {
    reportMissingContent();
    return nullptr;
  }
  const std::lock_guard lock(mutex_);
  if (!objects_ || objects_->content != content) {
    objects_ = maker_.objectsOf(content, settings_);
    if (objects_->objects.empty()) {
      report(
          "the card holds Ed25519 keys alone, which programs are not shown; try: kfyctl defaults "
          "write showEd25519 true");
    }
  }
  if (login_ && login_->serialNumber != objects_->serialNumber) {
    login_.reset();
  }
  return objects_;
}

void Token::reportMissingContent() {
  const std::string trouble = card().lastTrouble();
  if (!isPresent()) {
    report(
        "the program wants the card's objects, but no card is there; try: connect the device that "
        "holds the key, then kfyctl status");
  } else if (!trouble.empty()) {
    report("the card is there, but what it holds can't be read: " + trouble +
           "; try: kfyctl doctor");
  }
}

bool Token::isLoggedIn() {
  const std::lock_guard lock(mutex_);
  return login_ != nullptr;
}

CK_RV Token::logIn(SecretText pin) {
  const auto now = objects();
  if (!now) {
    return CKR_DEVICE_REMOVED;
  }
  const std::lock_guard lock(mutex_);
  if (login_) {
    return CKR_USER_ALREADY_LOGGED_IN;
  }
  login_ = std::make_unique<Login>();
  login_->serialNumber = now->serialNumber;
  if (settings_.pinMode == PinMode::pass) {
    login_->pin = std::move(pin);
  }
  return CKR_OK;
}

CK_RV Token::logOut() {
  const std::lock_guard lock(mutex_);
  const bool wasLoggedIn = login_ != nullptr;
  login_.reset();
  return wasLoggedIn ? CKR_OK : CKR_USER_NOT_LOGGED_IN;
}

SecretText Token::pinForNow() {
  const std::lock_guard lock(mutex_);
  return login_ ? login_->pin : SecretText();
}

CK_RV Token::ask(KeyRequest request, const Object &privateKey, ByteView data, SecretBytes &answer) {
  if (!isOpenTo(privateKey)) {
    return CKR_USER_NOT_LOGGED_IN;
  }
  const SecretText pin = pinForNow();
  const CardIdentity &identity = *privateKey.identity;
  UseResult use = request == KeyRequest::sign ? card().sign(identity, data, pin)
                                              : card().decrypt(identity, data, pin);
  const Trouble trouble = troubleOf(use.outcome);
  if (trouble.result == CKR_OK) {
    answer = std::move(use.answer);
  } else {
    const char *const what = request == KeyRequest::sign ? "signing" : "decrypting";
    const std::string cause =
        use.outcome == UseOutcome::failed ? card().lastTrouble() : std::string();
    report(std::string(what) + " with the key \"" + identity.label +
           "\" failed: " + (cause.empty() ? trouble.cause : cause) + "; try: " + trouble.remedy);
  }
  return trouble.result;
}

}  // namespace driver
