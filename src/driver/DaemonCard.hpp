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

// Time limits.
struct CardTimeouts {
  std::chrono::milliseconds request{60000};     // one request to the key's holder
  std::chrono::milliseconds list{10000};        // reading the list
  std::chrono::milliseconds cardAway{5000};     // how long the card may be away during a request
  std::chrono::milliseconds pollInterval{250};  // between two checks of the card during a request
  std::chrono::milliseconds restart{3000};      // how long a request waits for a restarting daemon
  std::chrono::milliseconds retryDelay{1000};   // between requests for the list, after a failure
                                                // or while the marker is hidden
};

// The parts that tests replace.
struct CardDependencies {
  client::SharedConnection::Opener open = [](const client::WaitLimits &limits, Error *error) {
    return client::openLoopback(limits, error);
  };
  std::function<bool()> isMarkerFolderPrivate = driver::isMarkerFolderPrivate;
  std::function<void(const std::string &line)> report;  // writes to the journal; may be null
};

// The card that this machine's daemon holds. A card is present while the daemon's marker exists,
// unless its list is known to be empty. If the marker's folder is private to this program, the
// daemon is asked for the list instead. Connects at the first request.
class DaemonCard final : public Card {
 public:
  explicit DaemonCard(CardTimeouts timeouts = {}, CardDependencies dependencies = {});
  ~DaemonCard() override;
  DaemonCard(const DaemonCard &) = delete;
  DaemonCard &operator=(const DaemonCard &) = delete;

  // May wait up to a second for the daemon if the marker is hidden.
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
  // The lock is not held during a request.
  struct State {
    std::mutex mutex;
    CardCache cache;
    std::string lastError;
    std::size_t leftOut = 0;      // entries of the last list beyond kMaxCertificates
    unsigned listConnection = 0;  // number of the connection over which a card was last read
    // When the daemon of that connection last answered.
    std::optional<CardCache::Clock::time_point> daemonSeenAt;

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
  std::atomic<unsigned> connections_ = 0;  // number of connections opened so far
  client::SharedConnection connection_;
  std::unique_ptr<State> state_;
};

// The production CardFactory: the card of this machine's daemon.
[[nodiscard]] std::unique_ptr<Card> makeCard(const DriverSettings &settings, Journal &journal);

}  // namespace driver
