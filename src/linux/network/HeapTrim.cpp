#include "linux/network/HeapTrim.hpp"

#include <malloc.h>

#include <chrono>
#include <new>

namespace platform_linux {
namespace {

// As many connections as are worth it, at most once in this time: a call costs some milliseconds.
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
