#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace base {

// Owned bytes, and bytes that are borrowed for the duration of a call.
using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

// The bytes of a text, borrowed from it.
[[nodiscard]] ByteView viewOf(std::string_view text);

// A copy of the bytes of a text.
[[nodiscard]] Bytes bytesOf(std::string_view text);

// The bytes as a text, borrowed; nothing is checked or decoded.
[[nodiscard]] std::string_view textOf(ByteView bytes);

// True if both hold the same bytes. Not for secrets: its time reveals where they differ.
[[nodiscard]] bool equal(ByteView left, ByteView right);

// Copies bytes to where there is room for them, at once: the standard library's ranges::copy goes
// byte by byte. The two don't overlap.
void copy(ByteView from, std::uint8_t *to);

}  // namespace base

// At global scope because nearly every file uses them.
using base::Bytes;
using base::ByteView;
