#include "client/SharedConnection.hpp"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "client/Backoff.hpp"
#include "client/OpenDescriptors.hpp"
#include "client/SharedLink.hpp"

namespace client {
namespace {

using Clock = std::chrono::steady_clock;

// Which link new requests use, and when the next attempt to make one is due. For SharedConnection,
// whose lock is held in every call here.
class LinkKeeper {
 public:
  // Null: there is none.
  [[nodiscard]] const std::shared_ptr<SharedLink> &current() const { return current_; }

  void keep(std::unique_ptr<Connection> connection);

  // From now on, requests use another one.
  void retire(const std::shared_ptr<SharedLink> &link);

  // The link is at its end, in a call that began at that time.
  void noteLoss(const std::shared_ptr<SharedLink> &link, Deadline callBegan);

  // An attempt to make a connection went wrong.
  void noteFailure(Error reason);

  // The daemon has answered.
  void noteAnswer();

  // Not before this time.
  [[nodiscard]] Deadline nextAttempt() const { return nextAttempt_; }

  // Why the daemon can't be reached, if attempts since `callBegan` have failed for as long as
  // `limit`; nothing otherwise.
  [[nodiscard]] std::optional<Error> whyHopeless(Deadline callBegan,
                                                 std::chrono::milliseconds limit) const;

  // Closes the descriptors of all links without a word, in the child of a fork: needs no lock.
  void abandon() { descriptors_.closeAll(); }

 private:
  // Failures in a row, without an answer or a connection that lasted between them.
  struct Trouble {
    Error reason;
    Deadline since;
    Deadline latest;
  };

  // Between attempts: a daemon that restarts is back within a second or two.
  static constexpr std::chrono::milliseconds kFirstPause{50};
  static constexpr std::chrono::milliseconds kLongestPause{1000};

  OpenDescriptors descriptors_;  // outlives the links
  std::shared_ptr<SharedLink> current_;
  Deadline nextAttempt_;
  Backoff pauses_{kFirstPause, kLongestPause};
  std::optional<Trouble> trouble_;
};

void LinkKeeper::keep(std::unique_ptr<Connection> connection) {
  current_ = std::make_shared<SharedLink>(std::move(connection), descriptors_);
}

void LinkKeeper::retire(const std::shared_ptr<SharedLink> &link) {
  if (current_ == link) {
    if (!link->wasInVain()) {
      trouble_.reset();
    }
    current_ = nullptr;
  }
}

void LinkKeeper::noteLoss(const std::shared_ptr<SharedLink> &link, Deadline callBegan) {
  // A server that hangs up at once is no better than none. Counted once, not by each waiter, and
  // not against a call that found the connection as it was.
  if (current_ == link && link->wasInVain() && link->openedAt() >= callBegan) {
    noteFailure(link->end().value_or(Error()));
  }
  retire(link);
}

void LinkKeeper::noteFailure(Error reason) {
  const auto now = std::chrono::steady_clock::now();
  trouble_ = Trouble{std::move(reason), trouble_ ? trouble_->since : now, now};
  nextAttempt_ = now + pauses_.next();
}

void LinkKeeper::noteAnswer() {
  trouble_.reset();
  pauses_.reset();
}

std::optional<Error> LinkKeeper::whyHopeless(Deadline callBegan,
                                             std::chrono::milliseconds limit) const {
  const bool isHopeless = trouble_ && trouble_->latest >= callBegan &&
                          trouble_->latest - std::max(callBegan, trouble_->since) >= limit;
  return isHopeless ? std::optional(trouble_->reason) : std::nullopt;
}

}  // namespace

struct SharedConnection::State {
  std::mutex mutex;
  LinkKeeper links;
  bool isOpening = false;          // some thread makes a connection
  std::condition_variable opened;  // or failed to
};

// While one thread makes a connection, the others wait for it.
class SharedConnection::Opening {
 public:
  explicit Opening(State &state) : state_(state) { state_.isOpening = true; }
  ~Opening() {
    state_.isOpening = false;
    state_.opened.notify_all();
  }
  Opening(const Opening &) = delete;
  Opening &operator=(const Opening &) = delete;

 private:
  State &state_;
};

// One request, on the thread that makes it.
class SharedConnection::Call {
 public:
  Call(State &state, const Opener &opener, const Terms &terms, Error *error)
      : state_(state), opener_(opener), terms_(terms), error_(error), lock_(state.mutex) {}

  std::optional<QuillMessage> run(const QuillMessage &message) {
    while (const auto link = linkThatStands()) {
      SharedLink::Waiter waiter(*link, *message.messageID);
      Error reason;
      if (!link->send(message, &reason) && reason.code == notSendable) {
        end(std::move(reason));
        return std::nullopt;
      }
      while (!waiter.answer && !link->end() && goesOn(link)) {
        link->wait(lock_, waiter, nextLook());
      }
      if (waiter.answer) {
        state_.links.noteAnswer();
        return std::move(waiter.answer);
      }
      if (!link->end()) {
        return std::nullopt;
      }
      state_.links.noteLoss(link, begin_);
    }
    return std::nullopt;
  }

 private:
  void end(Error reason) {
    if (error_ != nullptr) {
      *error_ = std::move(reason);
    }
  }

  [[nodiscard]] Deadline nextLook() const { return std::min(terms_.deadline, nextGlance_); }

  // False, with the reason given, if the call is at its end. `link` is the one that it waits on.
  bool goesOn(const std::shared_ptr<SharedLink> &link) {
    const auto now = Clock::now();
    if (now >= terms_.deadline) {
      if (link) {
        state_.links.retire(link);
      }
      end({kErrorDomain, timedOut, "no answer in time"});
      return false;
    }
    if (now < nextGlance_) {
      return true;
    }
    if (terms_.goesOn) {
      if (link) {
        link->handOn();
      }
      const Unlocked unlocked(lock_);
      if (!terms_.goesOn()) {
        end({kErrorDomain, stopped, "stopped while waiting"});
        return false;
      }
    }
    nextGlance_ = Clock::now() + terms_.glance;
    return true;
  }

  // Null, with the reason given, if there is none within the terms.
  std::shared_ptr<SharedLink> linkThatStands() {
    while (true) {
      auto link = state_.links.current();
      if (link && link->stands()) {
        return link;
      }
      if (link) {
        state_.links.noteLoss(link, begin_);
      }
      if (!goesOn(nullptr) || !isWorthAnotherAttempt()) {
        return nullptr;
      }
      if (state_.isOpening) {
        state_.opened.wait_until(lock_, nextLook());
      } else if (Clock::now() < state_.links.nextAttempt()) {
        state_.opened.wait_until(lock_, std::min(nextLook(), state_.links.nextAttempt()));
      } else {
        open();
      }
    }
  }

  bool isWorthAnotherAttempt() {
    auto reason = state_.links.whyHopeless(begin_, terms_.connecting);
    if (reason) {
      end(std::move(*reason));
    }
    return !reason;
  }

  void open() {
    const Opening opening(state_);
    Error reason;
    std::unique_ptr<Connection> connection;
    {
      const Unlocked unlocked(lock_);
      connection = opener_({terms_.deadline, /*stopDescriptor=*/-1}, &reason);
    }
    if (connection) {
      state_.links.keep(std::move(connection));
    } else if (Clock::now() < terms_.deadline) {
      // else it was this call that had no time left
      state_.links.noteFailure(std::move(reason));
    }
  }

  State &state_;
  const Opener &opener_;
  const Terms &terms_;
  Error *error_;
  SharedLink::Lock lock_;
  Deadline begin_ = Clock::now();
  Deadline nextGlance_ = begin_ + terms_.glance;
};

Terms lasting(std::chrono::milliseconds time) {
  Terms terms;
  terms.deadline = Clock::now() + time;
  return terms;
}

SharedConnection::SharedConnection(Opener opener)
    : opener_(std::move(opener)), state_(std::make_unique<State>()) {}

SharedConnection::~SharedConnection() = default;

std::optional<QuillMessage> SharedConnection::request(const QuillMessage &message,
                                                      const Terms &terms, Error *error) {
  if (!message.messageID) {
    base::report(error, kErrorDomain, notSendable, "the request has no message ID");
    return std::nullopt;
  }
  return Call(*state_, opener_, terms, error).run(message);
}

void SharedConnection::abandon() {
  // never released: a thread that is not in this process may hold its lock or wait in it
  State &old = *state_.release();
  old.links.abandon();
  state_ = std::make_unique<State>();
}

}  // namespace client
