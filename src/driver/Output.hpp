#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>

#include "base/Bytes.hpp"
#include "driver/Operation.hpp"
#include "driver/Pkcs11.hpp"

namespace driver {

// Where a call puts a result of variable length (PKCS #11 v2.40, 5.2): a null place asks for the
// length alone. A call that ends for want of room leaves its operation as it was.
class Output {
 public:
  Output(CK_BYTE_PTR place, CK_ULONG_PTR length) : place_(place), length_(length) {}

  // How the call ends before anything is done, if there is no room for `size` bytes; nothing if
  // there is.
  [[nodiscard]] std::optional<Progress> withoutRoomFor(std::size_t size) const {
    if (length_ == nullptr) {
      return Progress{CKR_ARGUMENTS_BAD};
    }
    if (place_ != nullptr && *length_ >= size) {
      return std::nullopt;
    }
    *length_ = size;
    return Progress{place_ == nullptr ? CKR_OK : CKR_BUFFER_TOO_SMALL, /*isOver=*/false};
  }

  // Gives the result, with which the operation ends.
  [[nodiscard]] Progress put(ByteView result) const {
    if (const auto ended = withoutRoomFor(result.size())) {
      return *ended;
    }
    std::ranges::copy(result, place_);
    *length_ = result.size();
    return Progress{CKR_OK};
  }

  // True if only the length is asked for, or nothing can be put here at all.
  [[nodiscard]] bool isEmpty() const {
    return length_ == nullptr || place_ == nullptr || *length_ == 0;
  }

 private:
  CK_BYTE_PTR place_;
  CK_ULONG_PTR length_;
};

}  // namespace driver
