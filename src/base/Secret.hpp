#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "base/Bytes.hpp"

namespace base {

// Overwrites memory in a way that the compiler does not remove.
void cleanse(void *memory, std::size_t size);

// An allocator that overwrites memory before it frees it.
template <typename T>
struct CleansingAllocator {
  using value_type = T;

  CleansingAllocator() = default;
  template <typename U>
  explicit CleansingAllocator(const CleansingAllocator<U> & /*other*/) {}

  [[nodiscard]] T *allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T *memory, std::size_t count) {
    cleanse(memory, count * sizeof(T));
    std::allocator<T>().deallocate(memory, count);
  }

  friend bool operator==(const CleansingAllocator & /*left*/,
                         const CleansingAllocator & /*right*/) {
    return true;
  }
};

// Bytes whose memory is overwritten before it is freed. For frames while they are received, built
// and sent: a frame may carry a PIN or a password. Used like a vector.
using CleansedBytes = std::vector<std::uint8_t, CleansingAllocator<std::uint8_t>>;

// Appends `count` zeros and returns them, borrowed until the bytes change again. Faster than
// insert(), which copies byte by byte where the allocator is not the standard one.
std::span<std::uint8_t> extend(CleansedBytes &bytes, std::size_t count);

// Appends a copy of `more`, which must not be part of `bytes`.
void append(CleansedBytes &bytes, ByteView more);

// A key, PIN or password in bytes, cleansed on destruction. It has no == and no log form. reveal()
// is the only way to its content, so that one search lists every place that touches a secret.
class SecretBytes {
 public:
  SecretBytes() = default;
  explicit SecretBytes(ByteView content) : content_(content.begin(), content.end()) {}
  explicit SecretBytes(CleansedBytes content) : content_(std::move(content)) {}

  // The content, borrowed as long as this object lives unchanged.
  [[nodiscard]] ByteView reveal() const { return content_; }
  [[nodiscard]] bool empty() const { return content_.empty(); }

 private:
  CleansedBytes content_;
};

// A PIN or password as UTF-8 text. A SecretBytes holds the characters, because a short
// std::string lives inside its own object, where no allocator cleanses it.
class SecretText {
 public:
  SecretText() = default;
  explicit SecretText(std::string_view content) : content_(viewOf(content)) {}
  explicit SecretText(CleansedBytes content) : content_(std::move(content)) {}

  // The content, borrowed as long as this object lives unchanged.
  [[nodiscard]] std::string_view reveal() const { return textOf(content_.reveal()); }
  [[nodiscard]] bool empty() const { return content_.empty(); }

 private:
  SecretBytes content_;
};

}  // namespace base

using base::CleansedBytes;
using base::SecretBytes;
using base::SecretText;
