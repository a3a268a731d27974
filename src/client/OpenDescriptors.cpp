#include "client/OpenDescriptors.hpp"

#include <unistd.h>

#include <algorithm>

namespace client {

OpenDescriptors::Entry::Entry(OpenDescriptors &all, int descriptor) {
  const auto mark = SocketMark::of(descriptor);
  const auto free = std::ranges::find_if(
      all.places_, [](const Place &place) { return place.descriptor == kNone; });
  if (mark && free != all.places_.end()) {
    free->mark = *mark;
    free->descriptor = descriptor;
    place_ = &free->descriptor;
  }
}

OpenDescriptors::Entry::~Entry() {
  if (place_ != nullptr) {
    *place_ = kNone;
  }
}

void OpenDescriptors::closeAll() {
  for (Place &place : places_) {
    const int descriptor = place.descriptor.exchange(kNone);
    if (descriptor != kNone && SocketMark::of(descriptor) == place.mark) {
      ::close(descriptor);
    }
  }
}

}  // namespace client
