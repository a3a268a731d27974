#include "remote/Machine.hpp"

#include <utility>

#include "base/DisplayText.hpp"
#include "encodings/HexString.hpp"
#include "remote/AuthenticationKey.hpp"
#include "remote/Console.hpp"

namespace remote {
namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

// Each `connect` without a paired user can block the daemon for half a minute.
constexpr minutes kWaitAfterNoUser(5);
// A daemon may limit the number of `connect` a minute.
constexpr minutes kWaitAfterRefusal(1);
constexpr seconds kWaitForRemoval(2);
constexpr milliseconds kWaitForGoodbye(500);
// An answer has some hundred bytes. A daemon that leaves thousands unread has stopped reading, and
// its further requests would only add to them.
constexpr std::size_t kMostUnsentBytes = std::size_t{4} * 1024 * 1024;

std::string secondsOf(milliseconds wait) {
  return std::to_string((wait.count() + 999) / 1000) + " s";
}

}  // namespace

Machine::Machine(Address address, std::optional<Fingerprint> pinned, const Services &services)
    : address_(std::move(address)),
      pinned_(std::move(pinned)),
      services_(services),
      refusals_(services.console, address_.name()),
      outage_(services.console, address_.name()) {}

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
    if (const auto requests = requests_) {
      requests->performAllowed();
    }
    if (connection_ == connection && connection->end()) {
      loseConnection(connection->end()->description);
    } else if (connection_ == connection && connection->unsentBytes() > kMostUnsentBytes) {
      loseConnection("it does not take its answers");
    }
  }
  refusals_.turn(std::chrono::steady_clock::now());
  if (std::chrono::steady_clock::now() < dueAt_) {
    return;
  }
  if (phase_ == Phase::waiting) {
    open();
  } else if (phase_ == Phase::leaving) {
    giveUp();
  } else if (phase_ == Phase::serving) {
    checkCard();
  } else if (phase_ == Phase::checking || phase_ == Phase::renewing) {
    serve();  // the daemon is blocked; a dead connection ends by itself
  } else if (phase_ != Phase::finished) {
    holdOff("gave no answer within " + secondsOf(client::kDefaultWait), kWaitAfterRefusal);
  }
}

void Machine::open() {
  Error error;
  const auto pinned = pinned_ ? pinned_ : services_.knownHosts.find(address_, &error);
  if (!error.description.empty()) {
    services_.console.complain(error.description);
    return giveUp();
  }
  if (!pinned && !services_.consent.canAsk()) {
    services_.console.complain(address_.name() +
                               " is not known yet, and there is no terminal to ask whether to " +
                               "trust it");
    services_.console.advise("kfy-remote connect " + address_.name() +
                             " --fingerprint SHA256, as shown there by: sudo kfyctl identity show");
    return giveUp();
  }
  phase_ = Phase::opening;
  attemptBegan_ = std::chrono::steady_clock::now();
  dueAt_ = client::Deadline::max();
  services_.attempts.begin(
      address_, pinned,
      [weak = weak_from_this(), attempt = ++attempt_,
       isPinned = pinned.has_value()](const AttemptOutcome &opened) {
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

void Machine::opened(const AttemptOutcome &opened) {
  connection_ = opened.connection;
  if (connection_) {
    return;
  }
  if (opened.error.code == client::keyNotPinned && opened.shown) {
    sayUntrusted(*opened.shown);
    return giveUp();
  }
  retrySoon(opened.error.description, attemptBegan_);
}

void Machine::start() {
  if (!outage_.isOn()) {
    services_.console.say("connected to " + address_.text());
  }
  if (services_.isSetup) {  // the answer takes half a minute where there is no pairing yet
    services_.console.say("authenticating; if this device is not paired there yet, do it now");
    advisePairing();
  }
  expectReply(Phase::connecting, QuillMessage::initCommandMessageConnectWithCertificate(
                                     {services_.authenticationKeyHash}));
}

void Machine::handle(const QuillMessage &message) {
  if (message.messageType == QuillMessageTypeRequest) {
    const auto requests = requests_;
    if (requests && phase_ != Phase::leaving) {
      requests->serve(message);
    }
    if (phase_ == Phase::serving || phase_ == Phase::checking) {
      serve();  // a card that is used has not been withdrawn
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
        return holdOff("did not accept the authentication", kWaitAfterNoUser);
      }
      if (!outage_.isOn()) {
        services_.console.say("authenticated" + suffix("at"));
      }
      // before `insert` is sent no request can be for its keys
      requests_ = std::make_shared<KeyRequests>(
          KeyRequests::Source{this, address_.name(), quota_, refusals_,
                              [this](const QuillMessage &answer) { return send(answer); }},
          services_);
      return expectReply(Phase::inserting,
                         QuillMessage::initCommandMessageInsertSmartCardWithCertificates(
                             services_.keys.cardList()));
    case Phase::inserting:
      return insert(message);
    case Phase::checking:
      return renewCard(message);
    case Phase::renewing:
      return message.status ? serve() : holdOff("did not accept the card", kWaitAfterRefusal);
    case Phase::leaving:
      services_.console.say("card removed" + suffix("at"));
      return giveUp();
    case Phase::waiting:
    case Phase::opening:
    case Phase::trusting:
    case Phase::pairing:
    case Phase::serving:
    case Phase::finished:
      return;
  }
}

void Machine::authenticate(const QuillMessage &reply) {
  const std::string reason = reply.errorMessage.value_or("");
  if (!reply.status && reason.empty()) {
    return holdOff("refused to connect", kWaitAfterRefusal);
  }
  if (!reply.status || reply.selectedCertificateHash != services_.authenticationKeyHash) {
    return awaitPairing("has not paired this key with a user" +
                        (reason.empty() ? "" : ": " + reason));
  }
  Error error;
  auto signature = answerToChallenge(reply.challenge, services_.authentication, &error);
  if (!signature && error.domain == "challenge") {
    return holdOff(error.description, kWaitAfterNoUser);
  }
  if (!signature) {
    services_.console.complain("the authentication key can't sign: " + error.description);
    return giveUp();
  }
  expectReply(Phase::authenticating,
              QuillMessage::initCommandMessageAuthenticateWithSignature(
                  std::move(*signature), services_.authentication.certificate.der()));
}

void Machine::awaitPairing(const std::string &reason) {
  if (!services_.isSetup || !services_.consent.canAsk()) {
    holdOff(reason, kWaitAfterNoUser);
    return advisePairing();
  }
  services_.console.warn(address_.name() + " " + reason);
  services_.console.say("this device is " +
                        base::inGroups(encodings::hexString(services_.authenticationKeyHash)));
  services_.console.advise("on that machine: sudo kfyctl pair USER");
  closeConnection();
  phase_ = Phase::pairing;
  dueAt_ = client::Deadline::max();
  services_.consent.ask(this, "Is it paired now? Then try again", /*inFull=*/false,
                        [weak = weak_from_this()](Consent::Reply reply) {
                          const auto self = weak.lock();
                          if (self && reply == Consent::Reply::yes) {
                            self->retryAt(client::Deadline::min());
                          } else if (self && reply == Consent::Reply::no) {
                            self->giveUp();
                          }
                        });
}

void Machine::insert(const QuillMessage &reply) {
  if (!reply.status) {
    return holdOff("did not accept the card", kWaitAfterRefusal);
  }
  if (const auto away = outage_.end(std::chrono::steady_clock::now())) {
    services_.console.say("connected to " + address_.text() + " again after " + secondsOf(*away));
  }
  isReplaced_ = false;
  backoff_.reset();
  serve();
  const std::size_t count = services_.keys.keys().size();
  services_.console.say("card inserted: " + std::to_string(count) +
                        (count == 1 ? " key" : " keys") + suffix("at"));
  hasServed_ = true;
  if (services_.isSetup) {
    services_.console.say("all is set up; from now on: kfy-remote connect " + address_.name());
    leave();
  }
}

void Machine::serve() {
  phase_ = Phase::serving;
  awaitedReply_.reset();
  dueAt_ = services_.reinsertion.count() == 0
               ? client::Deadline::max()
               : std::chrono::steady_clock::now() + services_.reinsertion;
}

// The end of another connection may have withdrawn the card, and nothing tells this side. So a card
// that nobody uses is inserted again. Not while a use waits: its asker would then ask a second
// time.
void Machine::checkCard() {
  if (!quota_.isFree()) {
    return serve();
  }
  expectReply(Phase::checking, QuillMessage::initCommandMessageGetCertificates());
}

// Only a card that is still the last one inserted there is inserted again. Otherwise two devices
// would replace each other's card for ever.
void Machine::renewCard(const QuillMessage &reply) {
  const bool isOurs = reply.certificates && services_.keys.areThoseOf(*reply.certificates);
  if (isOurs) {
    isReplaced_ = false;
    return expectReply(
        Phase::renewing,
        QuillMessage::initCommandMessageInsertSmartCardWithCertificates(services_.keys.cardList()));
  }
  if (!std::exchange(isReplaced_, true)) {
    services_.console.warn("another device has put its card in place of this one" + suffix("at") +
                           "; kfy-remote started anew takes its place back");
  }
  serve();
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
  if (!outage_.isOn()) {
    services_.console.say("disconnected from " + address_.text());
  }
  retrySoon(reason, std::chrono::steady_clock::now());
}

// The wait counts from the beginning of the failed attempt.
void Machine::retrySoon(const std::string &reason, client::Deadline began) {
  if (services_.isSetup) {
    services_.console.complain(address_.name() + ": " + reason);
    return giveUp();
  }
  outage_.noteFailure(reason, std::chrono::steady_clock::now());
  retryAt(began + backoff_.next());
}

void Machine::holdOff(const std::string &reason, minutes wait) {
  if (services_.isSetup) {
    services_.console.complain(address_.name() + " " + reason);
    return giveUp();
  }
  (void)outage_.end(std::chrono::steady_clock::now());  // it answers, so this is no outage
  services_.console.complain(address_.name() + " " + reason + "; next attempt in " +
                             secondsOf(wait));
  retryAt(std::chrono::steady_clock::now() + wait);
}

void Machine::retryAt(client::Deadline time) {
  closeConnection();
  phase_ = Phase::waiting;
  dueAt_ = time;
}

void Machine::giveUp() {
  closeConnection();
  refusals_.turn(refusals_.dueAt());
  phase_ = Phase::finished;
  dueAt_ = client::Deadline::max();
}

void Machine::closeConnection() {
  ++attempt_;
  awaitedReply_.reset();
  requests_.reset();
  services_.consent.withdraw(this);
  if (connection_) {
    connection_->close(
        client::WaitLimits::within(phase_ == Phase::leaving ? kWaitForGoodbye : milliseconds(0)));
    connection_.reset();
  }
}

void Machine::leave() {
  // refuse the waiting requests while the connection still stands
  services_.consent.withdraw(this);
  const bool isInserted = phase_ == Phase::serving || phase_ == Phase::checking ||
                          phase_ == Phase::renewing || phase_ == Phase::inserting;
  if (isInserted) {
    expectReply(Phase::leaving, QuillMessage::initCommandMessageRemoveSmartCard());
  } else if (phase_ != Phase::leaving) {
    giveUp();
  }
}

}  // namespace remote
