#include "linux/network/HeapTrim.hpp"

#include <malloc.h>

#include <chrono>
#include <new>

namespace platform_linux {
namespace {

// A trim costs some milliseconds: one for this many connections, and at most one in this time.
constexpr std::size_t kMany = 64;
constexpr std::chrono::seconds kPause{1};

}  // namespace

void HeapTrim::connectionGone() {
  if (++gone_ != kMany) {
    return;
  }
  timer_.expires_after(kPause);
  timer_.async_wait([self = shared_from_this()](const boost::system::error_code & /*never*/) {
    self->gone_ = 0;
    (void)::malloc_trim(0);
  });
}

}  // namespace platform_linux
