#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <vector>

#include "base/Descriptor.hpp"
#include "base/Error.hpp"
#include "client/Connection.hpp"
#include "remote/Address.hpp"
#include "remote/KnownHosts.hpp"
#include "remote/LoopExecutor.hpp"

namespace remote {

// The outcome of an attempt to open a connection.
struct AttemptOutcome {
  std::shared_ptr<client::Connection> connection;  // null: see error
  std::optional<Fingerprint> shown;                // the server's certificate, if it got that far
  Error error;
};

// Opens connections, each on a thread of its own: looking up a name blocks.
class ConnectionAttempts {
 public:
  using Completion = std::function<void(const AttemptOutcome &opened)>;

  // Completions come through the executor.
  explicit ConnectionAttempts(std::shared_ptr<LoopExecutor> executor);

  // Begins an attempt. With `pinned`, only a server with that fingerprint is accepted. Without it
  // any server is; the caller must check the fingerprint before it sends anything.
  void begin(const Address &address, const std::optional<Fingerprint> &pinned,
             Completion completion);

  // Stops all attempts and waits until `deadline` for their threads. False if a thread still looks
  // up a name, which cannot be interrupted: the process must then end without destroying anything.
  [[nodiscard]] bool finish(client::Deadline deadline);

 private:
  struct Shared {
    std::mutex mutex;
    std::condition_variable changed;
    std::set<std::thread::id> done;  // to be joined
  };

  void joinDone();

  std::shared_ptr<LoopExecutor> executor_;
  base::Descriptor stopEvent_;
  std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
  std::vector<std::thread> threads_;
};

}  // namespace remote
