#include "driver/CardToken.hpp"

#include "driver/OpenSSLContext.hpp"

namespace driver {
namespace {

struct Failure {
  CK_RV result;
  const char *cause;
  const char *remedy;
};

// The result for the program, and the text for the journal.
Failure failureOf(RequestOutcome outcome) {
  switch (outcome) {
    case RequestOutcome::done:
      return {CKR_OK, "", ""};
    case RequestOutcome::refused:
      return {CKR_FUNCTION_REJECTED, "the key's holder refused",
              "look at what kfy-remote says on the device that holds the key"};
    case RequestOutcome::cardGone:
      return {CKR_DEVICE_REMOVED, "the card is gone",
              "connect the device that holds the key, then kfyctl status"};
    case RequestOutcome::timedOut:
      return {CKR_FUNCTION_FAILED, "no answer within timeLimitSeconds",
              "answer the question on the device that holds the key, or raise timeLimitSeconds in "
              "/etc/keyferry/pkcs11.toml"};
    case RequestOutcome::failed:
      return {CKR_DEVICE_ERROR, "kfyd is unreachable or its answer is unusable", "kfyctl doctor"};
  }
  return {CKR_GENERAL_ERROR, "", ""};
}

}  // namespace

Card &CardToken::card() {
  std::call_once(once_, [this] {
    useOwnOpenSSLContext();
    settings_ = readDriverSettings([this](const std::string &line) { journal_.report(line); });
    owned_ = factory_(settings_, journal_);
    firstGeneration_ = owned_->generation();
    card_ = owned_.get();
  });
  return *card_;
}

void CardToken::abandon() {
  if (Card *const inherited = card_) {
    inherited->abandon();
  }
}

std::uint64_t CardToken::firstGeneration() {
  static_cast<void>(card());
  return firstGeneration_;
}

PinMode CardToken::pinMode() {
  static_cast<void>(card());
  return settings_.pinMode;
}

std::shared_ptr<const CardObjects> CardToken::objects() {
  const std::shared_ptr<const CardContent> content = card().content();
  if (!content || content->empty()) {
    reportMissingContent();
    return nullptr;
  }
  const std::lock_guard lock(mutex_);
  if (!objects_ || objects_->content != content) {
    objects_ = builder_.objectsOf(content, settings_);
    if (objects_->objects.empty()) {
      report(
          "the card has only Ed25519 keys, which are hidden from programs; try: kfyctl defaults "
          "write showEd25519 true");
    }
  }
  if (login_ && login_->serialNumber != objects_->serialNumber) {
    login_.reset();
  }
  return objects_;
}

void CardToken::reportMissingContent() {
  const std::string failure = card().lastError();
  if (!isPresent()) {
    report(
        "the program asked for the card's objects, but no card is inserted; try: connect the "
        "device that "
        "holds the key, then kfyctl status");
  } else if (!failure.empty()) {
    report("the list of the card's certificates can't be read: " + failure +
           "; try: kfyctl doctor");
  }
}

bool CardToken::isLoggedIn() {
  const std::lock_guard lock(mutex_);
  return login_ != nullptr;
}

CK_RV CardToken::logIn(SecretText pin) {
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

CK_RV CardToken::logOut() {
  const std::lock_guard lock(mutex_);
  const bool wasLoggedIn = login_ != nullptr;
  login_.reset();
  return wasLoggedIn ? CKR_OK : CKR_USER_NOT_LOGGED_IN;
}

SecretText CardToken::currentPin() {
  const std::lock_guard lock(mutex_);
  return login_ ? login_->pin : SecretText();
}

CK_RV CardToken::request(CardOperation operation, const Object &privateKey, ByteView data,
                         SecretBytes &answer) {
  if (!isAccessible(privateKey)) {
    return CKR_USER_NOT_LOGGED_IN;
  }
  const SecretText pin = currentPin();
  const CardIdentity &identity = *privateKey.identity;
  RequestResult result = operation == CardOperation::sign ? card().sign(identity, data, pin)
                                                          : card().decrypt(identity, data, pin);
  const Failure failure = failureOf(result.outcome);
  if (failure.result == CKR_OK) {
    answer = std::move(result.answer);
  } else {
    const char *const what = operation == CardOperation::sign ? "signing" : "decrypting";
    const std::string cause =
        result.outcome == RequestOutcome::failed ? card().lastError() : std::string();
    report(std::string(what) + " with the key \"" + identity.label +
           "\" failed: " + (cause.empty() ? failure.cause : cause) + "; try: " + failure.remedy);
  }
  return failure.result;
}

}  // namespace driver
