#include "client/SharedConnection.hpp"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "client/Backoff.hpp"
#include "client/MultiplexedConnection.hpp"
#include "client/OpenDescriptors.hpp"

namespace client {
namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

// The connection that new requests use, and when the next connection attempt is due. The lock of
// SharedConnection is held in every call.
class SharedConnection::ReconnectState {
 public:
  // Null if there is none.
  [[nodiscard]] const std::shared_ptr<MultiplexedConnection> &current() const { return current_; }

  void setCurrent(std::unique_ptr<Connection> connection);

  // New requests no longer use this connection.
  void retire(const std::shared_ptr<MultiplexedConnection> &connection);

  // The connection has ended during a call that began at `callStart`.
  void recordLoss(const std::shared_ptr<MultiplexedConnection> &connection, Deadline callStart);

  // A connection attempt failed.
  void recordFailure(Error reason);

  // The daemon answered a request.
  void recordAnswer();

  [[nodiscard]] Deadline nextAttempt() const { return nextAttempt_; }

  // The reason for the failures, if attempts since `callStart` have failed for at least `limit`;
  // nothing otherwise.
  [[nodiscard]] std::optional<Error> reasonToGiveUp(Deadline callStart,
                                                    std::chrono::milliseconds limit) const;

  // For the child of a fork: closes the descriptors of all connections and sends nothing.
  // Lock-free.
  void abandon() { descriptors_.closeAll(); }

 private:
  // A series of failures without an answer or a lasting connection in between.
  struct Outage {
    Error reason;
    Deadline since;
    Deadline latest;
  };

  // Delays between attempts: a daemon restarts within a second or two.
  static constexpr std::chrono::milliseconds kFirstPause{50};
  static constexpr std::chrono::milliseconds kLongestPause{1000};

  OpenDescriptors descriptors_;  // outlives the connections
  std::shared_ptr<MultiplexedConnection> current_;
  Deadline nextAttempt_;
  Backoff backoff_{kFirstPause, kLongestPause};
  std::optional<Outage> outage_;
};

void SharedConnection::ReconnectState::setCurrent(std::unique_ptr<Connection> connection) {
  current_ = std::make_shared<MultiplexedConnection>(std::move(connection), descriptors_);
}

void SharedConnection::ReconnectState::retire(
    const std::shared_ptr<MultiplexedConnection> &connection) {
  if (current_ == connection) {
    if (!connection->failedEarly()) {
      outage_.reset();
    }
    current_ = nullptr;
  }
}

void SharedConnection::ReconnectState::recordLoss(
    const std::shared_ptr<MultiplexedConnection> &connection, Deadline callStart) {
  // A server that disconnects at once counts as unreachable. The loss is counted once, not by each
  // waiter, and not if the connection existed before the call.
  if (current_ == connection && connection->failedEarly() && connection->openedAt() >= callStart) {
    recordFailure(connection->end().value_or(Error()));
  }
  retire(connection);
}

void SharedConnection::ReconnectState::recordFailure(Error reason) {
  const auto now = std::chrono::steady_clock::now();
  outage_ = Outage{std::move(reason), outage_ ? outage_->since : now, now};
  nextAttempt_ = now + backoff_.next();
}

void SharedConnection::ReconnectState::recordAnswer() {
  outage_.reset();
  backoff_.reset();
}

std::optional<Error> SharedConnection::ReconnectState::reasonToGiveUp(
    Deadline callStart, std::chrono::milliseconds limit) const {
  const bool mustGiveUp = outage_ && outage_->latest >= callStart &&
                          outage_->latest - std::max(callStart, outage_->since) >= limit;
  return mustGiveUp ? std::optional(outage_->reason) : std::nullopt;
}

struct SharedConnection::State {
  std::mutex mutex;
  ReconnectState reconnect;
  bool isOpening = false;          // a thread is opening a connection
  std::condition_variable opened;  // that thread is done
};

// While one thread opens a connection, the others wait for it.
class SharedConnection::OpeningGuard {
 public:
  explicit OpeningGuard(State &state) : state_(state) { state_.isOpening = true; }
  ~OpeningGuard() {
    state_.isOpening = false;
    state_.opened.notify_all();
  }
  OpeningGuard(const OpeningGuard &) = delete;
  OpeningGuard &operator=(const OpeningGuard &) = delete;

 private:
  State &state_;
};

// One request, on the thread that makes it.
class SharedConnection::Call {
 public:
  Call(State &state, const Opener &opener, const RequestOptions &options, Error *error)
      : state_(state), opener_(opener), options_(options), error_(error), lock_(state.mutex) {}

  std::optional<QuillMessage> run(const QuillMessage &message) {
    while (const auto connection = usableConnection()) {
      MultiplexedConnection::Waiter waiter(*connection, *message.messageID);
      Error reason;
      if (!connection->send(message, &reason) && reason.code == notSendable) {
        end(std::move(reason));
        return std::nullopt;
      }
      while (!waiter.answer && !connection->end() && checkWait(connection)) {
        connection->wait(lock_, waiter, nextWakeUp());
      }
      if (waiter.answer) {
        state_.reconnect.recordAnswer();
        return std::move(waiter.answer);
      }
      if (!connection->end()) {
        return std::nullopt;
      }
      state_.reconnect.recordLoss(connection, begin_);
    }
    return std::nullopt;
  }

 private:
  void end(Error reason) {
    if (error_ != nullptr) {
      *error_ = std::move(reason);
    }
  }

  [[nodiscard]] Deadline nextWakeUp() const { return std::min(options_.deadline, nextCheck_); }

  // Returns false and reports the reason if the call must end. `connection` is the connection in
  // use; null: none.
  bool checkWait(const std::shared_ptr<MultiplexedConnection> &connection) {
    const auto now = Clock::now();
    if (now >= options_.deadline) {
      if (connection) {
        state_.reconnect.retire(connection);
      }
      end({kErrorDomain, timedOut, "no answer in time"});
      return false;
    }
    if (now < nextCheck_) {
      return true;
    }
    if (options_.shouldContinue) {
      if (connection) {
        connection->handOverPolling();
      }
      const ReverseLock reverseLock(lock_);
      if (!options_.shouldContinue()) {
        end({kErrorDomain, stopped, "stopped while waiting"});
        return false;
      }
    }
    nextCheck_ = Clock::now() + options_.checkInterval;
    return true;
  }

  // Returns null and reports the reason if there is none within the limits of the call.
  std::shared_ptr<MultiplexedConnection> usableConnection() {
    while (true) {
      auto connection = state_.reconnect.current();
      if (connection && connection->readPending()) {
        return connection;
      }
      if (connection) {
        state_.reconnect.recordLoss(connection, begin_);
      }
      if (!checkWait(nullptr) || !checkRetry()) {
        return nullptr;
      }
      if (state_.isOpening) {
        state_.opened.wait_until(lock_, nextWakeUp());
      } else if (Clock::now() < state_.reconnect.nextAttempt()) {
        state_.opened.wait_until(lock_, std::min(nextWakeUp(), state_.reconnect.nextAttempt()));
      } else {
        open();
      }
    }
  }

  bool checkRetry() {
    auto reason = state_.reconnect.reasonToGiveUp(begin_, options_.reconnectTime);
    if (reason) {
      end(std::move(*reason));
    }
    return !reason;
  }

  void open() {
    const OpeningGuard opening(state_);
    Error reason;
    std::unique_ptr<Connection> connection;
    {
      const ReverseLock reverseLock(lock_);
      connection = opener_({options_.deadline, /*stopDescriptor=*/-1}, &reason);
    }
    if (connection) {
      state_.reconnect.setCurrent(std::move(connection));
    } else if (Clock::now() < options_.deadline) {
      // otherwise this call ran out of time
      state_.reconnect.recordFailure(std::move(reason));
    }
  }

  State &state_;
  const Opener &opener_;
  const RequestOptions &options_;
  Error *error_;
  MultiplexedConnection::Lock lock_;
  Deadline begin_ = Clock::now();
  Deadline nextCheck_ = begin_ + options_.checkInterval;
};

RequestOptions optionsWithin(std::chrono::milliseconds time) {
  RequestOptions options;
  options.deadline = Clock::now() + time;
  return options;
}

SharedConnection::SharedConnection(Opener opener)
    : opener_(std::move(opener)), state_(std::make_unique<State>()) {}

SharedConnection::~SharedConnection() = default;

std::optional<QuillMessage> SharedConnection::request(const QuillMessage &message,
                                                      const RequestOptions &options, Error *error) {
  if (!message.messageID) {
    base::report(error, kErrorDomain, notSendable, "the request has no message ID");
    return std::nullopt;
  }
  return Call(*state_, opener_, options, error).run(message);
}

void SharedConnection::abandon() {
  // Never freed: a thread that does not exist in this process may hold its lock or wait in it.
  State &old = *state_.release();
  old.reconnect.abandon();
  state_ = std::make_unique<State>();
}

}  // namespace client
