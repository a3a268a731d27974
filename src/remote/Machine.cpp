#include "remote/Machine.hpp"

#include <utility>

#include "identity/FingerprintText.hpp"
#include "remote/AuthenticationKey.hpp"
#include "remote/Console.hpp"
#include "support/HexString.hpp"

namespace remote {
namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

// Each `connect` that finds no user can hold the daemon's queue for half a minute.
constexpr minutes kWaitAfterNoUser(5);
// A daemon may take only so many `connect` a minute.
constexpr minutes kWaitAfterRefusal(1);
constexpr seconds kWaitForRemoval(2);
constexpr milliseconds kWaitForGoodbye(500);
constexpr std::size_t kMostQuestions = 64;

const char *verbOf(std::int64_t command) {
  return command == QuillCommandSignData ? "sign" : "decrypt";
}

std::string secondsOf(milliseconds wait) {
  return std::to_string((wait.count() + 999) / 1000) + " s";
}

}  // namespace

Machine::Machine(Address address, std::optional<Fingerprint> pinned, const Services &services)
    : address_(std::move(address)), pinned_(std::move(pinned)), services_(services) {}

std::string Machine::suffix(const char *preposition) const {
  return services_.isAlone ? "" : std::string(" ") + preposition + " " + address_.name();
}

void Machine::turn() {
  if (connection_) {
    connection_->pump();
    const std::shared_ptr<client::Connection> connection = connection_;
    while (connection_ == connection) {
      const auto message = connection->take();
      if (!message) {
        break;
      }
      handle(*message);
    }
    if (connection_ == connection && connection->end()) {
      loseConnection(connection->end()->description);
    }
  }
  if (std::chrono::steady_clock::now() < dueAt_) {
    return;
  }
  if (phase_ == Phase::waiting) {
    open();
  } else if (phase_ == Phase::leaving) {
    giveUp();
  } else if (phase_ != Phase::finished) {
    loseConnection("no answer within " + secondsOf(client::kDefaultWait));
  }
}

void Machine::open() {
  Error error;
  const auto pinned = pinned_ ? pinned_ : services_.knownHosts.find(address_, &error);
  if (!error.description.empty()) {
    complain(error.description);
    return giveUp();
  }
  if (!pinned && !services_.consent.canAsk()) {
    complain(address_.name() + " is not known yet, and there is no terminal to ask whether to " +
             "trust it");
    advise("kfy-remote connect " + address_.name() +
           " --fingerprint SHA256, as shown there by: sudo kfyctl identity show");
    return giveUp();
  }
  phase_ = Phase::opening;
  dueAt_ = client::Deadline::max();
  services_.openings.begin(
      address_, pinned,
      [weak = weak_from_this(), attempt = ++attempt_,
       isPinned = pinned.has_value()](const Opened &opened) {
        const auto self = weak.lock();
        if (!self || self->attempt_ != attempt || self->phase_ != Phase::opening) {
          return;
        }
        self->opened(opened);
        if (self->connection_ && isPinned) {
          self->start();
        } else if (self->connection_) {
          self->askForTrust(*opened.shown);
        }
      });
}

void Machine::opened(const Opened &opened) {
  connection_ = opened.connection;
  if (connection_) {
    return;
  }
  if (opened.error.code == client::keyNotPinned && opened.shown) {
    sayUntrusted(*opened.shown);
    return giveUp();
  }
  const milliseconds wait = backoff_.next();
  complain(opened.error.description + "; next attempt in " + secondsOf(wait));
  retryAfter(wait);
}

void Machine::sayUntrusted(const Fingerprint &shown) const {
  complain("the server at " + address_.name() +
           " is not the one that was trusted: it may have a new certificate, or somebody may be "
           "in between; nothing was sent to it");
  warn("it shows " + identity::fingerprintText(shown));
  if (pinned_) {
    warn("--fingerprint says " + identity::fingerprintText(*pinned_));
  } else {
    advise("on that machine: sudo kfyctl identity show, and here, only if it shows the same: " +
           services_.knownHosts.removalCommand(address_));
  }
}

void Machine::askForTrust(const Fingerprint &shown) {
  phase_ = Phase::trusting;
  services_.consent.ask(
      this,
      address_.name() + " is not known yet. Its certificate has the fingerprint\n  " +
          identity::fingerprintText(shown) +
          "\nwhich \"sudo kfyctl identity show\" has to show on that machine. Trust it?",
      /*inFull=*/true, [weak = weak_from_this(), attempt = attempt_, shown](Consent::Reply reply) {
        const auto self = weak.lock();
        if (!self || self->attempt_ != attempt || reply == Consent::Reply::withdrawn) {
          return;
        }
        if (reply == Consent::Reply::no) {
          complain("the server at " + self->address_.name() + " is not trusted");
          return self->giveUp();
        }
        Error error;
        if (!self->services_.knownHosts.add(self->address_, shown, &error)) {
          warn("the trust can't be remembered: " + error.description);
        }
        self->start();
      });
}

void Machine::start() {
  say("connected to " + address_.text());
  expectReply(Phase::connecting, QuillMessage::initCommandMessageConnectWithCertificate(
                                     {services_.authenticationKeyHash}));
}

void Machine::handle(const QuillMessage &message) {
  if (message.messageType == QuillMessageTypeRequest) {
    // before the card is inserted nobody can mean its keys
    if (phase_ == Phase::serving || phase_ == Phase::inserting) {
      serve(message);
    }
    return;
  }
  if (!awaitedReply_ || message.messageID != awaitedReply_) {
    return;
  }
  awaitedReply_.reset();
  switch (phase_) {
    case Phase::connecting:
      return authenticate(message);
    case Phase::authenticating:
      if (!message.status) {
        complain(address_.name() + " did not accept the authentication; next attempt in " +
                 secondsOf(kWaitAfterNoUser));
        return retryAfter(kWaitAfterNoUser);
      }
      say("authenticated" + suffix("at"));
      return expectReply(Phase::inserting,
                         QuillMessage::initCommandMessageInsertSmartCardWithCertificates(
                             services_.keys.cardList()));
    case Phase::inserting:
      return insert(message);
    case Phase::leaving:
      say("card removed" + suffix("at"));
      return giveUp();
    case Phase::waiting:
    case Phase::opening:
    case Phase::trusting:
    case Phase::serving:
    case Phase::finished:
      return;
  }
}

void Machine::authenticate(const QuillMessage &reply) {
  const std::string reason = reply.errorMessage.value_or("");
  if (!reply.status && reason.empty()) {
    complain(address_.name() + " refused to connect; next attempt in " +
             secondsOf(kWaitAfterRefusal));
    return retryAfter(kWaitAfterRefusal);
  }
  if (!reply.status || reply.selectedCertificateHash != services_.authenticationKeyHash) {
    complain(address_.name() + " has not paired this key with a user" +
             (reason.empty() ? "" : ": " + reason) + "; next attempt in " +
             secondsOf(kWaitAfterNoUser));
    advise("on that machine: sudo sc_auth pair --user USER --hash " +
           support::hexString(services_.authenticationKeyHash));
    return retryAfter(kWaitAfterNoUser);
  }
  Error error;
  auto signature = answerToChallenge(reply.challenge, services_.authentication, &error);
  if (!signature && error.domain == "challenge") {
    complain(address_.name() + " " + error.description);
    return retryAfter(kWaitAfterNoUser);
  }
  if (!signature) {
    complain("the authentication key can't sign: " + error.description);
    return giveUp();
  }
  expectReply(Phase::authenticating,
              QuillMessage::initCommandMessageAuthenticateWithSignature(
                  std::move(*signature), services_.authentication.certificate.der()));
}

void Machine::insert(const QuillMessage &reply) {
  if (!reply.status) {
    return loseConnection("the card was not accepted");
  }
  phase_ = Phase::serving;
  dueAt_ = client::Deadline::max();
  backoff_.reset();
  const std::size_t count = services_.keys.keys().size();
  say("card inserted: " + std::to_string(count) + (count == 1 ? " key" : " keys") + suffix("at"));
}

void Machine::serve(const QuillMessage &request) {
  const bool isSigning = request.command == QuillCommandSignData;
  // without an ID no answer finds its way back
  if ((!isSigning && request.command != QuillCommandDecryptData) || !request.messageID) {
    return;
  }
  const auto &hash = isSigning ? request.signingCertificateHash : request.objectID;
  const auto &data = isSigning ? request.dataToSign : request.dataToDecrypt;
  const CardKey *key = hash ? services_.keys.find(*hash) : nullptr;
  if (key == nullptr || !data) {
    warn("refused to " + std::string(verbOf(request.command)) + " for " + address_.name() +
         ": the request names no key of this card");
    return refuse(request.command, *request.messageID);
  }
  const crypto::PublicKey publicKey = key->identity.key.publicKey();
  const KeyUse keyUse = isSigning ? useForSigning(publicKey, *data, key->authenticates)
                                  : useForDecryption(publicKey, *data, key->authenticates);
  Use use{key, request.command, *request.messageID, *data, {}};
  if (!keyUse.operation) {
    sayRefused(use, keyUse.description);
    return refuse(use.command, use.messageID);
  }
  use.operation = *keyUse.operation;
  allow(use, keyUse.description);
}

void Machine::allow(const Use &use, const std::string &description) {
  if (services_.withoutConsent) {
    return perform(use);
  }
  if (!services_.consent.canAsk() || services_.consent.waiting(this) >= kMostQuestions) {
    sayRefused(use, services_.consent.canAsk()
                        ? "too many questions wait for an answer"
                        : "there is no terminal to ask for consent (--no-confirm allows all)");
    return refuse(use.command, use.messageID);
  }
  services_.consent.ask(
      this,
      address_.name() + " wants to " + verbOf(use.command) + " " + description +
          " with the key \"" + use.key->label + "\". Allow it?",
      /*inFull=*/false, [weak = weak_from_this(), attempt = attempt_, use](Consent::Reply reply) {
        const auto self = weak.lock();
        if (!self || self->attempt_ != attempt) {
          return;
        }
        if (reply == Consent::Reply::yes) {
          return self->perform(use);
        }
        self->sayRefused(use, reply == Consent::Reply::no ? "you said no" : "this program ends");
        self->refuse(use.command, use.messageID);
      });
}

void Machine::perform(const Use &use) {
  services_.pool.run(
      [weak = weak_from_this(), attempt = attempt_, use, mailbox = services_.mailbox] {
        Error error;
        auto result = remote::perform(use.operation, use.key->identity.key, use.data, &error);
        mailbox->post([weak, attempt, use, result = std::move(result),
                       failure = std::move(error.description)] {
          const auto self = weak.lock();
          if (self && self->attempt_ == attempt) {
            self->answer(use, result, failure);
          }
        });
      });
}

void Machine::answer(const Use &use, std::optional<SecretBytes> result,
                     const std::string &failure) {
  if (!result) {
    sayRefused(use, failure);
    return refuse(use.command, use.messageID);
  }
  const ByteView content = result->reveal();
  const bool isSigning = use.command == QuillCommandSignData;
  const QuillMessage reply =
      isSigning ? QuillMessage::initWithReplyMessageForSignMessage(
                      /*status=*/true, use.messageID, Bytes(content.begin(), content.end()))
                : QuillMessage::initWithReplyMessageForDecryptDataWithStatus(
                      /*status=*/true, use.messageID, std::move(*result));
  if (send(reply)) {
    say((isSigning ? "signed with " : "decrypted with ") + use.key->label + " for " +
        address_.name());
  }
}

void Machine::refuse(std::int64_t command, const UUID &messageID) {
  (void)send(command == QuillCommandSignData
                 ? QuillMessage::initWithReplyMessageForSignMessage(/*status=*/false, messageID, {})
                 : QuillMessage::initWithReplyMessageForDecryptDataWithStatus(
                       /*status=*/false, messageID, SecretBytes()));
}

void Machine::sayRefused(const Use &use, const std::string &reason) const {
  warn("refused to " + std::string(verbOf(use.command)) + " with " + use.key->label + " for " +
       address_.name() + ": " + reason);
}

bool Machine::send(const QuillMessage &message) {
  Error error;
  if (!connection_) {
    return false;
  }
  if (!connection_->send(message, &error)) {
    loseConnection(error.description);
    return false;
  }
  return true;
}

void Machine::expectReply(Phase phase, const QuillMessage &request) {
  phase_ = phase;
  awaitedReply_ = request.messageID;
  dueAt_ = std::chrono::steady_clock::now() +
           (phase == Phase::leaving ? kWaitForRemoval : client::kDefaultWait);
  (void)send(request);
}

void Machine::loseConnection(const std::string &reason) {
  if (phase_ == Phase::leaving) {
    return giveUp();
  }
  const milliseconds wait = backoff_.next();
  say("disconnected from " + address_.text());
  complain(address_.name() + ": " + reason + "; next attempt in " + secondsOf(wait));
  retryAfter(wait);
}

void Machine::retryAfter(milliseconds wait) {
  closeConnection();
  phase_ = Phase::waiting;
  dueAt_ = std::chrono::steady_clock::now() + wait;
}

void Machine::giveUp() {
  closeConnection();
  phase_ = Phase::finished;
  dueAt_ = client::Deadline::max();
}

void Machine::closeConnection() {
  ++attempt_;
  awaitedReply_.reset();
  services_.consent.withdraw(this);
  if (connection_) {
    connection_->goodbye(
        client::Patience::lasting(phase_ == Phase::leaving ? kWaitForGoodbye : milliseconds(0)));
    connection_.reset();
  }
}

void Machine::leave() {
  // whoever waits for an answer gets a refusal while there is still a way
  services_.consent.withdraw(this);
  if (phase_ == Phase::serving || phase_ == Phase::inserting) {
    expectReply(Phase::leaving, QuillMessage::initCommandMessageRemoveSmartCard());
  } else if (phase_ != Phase::leaving) {
    giveUp();
  }
}

}  // namespace remote
