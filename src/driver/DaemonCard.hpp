#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "base/Error.hpp"
#include "client/PinnedServer.hpp"
#include "client/SharedConnection.hpp"
#include "driver/Card.hpp"
#include "driver/CardCache.hpp"
#include "driver/DriverSettings.hpp"
#include "driver/Journal.hpp"
#include "driver/PrivateMount.hpp"
#include "protocol/QuillMessage.hpp"

namespace driver {

// How long things may take.
struct CardTimeouts {
  std::chrono::milliseconds request{
      60000};                             // one use of a key: its holder may have to ask somebody
  std::chrono::milliseconds list{10000};  // the reading of the list
  std::chrono::milliseconds cardAway{5000};     // how long the card may be away during a use
  std::chrono::milliseconds pollInterval{250};  // between two looks at the card during a use
  std::chrono::milliseconds restart{3000};      // how long a use waits for a daemon that has gone
  std::chrono::milliseconds retryDelay{
      1000};  // before the daemon is asked again after a failure, and
              // between two questions where no marker can be seen
};

// What it meets outside.
struct CardDependencies {
  client::SharedConnection::Opener open = [](const client::WaitLimits &limits, Error *error) {
    return client::openLoopback(limits, error);
  };
  std::function<bool()> isMarkerFolderPrivate = driver::isMarkerFolderPrivate;
  std::function<void(const std::string &line)> report;  // to the journal; null: nobody reads it
};

// The card that the daemon of this machine holds. It is there while the daemon's marker is, unless
// the list is known to be empty. Where the folder of the marker is this program's own, the daemon
// is asked instead, which keeps the list when the card goes. Connects at first use.
class DaemonCard final : public Card {
 public:
  explicit DaemonCard(CardTimeouts times = {}, CardDependencies dependencies = {});
  ~DaemonCard() override;
  DaemonCard(const DaemonCard &) = delete;
  DaemonCard &operator=(const DaemonCard &) = delete;

  // Where no marker can be seen, may wait for the daemon, a second at most.
  [[nodiscard]] bool isPresent() override;
  [[nodiscard]] std::shared_ptr<const CardContent> content() override;
  void awaitRestart() override;
  [[nodiscard]] std::uint64_t generation() override;
  [[nodiscard]] RequestResult sign(const CardIdentity &identity, ByteView data,
                                   const SecretText &pin) override;
  [[nodiscard]] RequestResult decrypt(const CardIdentity &identity, ByteView data,
                                      const SecretText &pin) override;
  [[nodiscard]] std::string lastError() override;
  void abandon() override;

 private:
  // No lock is held while anybody is asked.
  struct State {
    std::mutex mutex;
    CardCache cache;
    std::string lastError;
    std::size_t leftOut = 0;      // of the list that was read last
    unsigned listConnection = 0;  // the connection over which a card was read last, by its number
    std::optional<CardCache::Clock::time_point> daemonSeenAt;  // the daemon of that connection

    [[nodiscard]] bool wasAskedWithin(std::chrono::milliseconds time) const;
  };
  using Content = std::shared_ptr<const CardContent>;

  [[nodiscard]] Content cachedContent();
  [[nodiscard]] Content contentFromDaemon(const client::RequestOptions &options);
  [[nodiscard]] std::unique_ptr<client::Connection> open(const client::WaitLimits &limits,
                                                         Error *error);
  [[nodiscard]] bool checkDaemonIsRunning();
  [[nodiscard]] std::optional<CardContent> readList(const client::RequestOptions &options);
  void reportLeftOut(std::size_t entries);
  [[nodiscard]] std::optional<QuillMessage> ask(const QuillMessage &message,
                                                const client::RequestOptions &options,
                                                RequestOutcome &failure);
  [[nodiscard]] client::RequestOptions optionsFor(client::Deadline deadline, bool &wasReplaced);
  [[nodiscard]] std::optional<QuillMessage> request(const CardIdentity &identity,
                                                    const QuillMessage &message,
                                                    RequestOutcome &outcome);
  [[nodiscard]] std::optional<QuillMessage> requestOnce(const CardIdentity &identity,
                                                        const QuillMessage &message,
                                                        client::Deadline deadline,
                                                        RequestOutcome &outcome);

  CardTimeouts timeouts_;
  CardDependencies dependencies_;
  std::atomic<unsigned> connections_ = 0;  // so many were made
  client::SharedConnection connection_;
  std::unique_ptr<State> state_;
};

// The card that this machine's daemon holds, as a program outside the tests gets it.
[[nodiscard]] std::unique_ptr<Card> makeCard(const DriverSettings &settings, Journal &journal);

}  // namespace driver
