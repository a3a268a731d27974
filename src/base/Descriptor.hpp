#pragma once

#include <unistd.h>

#include <chrono>
#include <utility>

namespace base {

// Owns an open file descriptor and closes it on destruction. Negative: none.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int value) : value_(value) {}
  ~Descriptor() { close(); }
  Descriptor(Descriptor &&other) noexcept : value_(std::exchange(other.value_, -1)) {}
  Descriptor &operator=(Descriptor &&other) noexcept {
    if (this != &other) {
      close();
      value_ = std::exchange(other.value_, -1);
    }
    return *this;
  }
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;

  [[nodiscard]] int get() const { return value_; }
  [[nodiscard]] bool isOpen() const { return value_ >= 0; }

  // Gives the descriptor to the caller.
  [[nodiscard]] int release() { return std::exchange(value_, -1); }

  // Closes it now.
  void close() {
    if (value_ >= 0) {
      ::close(std::exchange(value_, -1));
    }
  }

 private:
  int value_ = -1;
};

// Waits until a descriptor can be read or written. Also true if it has ended or failed: the next
// call on it reports that. False when the deadline has passed or waiting is not possible.
[[nodiscard]] bool waitToRead(int descriptor, std::chrono::steady_clock::time_point deadline);
[[nodiscard]] bool waitToWrite(int descriptor, std::chrono::steady_clock::time_point deadline);

}  // namespace base
