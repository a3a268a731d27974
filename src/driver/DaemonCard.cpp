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

// The longest wait of a call that only asks whether the card or the daemon is present.
constexpr std::chrono::milliseconds kQuickTimeout{1000};

// The card may change while its list is read.
constexpr int kMaxReadings = 3;

client::RequestOptions oneQuickAttempt() {
  client::RequestOptions options = client::optionsWithin(kQuickTimeout);
  options.reconnectTime = std::chrono::milliseconds(0);
  return options;
}

RequestOutcome outcomeOf(const Error &error) {
  if (error.domain == client::kErrorDomain && error.code == client::stopped) {
    return RequestOutcome::cardGone;
  }
  return error.domain == client::kErrorDomain && error.code == client::timedOut
             ? RequestOutcome::timedOut
             : RequestOutcome::failed;
}

Bytes copyOf(ByteView bytes) {
  return {bytes.begin(), bytes.end()};
}

RequestResult resultOf(RequestOutcome outcome, SecretBytes answer) {
  if (outcome == RequestOutcome::done && answer.empty()) {
    outcome = RequestOutcome::failed;
  }
  return {outcome, std::move(answer)};
}

}  // namespace

bool DaemonCard::State::wasAskedWithin(std::chrono::milliseconds time) const {
  return cache.lastAskedAt && Clock::now() - *cache.lastAskedAt < time;
}

DaemonCard::DaemonCard(CardTimeouts timeouts, CardDependencies dependencies)
    : timeouts_(timeouts),
      dependencies_(std::move(dependencies)),
      connection_(
          [this](const client::WaitLimits &limits, Error *error) { return open(limits, error); }),
      state_(std::make_unique<State>()) {}

DaemonCard::~DaemonCard() = default;

bool DaemonCard::isPresent() {
  std::unique_lock lock(state_->mutex);
  state_->cache.checkMarker(dependencies_.isMarkerFolderPrivate);
  if (!state_->cache.isMarkerHidden()) {
    return state_->cache.isPresent();
  }
  lock.unlock();
  return contentFromDaemon(oneQuickAttempt()) != nullptr;
}

std::unique_ptr<client::Connection> DaemonCard::open(const client::WaitLimits &limits,
                                                     Error *error) {
  auto connection = dependencies_.open(limits, error);
  connections_ += connection ? 1 : 0;
  return connection;
}

std::uint64_t DaemonCard::generation() {
  const std::scoped_lock lock(state_->mutex);
  state_->cache.checkMarker(dependencies_.isMarkerFolderPrivate);
  return state_->cache.generation();
}

DaemonCard::Content DaemonCard::content() {
  std::unique_lock lock(state_->mutex);
  state_->cache.checkMarker(dependencies_.isMarkerFolderPrivate);
  const bool isMarkerHidden = state_->cache.isMarkerHidden();
  lock.unlock();
  return isMarkerHidden ? contentFromDaemon(client::optionsWithin(timeouts_.list))
                        : cachedContent();
}

DaemonCard::Content DaemonCard::cachedContent() {
  std::unique_lock lock(state_->mutex);
  CardCache &cache = state_->cache;
  for (int reading = 0; reading < kMaxReadings && cache.isPresent(); ++reading) {
    if (cache.isFresh()) {
      return cache.content();
    }
    if (state_->wasAskedWithin(timeouts_.retryDelay)) {
      return nullptr;
    }
    const auto generation = cache.generation();
    lock.unlock();
    auto list = readList(client::optionsWithin(timeouts_.list));
    lock.lock();
    cache.checkMarker(dependencies_.isMarkerFolderPrivate);
    if (cache.generation() != generation) {
      continue;
    }
    if (!list) {
      cache.lastAskedAt = Clock::now();
      return nullptr;
    }
    cache.store(list->empty() ? nullptr : std::make_shared<const CardContent>(std::move(*list)));
  }
  return cache.isFresh() ? cache.content() : nullptr;
}

DaemonCard::Content DaemonCard::contentFromDaemon(const client::RequestOptions &options) {
  std::unique_lock lock(state_->mutex);
  CardCache &cache = state_->cache;
  if (!state_->wasAskedWithin(timeouts_.retryDelay)) {
    cache.lastAskedAt = Clock::now();
    lock.unlock();
    auto list = readList(options);
    lock.lock();
    cache.store(!list || list->empty() ? nullptr
                                       : std::make_shared<const CardContent>(std::move(*list)));
  }
  return cache.content();
}

// True if the daemon from which the card was read still answers on the same connection. Then only
// the card has been removed.
bool DaemonCard::checkDaemonIsRunning() {
  std::unique_lock lock(state_->mutex);
  if (state_->daemonSeenAt && Clock::now() - *state_->daemonSeenAt < timeouts_.retryDelay) {
    return true;
  }
  lock.unlock();
  auto failure = RequestOutcome::failed;
  const bool answers =
      ask(QuillMessage::initCommandMessageGetCertificates(), oneQuickAttempt(), failure)
          .has_value();
  lock.lock();
  const bool isTheSame = answers && connections_ == state_->listConnection;
  state_->daemonSeenAt = isTheSame ? std::optional(Clock::now()) : std::nullopt;
  return isTheSame;
}

void DaemonCard::awaitRestart() {
  if (isPresent()) {
    return;
  }
  std::unique_lock lock(state_->mutex);
  const auto goneSince = state_->cache.goneSince();
  lock.unlock();
  const auto end = goneSince.value_or(Clock::time_point()) + timeouts_.restart;
  if (!goneSince || Clock::now() >= end) {
    return;
  }
  // A daemon that shuts down removes the card first and may still answer then.
  std::this_thread::sleep_until(std::min(*goneSince + timeouts_.pollInterval, end));
  if (checkDaemonIsRunning()) {
    return;
  }
  while (!isPresent() && Clock::now() < end) {
    std::this_thread::sleep_until(std::min(Clock::now() + timeouts_.pollInterval, end));
  }
}

std::optional<CardContent> DaemonCard::readList(const client::RequestOptions &options) {
  auto failure = RequestOutcome::failed;
  const auto answer = ask(QuillMessage::initCommandMessageGetCertificates(), options, failure);
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
    state_->listConnection = connections_;
  }
  return content;
}

// Reports each list once, however often it is read.
void DaemonCard::reportLeftOut(std::size_t entries) {
  const std::size_t leftOut = entries - std::min(entries, kMaxCertificates);
  std::unique_lock lock(state_->mutex);
  const bool isNews = std::exchange(state_->leftOut, leftOut) != leftOut;
  lock.unlock();
  if (leftOut > 0 && isNews && dependencies_.report) {
    dependencies_.report("the card holds " + std::to_string(entries) + " certificates, of which " +
                         std::to_string(leftOut) + " are left out: programs are shown the first " +
                         std::to_string(kMaxCertificates) +
                         "; try: insert fewer at the device that holds the keys");
  }
}

// Sends the request and returns the answer. If there is none, sets `failure` to the reason.
std::optional<QuillMessage> DaemonCard::ask(const QuillMessage &message,
                                            const client::RequestOptions &options,
                                            RequestOutcome &failure) {
  Error error;
  auto answer = connection_.request(message, options, &error);
  if (answer && answer->command != message.command) {
    answer.reset();
    error = {"driver", 0, "kfyd answered with another command"};
  }
  if (!answer) {
    failure = outcomeOf(error);
  }
  if (answer || failure != RequestOutcome::cardGone) {
    const std::scoped_lock lock(state_->mutex);
    state_->lastError = error.description;
  }
  return answer;
}

void DaemonCard::abandon() {
  connection_.abandon();
  // never freed: a thread that does not exist in this process may hold its lock
  (void)state_.release();
  state_ = std::make_unique<State>();
}

std::string DaemonCard::lastError() {
  const std::scoped_lock lock(state_->mutex);
  return state_->lastError;
}

// The wait ends when another card is inserted: the holder that was asked has gone with the old one.
client::RequestOptions DaemonCard::optionsFor(client::Deadline deadline, bool &wasReplaced) {
  client::RequestOptions options;
  options.deadline = deadline;
  options.checkInterval = timeouts_.pollInterval;
  options.shouldContinue = [this, &wasReplaced, asked = generation(),
                            awaySince = std::optional<Clock::time_point>()]() mutable {
    if (isPresent()) {
      awaySince.reset();
      const auto now = generation();
      wasReplaced = std::exchange(asked, now) != now;
      return !wasReplaced;
    }
    awaySince = awaySince.value_or(Clock::now());
    return Clock::now() - *awaySince < timeouts_.cardAway;
  };
  return options;
}

// Returns the answer and sets `outcome`. Tries again once if the daemon restarted: it may answer
// before the card is back.
std::optional<QuillMessage> DaemonCard::request(const CardIdentity &identity,
                                                const QuillMessage &message,
                                                RequestOutcome &outcome) {
  const auto deadline = Clock::now() + timeouts_.request;
  auto answer = requestOnce(identity, message, deadline, outcome);
  if (outcome == RequestOutcome::cardGone) {
    if (!contains(content().get(), identity)) {
      awaitRestart();
    }
    if (contains(content().get(), identity)) {
      answer = requestOnce(identity, message, deadline, outcome);
    }
  }
  return answer;
}

std::optional<QuillMessage> DaemonCard::requestOnce(const CardIdentity &identity,
                                                    const QuillMessage &message,
                                                    client::Deadline deadline,
                                                    RequestOutcome &outcome) {
  if (!isPresent()) {
    outcome = RequestOutcome::cardGone;
    return std::nullopt;
  }
  bool wasReplaced = false;
  const client::RequestOptions options = optionsFor(deadline, wasReplaced);
  auto answer = ask(message, options, outcome);
  while (!answer && std::exchange(wasReplaced, false)) {
    answer = ask(message, options, outcome);
  }
  if (!answer) {
    if (outcome == RequestOutcome::failed && !isPresent()) {
      outcome = RequestOutcome::cardGone;
    }
    return std::nullopt;
  }
  if (!answer->status) {
    {
      // a restarted daemon may have no card although the marker did not change
      const std::scoped_lock lock(state_->mutex);
      state_->cache.invalidate();
    }
    outcome =
        contains(content().get(), identity) ? RequestOutcome::refused : RequestOutcome::cardGone;
    return std::nullopt;
  }
  outcome = RequestOutcome::done;
  return answer;
}

RequestResult DaemonCard::sign(const CardIdentity &identity, ByteView data, const SecretText &pin) {
  auto outcome = RequestOutcome::failed;
  const auto answer = request(identity,
                              QuillMessage::initCommandMessageSignData(
                                  copyOf(data), identity.certificateHash, SecretText(pin.reveal())),
                              outcome);
  return resultOf(outcome,
                  answer ? SecretBytes(answer->signedData.value_or(Bytes())) : SecretBytes());
}

RequestResult DaemonCard::decrypt(const CardIdentity &identity, ByteView data,
                                  const SecretText &pin) {
  auto outcome = RequestOutcome::failed;
  auto answer = request(identity,
                        QuillMessage::initCommandMessageDecryptDataWithObjectID(
                            identity.certificateHash, copyOf(data), SecretText(pin.reveal())),
                        outcome);
  return resultOf(
      outcome, answer && answer->decryptedData ? std::move(*answer->decryptedData) : SecretBytes());
}

std::unique_ptr<Card> makeCard(const DriverSettings &settings, Journal &journal) {
  CardTimeouts timeouts;
  timeouts.request = settings.timeLimit;
  CardDependencies dependencies;
  dependencies.report = [&journal](const std::string &line) { journal.report(line); };
  return std::make_unique<DaemonCard>(timeouts, std::move(dependencies));
}

}  // namespace driver
