#include <chrono>
#include <mutex>
#include <optional>
#include <utility>

#include "driver/CardReading.hpp"
#include "driver/DaemonCard.hpp"

namespace driver {
namespace {

using Clock = std::chrono::steady_clock;

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

}  // namespace driver
