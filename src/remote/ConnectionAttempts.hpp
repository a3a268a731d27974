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
  std::optional<Fingerprint> shown;                // what the server showed, if it came so far
  Error error;
};

// Opens connections, each on a thread of its own, since names are looked up in no other way.
class ConnectionAttempts {
 public:
  using Completion = std::function<void(const AttemptOutcome &opened)>;

  // Completions come through the executor.
  explicit ConnectionAttempts(std::shared_ptr<LoopExecutor> executor);

  // Begins an attempt. With `pinned` only a server that shows it is accepted; without, any, and
  // nothing is sent before the caller has judged what it showed.
  void begin(const Address &address, const std::optional<Fingerprint> &pinned,
             Completion completion);

  // Ends the waits of all attempts, and waits until `deadline` for their threads. False if one
  // still looks up a name, which nothing can end: then the process must end without clearing up.
  [[nodiscard]] bool finish(client::Deadline deadline);

 private:
  struct Shared {
    std::mutex mutex;
    std::condition_variable changed;
    std::set<std::thread::id> done;  // these wait to be joined
  };

  void joinDone();

  std::shared_ptr<LoopExecutor> executor_;
  base::Descriptor stopEvent_;
  std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
  std::vector<std::thread> threads_;
};

}  // namespace remote
