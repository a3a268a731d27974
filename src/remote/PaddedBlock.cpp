#include "remote/PaddedBlock.hpp"

#include <algorithm>
#include <cstddef>

#include "crypto/Padding.hpp"

namespace remote {
namespace {

constexpr std::size_t kLeastFilling = 8;

// `message` is the encoded message (EM), of which the first `unusedBits` are zero.
bool isPSS(ByteView message, unsigned unusedBits, crypto::HashAlgorithm algorithm) {
  const std::size_t digest = crypto::digestSize(algorithm);
  if (message.size() < 2 * digest + 2 + kLeastFilling || message.back() != 0xBC ||
      (message.front() >> (8 - unusedBits)) != 0) {
    return false;
  }
  const std::size_t masked = message.size() - digest - 1;
  Bytes block(message.begin(), message.begin() + static_cast<std::ptrdiff_t>(masked));
  crypto::layMGF1(block, message.subspan(masked, digest), algorithm);
  block.front() = static_cast<std::uint8_t>(block.front() & (0xFF >> unusedBits));
  const ByteView filling = ByteView(block).first(masked - digest);
  return filling.back() == 0x01 && std::ranges::all_of(filling.first(filling.size() - 1),
                                                       [](std::uint8_t byte) { return byte == 0; });
}

}  // namespace

std::optional<ByteView> contentOfPKCS1Block(ByteView block) {
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

std::optional<crypto::HashAlgorithm> digestOfPSSBlock(ByteView block, int modulusBits) {
  // the encoded message is a bit shorter than the modulus, and so may be a byte shorter than it
  const auto messageBits = static_cast<std::size_t>(std::max(modulusBits - 1, 0));
  const std::size_t length = (messageBits + 7) / 8;
  if (block.size() < length || length == 0 ||
      std::ranges::any_of(block.first(block.size() - length),
                          [](std::uint8_t byte) { return byte != 0; })) {
    return std::nullopt;
  }
  const auto unusedBits = static_cast<unsigned>(8 * length - messageBits);
  const auto *const found =
      std::ranges::find_if(kHashAlgorithms, [&](crypto::HashAlgorithm algorithm) {
        return isPSS(block.last(length), unusedBits, algorithm);
      });
  return found == kHashAlgorithms.end() ? std::nullopt : std::optional(*found);
}

}  // namespace remote
