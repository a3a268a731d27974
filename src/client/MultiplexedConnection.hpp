#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>

#include "base/Error.hpp"
#include "base/UUID.hpp"
#include "client/Connection.hpp"
#include "client/OpenDescriptors.hpp"
#include "client/WaitLimits.hpp"
#include "protocol/QuillMessage.hpp"

namespace client {

// Releases a lock for its lifetime and acquires it again at the end.
class ReverseLock {
 public:
  explicit ReverseLock(std::unique_lock<std::mutex> &lock) : lock_(lock) { lock_.unlock(); }
  ~ReverseLock() { lock_.lock(); }
  ReverseLock(const ReverseLock &) = delete;
  ReverseLock &operator=(const ReverseLock &) = delete;

 private:
  std::unique_lock<std::mutex> &lock_;
};

// One connection on which several threads wait for their answers. One of them polls, reads for all
// and wakes the threads whose answers arrived; when it leaves, it wakes another one to poll. Used
// by SharedConnection, whose lock is held in every call.
class MultiplexedConnection {
 public:
  using Lock = std::unique_lock<std::mutex>;

  // A thread that waits for the answer to one request. Created before the request is sent. The
  // connection drops messages that no waiter expects.
  class Waiter {
   public:
    Waiter(MultiplexedConnection &link, const UUID &messageID);
    ~Waiter();
    Waiter(const Waiter &) = delete;
    Waiter &operator=(const Waiter &) = delete;

    std::optional<QuillMessage> answer;

   private:
    friend class MultiplexedConnection;

    MultiplexedConnection &link_;
    UUID messageID_;
    std::condition_variable wake_;
    bool isSleeping_ = false;
  };

  MultiplexedConnection(std::unique_ptr<Connection> connection, OpenDescriptors &descriptors);

  // Reads what arrived while no thread polled. False if the connection has ended.
  [[nodiscard]] bool readPending();

  // Queues the whole frame and sends what the socket accepts now; waiting threads send the rest.
  [[nodiscard]] bool send(const QuillMessage &message, Error *error);

  // Releases the lock and waits until something happened that may concern the waiter, at most until
  // `time`. Call it again until the answer is there or the connection has ended.
  void wait(Lock &lock, Waiter &waiter, Deadline time);

  // Wakes a waiter to poll if no thread polls. Call it before the thread does something else.
  void handOverPolling();

  [[nodiscard]] const std::optional<Error> &end() const { return connection_->end(); }

  [[nodiscard]] Deadline openedAt() const { return openedAt_; }

  // True if no answer has arrived and the connection is younger than a second.
  [[nodiscard]] bool failedEarly() const;

 private:
  [[nodiscard]] bool isPolledForAll() const;
  void poll(Lock &lock, Deadline time);
  void pump();

  std::unique_ptr<Connection> connection_;
  OpenDescriptors::Entry entry_;  // destroyed before the descriptor is closed
  Deadline openedAt_ = std::chrono::steady_clock::now();
  std::unordered_map<UUID, Waiter *> waiters_;  // only those without an answer
  int polling_ = 0;                             // threads that poll
  int pollingToWrite_ = 0;  // of those, the threads that also poll for writability
  bool hasAnswered_ = false;
};

}  // namespace client
