#pragma once

#include <chrono>
#include <memory>
#include <optional>

#include "base/Error.hpp"
#include "client/Backoff.hpp"
#include "client/OpenDescriptors.hpp"
#include "client/Patience.hpp"
#include "client/SharedLink.hpp"

namespace client {

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

}  // namespace client
