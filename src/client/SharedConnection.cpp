#include "client/SharedConnection.hpp"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>
#include <vector>

#include "client/Backoff.hpp"
#include "client/SharedLink.hpp"
#include "client/Unlocked.hpp"

namespace client {
namespace {

using Clock = std::chrono::steady_clock;

// Between attempts to connect: a daemon that restarts is back within a second or two.
constexpr std::chrono::milliseconds kFirstPause{50};
constexpr std::chrono::milliseconds kLongestPause{1000};

}  // namespace

struct SharedConnection::State {
  // Why, since when and until when the daemon could not be reached, without an answer since.
  struct Trouble {
    Error reason;
    Deadline since;
    Deadline latest;
  };

  std::mutex mutex;
  std::shared_ptr<SharedLink> current;           // for new requests; null: none
  std::vector<std::weak_ptr<SharedLink>> links;  // this and those on which requests still wait
  bool isOpening = false;                        // some thread makes a connection
  std::condition_variable opened;                // or failed to
  Deadline nextAttempt;                          // not before that
  Backoff pauses{kFirstPause, kLongestPause};
  std::optional<Trouble> trouble;

  void keep(std::unique_ptr<Connection> connection) {
    current = std::make_shared<SharedLink>(std::move(connection));
    std::erase_if(links, [](const auto &link) { return link.expired(); });
    links.push_back(current);
  }

  // From now on, requests use another one.
  void retire(const std::shared_ptr<SharedLink> &link) {
    if (current == link) {
      if (!link->wasInVain()) {
        trouble.reset();
      }
      current = nullptr;
    }
  }

  void noteFailure(Error reason) {
    const auto now = Clock::now();
    trouble = Trouble{std::move(reason), trouble ? trouble->since : now, now};
    nextAttempt = now + pauses.next();
  }

  void noteLoss(const std::shared_ptr<SharedLink> &link, Deadline callBegan) {
    // A server that hangs up at once is no better than none. Counted once, not by each waiter, and
    // not against a call that found the connection as it was.
    if (current == link && link->wasInVain() && link->openedAt() >= callBegan) {
      noteFailure(link->end().value_or(Error()));
    }
    retire(link);
  }

  void noteAnswer() {
    trouble.reset();
    pauses.reset();
  }
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
        state_.noteAnswer();
        return std::move(waiter.answer);
      }
      if (!link->end()) {
        return std::nullopt;
      }
      state_.noteLoss(link, begin_);
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
        state_.retire(link);
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
      if (state_.current && !state_.current->stands()) {
        state_.noteLoss(std::shared_ptr(state_.current), begin_);
      }
      if (state_.current) {
        return state_.current;
      }
      if (!goesOn(nullptr) || !isWorthAnotherAttempt()) {
        return nullptr;
      }
      if (state_.isOpening) {
        state_.opened.wait_until(lock_, nextLook());
      } else if (Clock::now() < state_.nextAttempt) {
        state_.opened.wait_until(lock_, std::min(nextLook(), state_.nextAttempt));
      } else {
        open();
      }
    }
  }

  bool isWorthAnotherAttempt() {
    const auto &trouble = state_.trouble;
    const bool isOver = trouble && trouble->latest >= begin_ &&
                        trouble->latest - std::max(begin_, trouble->since) >= terms_.connecting;
    if (isOver) {
      end(trouble->reason);
    }
    return !isOver;
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
      state_.keep(std::move(connection));
    } else if (Clock::now() < terms_.deadline) {
      // else it was this call that had no time left
      state_.noteFailure(std::move(reason));
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
  if (old.mutex.try_lock()) {
    for (const auto &entry : old.links) {
      if (const auto link = entry.lock()) {
        link->abandon();
      }
    }
  }
  state_ = std::make_unique<State>();
}

}  // namespace client
