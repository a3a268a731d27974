#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "base/Error.hpp"
#include "client/Connection.hpp"
#include "client/WaitLimits.hpp"
#include "protocol/QuillMessage.hpp"

namespace client {

// How a request on a shared connection waits.
struct RequestOptions {
  Deadline deadline = std::chrono::steady_clock::now() + kDefaultWait;

  // How long it is tried again to reach a daemon that can't be reached, before the call fails.
  // Zero: one attempt.
  std::chrono::milliseconds reconnectTime{5000};

  // Asked about every `checkInterval` of the wait whether it goes on; null: always. Called without
  // a lock, may use the connection itself.
  std::function<bool()> shouldContinue;
  std::chrono::milliseconds checkInterval{250};
};

// The usual options, with a deadline in `time` from now.
[[nodiscard]] RequestOptions optionsWithin(std::chrono::milliseconds time);

// A connection to a daemon that many threads use at once, each call with as many others in flight
// as there are threads, and none delayed by another. Opened at the first request, again after a
// loss. Has no thread of its own: a caller that waits reads for all.
class SharedConnection {
 public:
  // Makes a connection to the right server, or gives the reason why there is none. May block as
  // long as `limits` says.
  using Opener = std::function<std::unique_ptr<Connection>(const WaitLimits &limits, Error *error)>;

  explicit SharedConnection(Opener opener);

  // No call may be under way. Says goodbye to the daemon.
  ~SharedConnection();
  SharedConnection(const SharedConnection &) = delete;
  SharedConnection &operator=(const SharedConnection &) = delete;

  // Sends a request and waits for the response with its message ID. Where the connection is lost
  // before that, the same request goes out again on a new one: it must not hurt when it is done
  // twice. Later requests use another connection than one on which a deadline passed, while those
  // in flight there go on. Nothing, with the code, when the deadline has passed (timedOut),
  // `shouldContinue` said no (stopped), the message has no ID or lacks a field (notSendable), or
  // else why there is no connection.
  [[nodiscard]] std::optional<QuillMessage> request(const QuillMessage &message,
                                                    const RequestOptions &options = {},
                                                    Error *error = nullptr);

  // For a process that got this through fork: closes the descriptors without a word and begins
  // anew. Safe whatever the threads of the other process were doing; all else that they held is
  // left as it is.
  void abandon();

 private:
  struct State;
  class OpeningGuard;
  class Call;

  Opener opener_;
  std::unique_ptr<State> state_;
};

}  // namespace client
