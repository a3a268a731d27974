#pragma once

#include "platform/ItemStore.hpp"

namespace identity {

// A search for all identities, with their certificate and key and with their attributes.
[[nodiscard]] inline platform::IdentityQuery queryWithAttributes() {
  platform::IdentityQuery query;
  query.returnAttributes = true;
  query.returnReference = true;
  return query;
}

}  // namespace identity
