#pragma once

#include <array>
#include <atomic>

#include "client/SocketIdentity.hpp"

namespace client {

// The descriptors of open connections. The child of a fork closes them without a lock, since a
// thread that does not exist in the child may hold any lock and may have left any other data
// inconsistent.
class OpenDescriptors {
 public:
  // Registers a descriptor for its lifetime. Created and destroyed under the owner's lock. Only the
  // first sixteen descriptors are registered.
  class Entry {
   public:
    Entry(OpenDescriptors &all, int descriptor);
    ~Entry();
    Entry(const Entry &) = delete;
    Entry &operator=(const Entry &) = delete;

   private:
    std::atomic<int> *place_ = nullptr;
  };

  // Closes the descriptors that still refer to the same sockets. Lock-free; only for the child of a
  // fork.
  void closeAll();

 private:
  static constexpr int kNone = -1;

  struct Place {
    SocketIdentity identity;  // written before the descriptor, which makes the entry valid
    std::atomic<int> descriptor{kNone};
  };

  std::array<Place, 16> places_;
};

}  // namespace client
