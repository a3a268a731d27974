#pragma once

#include <memory>

namespace crypto {

template <auto Release>
struct Releaser {
  template <typename T>
  void operator()(T *object) const {
    Release(object);
  }
};

// An OpenSSL object that is released with `Release`; for this folder's own files.
template <typename T, auto Release>
using Owned = std::unique_ptr<T, Releaser<Release>>;

}  // namespace crypto
