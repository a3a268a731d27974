#include "remote/KeyRequests.hpp"

#include <utility>

namespace remote {
namespace {

// Open questions of one machine. A person answers them one by one.
constexpr std::size_t kMostQuestions = 64;

// A use that takes less keeps nobody waiting on the loop's thread. Handing it to another thread and
// back takes a tenth of a millisecond where the processor has to wake up.
constexpr std::chrono::milliseconds kFast{1};

const char *verbOf(std::int64_t command) {
  return command == QuillCommandSignData ? "sign" : "decrypt";
}

RefusalReporter::Time now() {
  return std::chrono::steady_clock::now();
}

}  // namespace

void KeyRequests::serve(const QuillMessage &request) {
  const bool isSigning = request.command == QuillCommandSignData;
  // an answer without an ID would not find its way back
  if ((!isSigning && request.command != QuillCommandDecryptData) || !request.messageID) {
    return;
  }
  const auto &hash = isSigning ? request.signingCertificateHash : request.objectID;
  const auto &data = isSigning ? request.dataToSign : request.dataToDecrypt;
  const CardKey *key = hash ? services_.keys.find(*hash) : nullptr;
  if (key == nullptr || !data) {
    source_.refusals.say("refused to " + std::string(verbOf(request.command)) + " for " +
                             source_.name + ": the request names no key of this card",
                         now());
    return sendRefusal(request.command, *request.messageID);
  }
  const crypto::PublicKey publicKey = key->identity.key.publicKey();
  const KeyVerdict verdict = isSigning ? judgeSigning(publicKey, *data, key->authenticates)
                                       : judgeDecryption(publicKey, *data, key->authenticates);
  const auto use =
      std::make_shared<const Use>(Use{key, request.command, *request.messageID, *data,
                                      verdict.operation.value_or(KeyOperation::rawRSA)});
  if (!verdict.operation) {
    return refuse(*use, verdict.description);
  }
  if (!source_.quota.tryAcquire(use, data->size())) {
    return refuse(*use, "too many requests wait for the keys");
  }
  allow(use, verdict.description);
}

void KeyRequests::allow(const SharedUse &use, const std::string &description) {
  if (services_.withoutConsent) {
    return allowed_.push_back(use);
  }
  if (!services_.consent.canAsk()) {
    return refuse(*use, "there is no terminal to ask for consent (--no-confirm allows all)");
  }
  if (services_.consent.waiting(source_.asker) >= kMostQuestions) {
    return refuse(*use, "too many questions wait for an answer");
  }
  services_.consent.ask(
      source_.asker,
      source_.name + " wants to " + verbOf(use->command) + " " + description + " with the key \"" +
          use->key->label + "\". Allow it?",
      /*inFull=*/false, [weak = weak_from_this(), use](Consent::Reply reply) {
        const auto self = weak.lock();
        if (!self) {
          return;
        }
        if (reply == Consent::Reply::yes) {
          return self->allowed_.push_back(use);
        }
        self->refuse(*use, reply == Consent::Reply::no ? "you said no" : "this program ends");
      });
}

void KeyRequests::performAllowed() {
  const std::vector<SharedUse> uses = std::exchange(allowed_, {});
  if (uses.size() == 1 && services_.pool.isIdle()) {
    const auto last = lastTimes_.find(uses.front()->key);
    if (last != lastTimes_.end() && last->second < kFast) {
      return finish(*uses.front(), perform(*uses.front()));
    }
  }
  for (const SharedUse &use : uses) {
    performElsewhere(use);
  }
}

void KeyRequests::performElsewhere(const SharedUse &use) {
  services_.pool.run([weak = weak_from_this(), use, executor = services_.executor] {
    if (weak.expired()) {
      return;  // nobody waits for the answer any more
    }
    executor->post([weak, use, result = std::make_shared<KeyResult>(perform(*use))] {
      if (const auto self = weak.lock()) {
        self->finish(*use, std::move(*result));
      }
    });
  });
}

KeyRequests::KeyResult KeyRequests::perform(const Use &use) {
  const auto began = std::chrono::steady_clock::now();
  Error error;
  KeyResult result;
  result.content = remote::perform(use.operation, use.key->identity.key, use.data, &error);
  result.failure = std::move(error.description);
  result.time = std::chrono::steady_clock::now() - began;
  return result;
}

void KeyRequests::finish(const Use &use, KeyResult result) {
  lastTimes_[use.key] = result.time;
  if (result.content) {
    answer(use, std::move(*result.content));
  } else {
    refuse(use, result.failure);
  }
}

void KeyRequests::answer(const Use &use, SecretBytes content) {
  const ByteView bytes = content.reveal();
  const bool isSigning = use.command == QuillCommandSignData;
  const QuillMessage reply =
      isSigning ? QuillMessage::initWithReplyMessageForSignMessage(
                      /*status=*/true, use.messageID, Bytes(bytes.begin(), bytes.end()))
                : QuillMessage::initWithReplyMessageForDecryptDataWithStatus(
                      /*status=*/true, use.messageID, std::move(content));
  if (source_.send(reply)) {
    services_.console.say((isSigning ? "signed with " : "decrypted with ") + use.key->label +
                          " for " + source_.name);
  }
}

void KeyRequests::refuse(const Use &use, const std::string &reason) {
  source_.refusals.say("refused to " + std::string(verbOf(use.command)) + " with " +
                           use.key->label + " for " + source_.name + ": " + reason,
                       now());
  sendRefusal(use.command, use.messageID);
}

void KeyRequests::sendRefusal(std::int64_t command, const UUID &messageID) {
  (void)source_.send(
      command == QuillCommandSignData
          ? QuillMessage::initWithReplyMessageForSignMessage(/*status=*/false, messageID, {})
          : QuillMessage::initWithReplyMessageForDecryptDataWithStatus(/*status=*/false, messageID,
                                                                       SecretBytes()));
}

}  // namespace remote
