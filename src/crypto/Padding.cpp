#include "crypto/Padding.hpp"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <new>
#include <span>

#include "crypto/Library.hpp"

namespace crypto {
namespace {

// All ones for true, zero for false: secrets decide by arithmetic, never by a jump.
using Mask = std::uint32_t;

// Hides from the compiler that a mask has only two values; otherwise it might compile a jump.
Mask opaque(Mask mask) {
  asm("" : "+r"(mask));
  return mask;
}

Mask isZero(std::uint32_t value) {
  return opaque(Mask{0} - ((~value & (value - 1)) >> 31));
}

Mask isEqual(std::uint32_t left, std::uint32_t right) {
  return isZero(left ^ right);
}

// For numbers below 2^31.
Mask isLess(std::uint32_t left, std::uint32_t right) {
  return opaque(Mask{0} - ((left - right) >> 31));
}

std::uint32_t choose(Mask mask, std::uint32_t ifTrue, std::uint32_t ifFalse) {
  return (mask & ifTrue) | (~mask & ifFalse);
}

// The only place that reveals something: whether the padding was right, and the length of the
// message. The caller learns both anyway.
std::optional<SecretBytes> messageFrom(ByteView block, std::uint32_t start, Mask isGood) {
  if (isGood == 0) {
    return std::nullopt;
  }
  return SecretBytes(block.subspan(start));
}

}  // namespace

void layMGF1(std::span<std::uint8_t> target, ByteView seed, HashAlgorithm hash) {
  CleansedBytes input(seed.begin(), seed.end());
  input.resize(seed.size() + 4);
  CleansedBytes part(digestSize(hash));
  std::uint32_t counter = 0;
  while (!target.empty()) {
    for (unsigned index = 0; index < 4; ++index) {
      input[seed.size() + index] = static_cast<std::uint8_t>(counter >> (24 - 8 * index));
    }
    if (EVP_Q_digest(libraryContext(), nameOf(hash), nullptr, input.data(), input.size(),
                     part.data(), nullptr) != 1) {
      throw std::bad_alloc();
    }
    const std::size_t length = std::min(target.size(), part.size());
    std::ranges::transform(target.first(length), part, target.begin(), std::bit_xor<>());
    target = target.subspan(length);
    ++counter;
  }
}

std::optional<ByteView> contentOfPKCS1Block(ByteView block) {
  constexpr std::size_t kLeastFilling = 8;
  if (block.size() < kLeastFilling + 3 || block[0] != 0x00 || block[1] != 0x01) {
    return std::nullopt;
  }
  const ByteView rest = block.subspan(2);
  const auto end = std::ranges::find_if(rest, [](std::uint8_t byte) { return byte != 0xFF; });
  const auto filling = static_cast<std::size_t>(end - rest.begin());
  if (end == rest.end() || *end != 0x00 || filling < kLeastFilling) {
    return std::nullopt;
  }
  return rest.subspan(filling + 1);
}

std::optional<SecretBytes> unpadPKCS1(ByteView block) {
  constexpr std::size_t kLeastBlock = 11;
  constexpr std::uint32_t kFirstOfPadding = 2;
  constexpr std::uint32_t kLeastPadding = 8;
  if (block.size() < kLeastBlock) {
    return std::nullopt;
  }
  Mask hasEnded = 0;
  std::uint32_t end = 0;
  for (std::uint32_t index = kFirstOfPadding; index < block.size(); ++index) {
    const Mask isEnd = ~hasEnded & isZero(block[index]);
    end = choose(isEnd, index, end);
    hasEnded |= isEnd;
  }
  const Mask isGood = isZero(block[0]) & isEqual(block[1], 2) & hasEnded &
                      ~isLess(end, kFirstOfPadding + kLeastPadding);
  return messageFrom(block, end + 1, isGood);
}

std::optional<SecretBytes> unpadOAEP(ByteView block, HashAlgorithm hash, HashAlgorithm maskHash,
                                     ByteView label) {
  const std::size_t size = digestSize(hash);
  if (block.size() < 2 * size + 2) {
    return std::nullopt;
  }
  CleansedBytes opened(block.begin(), block.end());
  const std::span<std::uint8_t> seed = std::span(opened).subspan(1, size);
  const std::span<std::uint8_t> data = std::span(opened).subspan(1 + size);
  layMGF1(seed, data, maskHash);
  layMGF1(data, seed, maskHash);

  Mask isGood = isZero(opened[0]);
  const Bytes labelHash = digestOf(hash, label);
  for (std::size_t index = 0; index < size; ++index) {
    isGood &= isEqual(data[index], labelHash[index]);
  }
  Mask hasEnded = 0;
  std::uint32_t end = 0;
  for (std::size_t index = size; index < data.size(); ++index) {
    const Mask isEnd = ~hasEnded & isEqual(data[index], 1);
    end = choose(isEnd, static_cast<std::uint32_t>(index), end);
    hasEnded |= isEnd;
    isGood &= hasEnded | isZero(data[index]);
  }
  return messageFrom(data, end + 1, isGood & hasEnded);
}

}  // namespace crypto
