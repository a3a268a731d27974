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

// Lets go of a lock for the time of a wait and has it again afterwards, whatever ends the wait.
class ReverseLock {
 public:
  explicit ReverseLock(std::unique_lock<std::mutex> &lock) : lock_(lock) { lock_.unlock(); }
  ~ReverseLock() { lock_.lock(); }
  ReverseLock(const ReverseLock &) = delete;
  ReverseLock &operator=(const ReverseLock &) = delete;

 private:
  std::unique_lock<std::mutex> &lock_;
};

// One connection on which several threads wait for their answers: one of them polls, reads for all
// and wakes those whose answers have come; who leaves hands the polling on. For SharedConnection,
// whose lock is held in every call here.
class MultiplexedConnection {
 public:
  using Lock = std::unique_lock<std::mutex>;

  // A thread that waits for the answer to one request. Known to the link as long as it lives, from
  // before the request is sent; a message that no waiter expects is dropped.
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

  // Reads what has come while nobody polled. False if the connection is at its end.
  [[nodiscard]] bool readPending();

  // Queues the whole frame and sends what leaves at once; the rest leaves while somebody waits.
  [[nodiscard]] bool send(const QuillMessage &message, Error *error);

  // Waits, without the lock, until something happened that may concern the waiter, or until `time`
  // at the latest: to be called again until the answer is there or the connection ended.
  void wait(Lock &lock, Waiter &waiter, Deadline time);

  // Wakes a waiter to do the polling if nobody does, before a thread turns to something else.
  void handOverPolling();

  [[nodiscard]] const std::optional<Error> &end() const { return connection_->end(); }

  [[nodiscard]] Deadline openedAt() const { return openedAt_; }

  // True if it brought nothing: no answer has come, and it is hardly older than its handshake.
  [[nodiscard]] bool failedEarly() const;

 private:
  [[nodiscard]] bool isPolledForAll() const;
  void poll(Lock &lock, Deadline time);
  void pump();

  std::unique_ptr<Connection> connection_;
  OpenDescriptors::Entry entry_;  // goes before the descriptor is closed
  Deadline openedAt_ = std::chrono::steady_clock::now();
  std::unordered_map<UUID, Waiter *> waiters_;  // without those that have their answer
  int polling_ = 0;                             // threads that poll now
  int pollingToWrite_ = 0;                      // those of them that also wait to write
  bool hasAnswered_ = false;
};

}  // namespace client
