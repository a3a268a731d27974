#pragma once

#include <mutex>

namespace client {

// Lets go of a lock for the time of a wait and has it again afterwards, whatever ends the wait.
class Unlocked {
 public:
  explicit Unlocked(std::unique_lock<std::mutex> &lock) : lock_(lock) { lock_.unlock(); }
  ~Unlocked() { lock_.lock(); }
  Unlocked(const Unlocked &) = delete;
  Unlocked &operator=(const Unlocked &) = delete;

 private:
  std::unique_lock<std::mutex> &lock_;
};

}  // namespace client
