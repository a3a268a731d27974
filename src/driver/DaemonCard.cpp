#include "driver/DaemonCard.hpp"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace driver {
namespace {

using Clock = std::chrono::steady_clock;

// How long somebody who only wants to know whether a card or the daemon is there may be kept
// waiting.
constexpr std::chrono::milliseconds kQuickly{1000};

// The card may come and go while its list is read.
constexpr int kMostReadings = 3;

client::Terms onceAndQuickly() {
  client::Terms terms = client::lasting(kQuickly);
  terms.connecting = std::chrono::milliseconds(0);
  return terms;
}

UseOutcome outcomeOf(const Error &error) {
  if (error.domain == client::kErrorDomain && error.code == client::stopped) {
    return UseOutcome::cardGone;
  }
  return error.domain == client::kErrorDomain && error.code == client::timedOut
             ? UseOutcome::timedOut
             : UseOutcome::failed;
}

Bytes copyOf(ByteView bytes) {
  return {bytes.begin(), bytes.end()};
}

UseResult resultOf(UseOutcome outcome, SecretBytes answer) {
  if (outcome == UseOutcome::done && answer.empty()) {
    outcome = UseOutcome::failed;
  }
  return {outcome, std::move(answer)};
}

}  // namespace

bool DaemonCard::State::wasAskedWithin(std::chrono::milliseconds time) const {
  return known.askedAt && Clock::now() - *known.askedAt < time;
}

DaemonCard::DaemonCard(CardTimes times, CardSurroundings surroundings)
    : times_(times),
      surroundings_(std::move(surroundings)),
      connection_(
          [this](const client::Patience &patience, Error *error) { return open(patience, error); }),
      state_(std::make_unique<State>()) {}

DaemonCard::~DaemonCard() = default;

bool DaemonCard::isPresent() {
  std::unique_lock lock(state_->mutex);
  state_->known.look(surroundings_.isMarkerFolderPrivate);
  if (!state_->known.isBlind()) {
    return state_->known.isPresent();
  }
  lock.unlock();
  return contentByAsking(onceAndQuickly()) != nullptr;
}

std::unique_ptr<client::Connection> DaemonCard::open(const client::Patience &patience,
                                                     Error *error) {
  auto connection = surroundings_.open(patience, error);
  connections_ += connection ? 1 : 0;
  return connection;
}

std::uint64_t DaemonCard::generation() {
  const std::scoped_lock lock(state_->mutex);
  state_->known.look(surroundings_.isMarkerFolderPrivate);
  return state_->known.generation();
}

DaemonCard::Content DaemonCard::content() {
  std::unique_lock lock(state_->mutex);
  state_->known.look(surroundings_.isMarkerFolderPrivate);
  const bool isBlind = state_->known.isBlind();
  lock.unlock();
  return isBlind ? contentByAsking(client::lasting(times_.list)) : contentByMarker();
}

DaemonCard::Content DaemonCard::contentByMarker() {
  std::unique_lock lock(state_->mutex);
  CardKnowledge &known = state_->known;
  for (int reading = 0; reading < kMostReadings && known.isPresent(); ++reading) {
    if (known.isFresh()) {
      return known.content();
    }
    if (state_->wasAskedWithin(times_.again)) {
      return nullptr;
    }
    const auto generation = known.generation();
    lock.unlock();
    auto list = readList(client::lasting(times_.list));
    lock.lock();
    known.look(surroundings_.isMarkerFolderPrivate);
    if (known.generation() != generation) {
      continue;
    }
    if (!list) {
      known.askedAt = Clock::now();
      return nullptr;
    }
    known.take(list->empty() ? nullptr : std::make_shared<const CardContent>(std::move(*list)));
  }
  return known.isFresh() ? known.content() : nullptr;
}

DaemonCard::Content DaemonCard::contentByAsking(const client::Terms &terms) {
  std::unique_lock lock(state_->mutex);
  CardKnowledge &known = state_->known;
  if (!state_->wasAskedWithin(times_.again)) {
    known.askedAt = Clock::now();
    lock.unlock();
    auto list = readList(terms);
    lock.lock();
    known.take(!list || list->empty() ? nullptr
                                      : std::make_shared<const CardContent>(std::move(*list)));
  }
  return known.content();
}

// Whether the daemon of which the card was read still answers, over the same connection: then it is
// the card alone that has gone.
bool DaemonCard::isDaemonStillThere() {
  std::unique_lock lock(state_->mutex);
  if (state_->ranAt && Clock::now() - *state_->ranAt < times_.again) {
    return true;
  }
  lock.unlock();
  auto failure = UseOutcome::failed;
  const bool answers =
      ask(QuillMessage::initCommandMessageGetCertificates(), onceAndQuickly(), failure).has_value();
  lock.lock();
  const bool isTheSame = answers && connections_ == state_->readOver;
  state_->ranAt = isTheSame ? std::optional(Clock::now()) : std::nullopt;
  return isTheSame;
}

void DaemonCard::awaitRestart() {
  if (isPresent()) {
    return;
  }
  std::unique_lock lock(state_->mutex);
  const auto goneSince = state_->known.goneSince();
  lock.unlock();
  const auto end = goneSince.value_or(Clock::time_point()) + times_.restart;
  if (!goneSince || Clock::now() >= end) {
    return;
  }
  // a daemon that ends withdraws the card first, and may still answer then
  std::this_thread::sleep_until(std::min(*goneSince + times_.glance, end));
  if (isDaemonStillThere()) {
    return;
  }
  while (!isPresent() && Clock::now() < end) {
    std::this_thread::sleep_until(std::min(Clock::now() + times_.glance, end));
  }
}

std::optional<CardContent> DaemonCard::readList(const client::Terms &terms) {
  auto failure = UseOutcome::failed;
  const auto answer = ask(QuillMessage::initCommandMessageGetCertificates(), terms, failure);
  if (!answer) {
    return std::nullopt;
  }
  if (!answer->certificates) {
    return CardContent();
  }
  reportLeftOut(answer->certificates->entries().size());
  auto content = cardContentOf(*answer->certificates);
  if (!content.empty()) {
    const std::scoped_lock lock(state_->mutex);
    state_->readOver = connections_;
  }
  return content;
}

// Once for each list, however often it is read.
void DaemonCard::reportLeftOut(std::size_t entries) {
  const std::size_t leftOut = entries - std::min(entries, kMostCertificates);
  std::unique_lock lock(state_->mutex);
  const bool isNews = std::exchange(state_->leftOut, leftOut) != leftOut;
  lock.unlock();
  if (leftOut > 0 && isNews && surroundings_.report) {
    surroundings_.report("the card holds " + std::to_string(entries) + " certificates, of which " +
                         std::to_string(leftOut) + " are left out: programs are shown the first " +
                         std::to_string(kMostCertificates) +
                         "; try: insert fewer at the device that holds the keys");
  }
}

// Nothing, with what it comes to, if there is no answer to this request.
std::optional<QuillMessage> DaemonCard::ask(const QuillMessage &message, const client::Terms &terms,
                                            UseOutcome &failure) {
  Error error;
  auto answer = connection_.request(message, terms, &error);
  if (answer && answer->command != message.command) {
    answer.reset();
    error = {"driver", 0, "kfyd answered something else than it was asked"};
  }
  if (!answer) {
    failure = outcomeOf(error);
  }
  if (answer || failure != UseOutcome::cardGone) {
    const std::scoped_lock lock(state_->mutex);
    state_->trouble = error.description;
  }
  return answer;
}

void DaemonCard::abandon() {
  connection_.abandon();
  // never released: a thread that is not in this process may hold its lock
  (void)state_.release();
  state_ = std::make_unique<State>();
}

std::string DaemonCard::lastTrouble() {
  const std::scoped_lock lock(state_->mutex);
  return state_->trouble;
}

// A card that was inserted anew ends the wait: whoever was asked before has gone with the old one.
client::Terms DaemonCard::termsOfUse(client::Deadline deadline, bool &isAnother) {
  client::Terms terms;
  terms.deadline = deadline;
  terms.glance = times_.glance;
  terms.goesOn = [this, &isAnother, asked = generation(),
                  awaySince = std::optional<Clock::time_point>()]() mutable {
    if (isPresent()) {
      awaySince.reset();
      const auto now = generation();
      isAnother = std::exchange(asked, now) != now;
      return !isAnother;
    }
    awaySince = awaySince.value_or(Clock::now());
    return Clock::now() - *awaySince < times_.away;
  };
  return terms;
}

// The answer, and `outcome` is done; nothing if it comes to anything else. A daemon that was
// restarted may answer before the card is back.
std::optional<QuillMessage> DaemonCard::use(const CardIdentity &identity,
                                            const QuillMessage &message, UseOutcome &outcome) {
  const auto deadline = Clock::now() + times_.use;
  auto answer = useOnce(identity, message, deadline, outcome);
  if (outcome == UseOutcome::cardGone) {
    if (!holds(content().get(), identity)) {
      awaitRestart();
    }
    if (holds(content().get(), identity)) {
      answer = useOnce(identity, message, deadline, outcome);
    }
  }
  return answer;
}

std::optional<QuillMessage> DaemonCard::useOnce(const CardIdentity &identity,
                                                const QuillMessage &message,
                                                client::Deadline deadline, UseOutcome &outcome) {
  if (!isPresent()) {
    outcome = UseOutcome::cardGone;
    return std::nullopt;
  }
  bool isAnother = false;
  const client::Terms terms = termsOfUse(deadline, isAnother);
  auto answer = ask(message, terms, outcome);
  while (!answer && std::exchange(isAnother, false)) {
    answer = ask(message, terms, outcome);
  }
  if (!answer) {
    if (outcome == UseOutcome::failed && !isPresent()) {
      outcome = UseOutcome::cardGone;
    }
    return std::nullopt;
  }
  if (!answer->status) {
    {
      // a daemon that was restarted may know of no card, though the marker did not change
      const std::scoped_lock lock(state_->mutex);
      state_->known.doubt();
    }
    outcome = holds(content().get(), identity) ? UseOutcome::refused : UseOutcome::cardGone;
    return std::nullopt;
  }
  outcome = UseOutcome::done;
  return answer;
}

UseResult DaemonCard::sign(const CardIdentity &identity, ByteView data, const SecretText &pin) {
  auto outcome = UseOutcome::failed;
  const auto answer = use(identity,
                          QuillMessage::initCommandMessageSignData(
                              copyOf(data), identity.certificateHash, SecretText(pin.reveal())),
                          outcome);
  return resultOf(outcome,
                  answer ? SecretBytes(answer->signedData.value_or(Bytes())) : SecretBytes());
}

UseResult DaemonCard::decrypt(const CardIdentity &identity, ByteView data, const SecretText &pin) {
  auto outcome = UseOutcome::failed;
  auto answer = use(identity,
                    QuillMessage::initCommandMessageDecryptDataWithObjectID(
                        identity.certificateHash, copyOf(data), SecretText(pin.reveal())),
                    outcome);
  return resultOf(
      outcome, answer && answer->decryptedData ? std::move(*answer->decryptedData) : SecretBytes());
}

std::unique_ptr<Card> makeCard(const Settings &settings, Journal &journal) {
  CardTimes times;
  times.use = settings.timeLimit;
  CardSurroundings surroundings;
  surroundings.report = [&journal](const std::string &line) { journal.report(line); };
  return std::make_unique<DaemonCard>(times, std::move(surroundings));
}

}  // namespace driver
