#pragma once

#include <array>
#include <atomic>

#include "client/SocketIdentity.hpp"

namespace client {

// The descriptors of connections that are open, kept so that the child of a fork can close them
// whatever another thread was doing at that instant: a thread that is not in the child may hold any
// lock, and may have left anything half done but this.
class OpenDescriptors {
 public:
  // One of them, as long as this lives. Made and ended under the owner's lock. Beyond sixteen at a
  // time they are not known here.
  class Entry {
   public:
    Entry(OpenDescriptors &all, int descriptor);
    ~Entry();
    Entry(const Entry &) = delete;
    Entry &operator=(const Entry &) = delete;

   private:
    std::atomic<int> *place_ = nullptr;
  };

  // Closes those that are still the same sockets. Needs no lock; for the child of a fork alone.
  void closeAll();

 private:
  static constexpr int kNone = -1;

  struct Place {
    SocketIdentity identity;  // written before the descriptor, which makes it count
    std::atomic<int> descriptor{kNone};
  };

  std::array<Place, 16> places_;
};

}  // namespace client
