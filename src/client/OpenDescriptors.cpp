#include "client/OpenDescriptors.hpp"

#include <unistd.h>

#include <algorithm>

namespace client {

OpenDescriptors::Entry::Entry(OpenDescriptors &all, int descriptor) {
  const auto identity = SocketIdentity::of(descriptor);
  const auto free = std::ranges::find_if(
      all.places_, [](const Place &place) { return place.descriptor == kNone; });
  if (identity && free != all.places_.end()) {
    free->identity = *identity;
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
    if (descriptor != kNone && SocketIdentity::of(descriptor) == place.identity) {
      ::close(descriptor);
    }
  }
}

}  // namespace client
