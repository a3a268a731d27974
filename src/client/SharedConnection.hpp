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

// The wait limits of a request on a shared connection.
struct RequestOptions {
  Deadline deadline = std::chrono::steady_clock::now() + kDefaultWait;

  // How long connection attempts are repeated before the call fails. Zero: one attempt.
  std::chrono::milliseconds reconnectTime{5000};

  // Called about every `checkInterval` during the wait; false ends the call. Null: never ends it.
  // Called without a lock and may use the connection.
  std::function<bool()> shouldContinue;
  std::chrono::milliseconds checkInterval{250};
};

// The default options with a deadline in `time` from now.
[[nodiscard]] RequestOptions optionsWithin(std::chrono::milliseconds time);

// A connection to a daemon that many threads use at once: their requests are in flight together and
// don't delay each other. Opened at the first request, and again after a loss. Has no thread of its
// own: one of the waiting callers reads for all.
class SharedConnection {
 public:
  // Opens a connection to the right server within `limits`. Null, with the reason, if that fails.
  using Opener = std::function<std::unique_ptr<Connection>(const WaitLimits &limits, Error *error)>;

  explicit SharedConnection(Opener opener);

  // Sends close_notify. No call may be in progress.
  ~SharedConnection();
  SharedConnection(const SharedConnection &) = delete;
  SharedConnection &operator=(const SharedConnection &) = delete;

  // Sends a request and waits for the response with the same message ID. If the connection is lost
  // meanwhile, the request is sent again on a new one, so it must be idempotent. After a timeout,
  // new requests use a new connection, while those in flight on the old one continue. Nothing, with
  // the code, if the deadline passed (timedOut), `shouldContinue` returned false (stopped), the
  // message has no ID or lacks a field (notSendable), or the connection could not be opened.
  [[nodiscard]] std::optional<QuillMessage> request(const QuillMessage &message,
                                                    const RequestOptions &options = {},
                                                    Error *error = nullptr);

  // For the child of a fork: closes the descriptors, sends nothing and starts with no connection.
  // Safe whatever the parent's threads were doing; their other resources are leaked.
  void abandon();

 private:
  class ReconnectState;
  struct State;
  class OpeningGuard;
  class Call;

  Opener opener_;
  std::unique_ptr<State> state_;
};

}  // namespace client
