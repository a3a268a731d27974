#include "client/SharedConnection.hpp"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "client/LinkKeeper.hpp"
#include "client/SharedLink.hpp"
#include "client/Unlocked.hpp"

namespace client {
namespace {

using Clock = std::chrono::steady_clock;

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
