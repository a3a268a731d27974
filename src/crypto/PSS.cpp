#include "crypto/PSS.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "crypto/Padding.hpp"
#include "crypto/RSAEncryption.hpp"

namespace crypto {
namespace {

constexpr std::uint8_t kTrailer = 0xBC;

// H of RFC 8017 9.1.1, steps 5 and 6: eight zeros, the message's digest and the salt.
Bytes hashOfSalted(ByteView digest, ByteView salt, HashAlgorithm hash) {
  Bytes input(8);
  input.insert(input.end(), digest.begin(), digest.end());
  input.insert(input.end(), salt.begin(), salt.end());
  return digestOf(hash, input);
}

}  // namespace

std::optional<Bytes> padPSS(ByteView digest, const PSSParameters &parameters, int modulusBits) {
  const auto usedBits = static_cast<std::size_t>(modulusBits) - 1;
  const std::size_t size = digestSize(parameters.hash);
  const std::size_t encodedSize = (usedBits + 7) / 8;
  // compared so that no sum of a foreign length can overflow
  if (modulusBits < 16 || digest.size() != size || encodedSize < size + 2 ||
      parameters.saltLength > encodedSize - size - 2) {
    return std::nullopt;
  }
  Bytes salt(parameters.saltLength);
  if (!salt.empty()) {
    ::arc4random_buf(salt.data(), salt.size());
  }

  Bytes block((static_cast<std::size_t>(modulusBits) + 7) / 8);
  const std::span<std::uint8_t> encoded = std::span(block).last(encodedSize);
  const std::span<std::uint8_t> masked = encoded.first(encodedSize - size - 1);
  masked[masked.size() - salt.size() - 1] = 1;
  std::ranges::copy(salt, masked.last(salt.size()).begin());
  const Bytes hash = hashOfSalted(digest, salt, parameters.hash);
  layMGF1(masked, hash, parameters.maskHash);
  masked[0] &= static_cast<std::uint8_t>(0xFFU >> (8 * encodedSize - usedBits));
  std::ranges::copy(hash, encoded.subspan(masked.size()).begin());
  encoded.back() = kTrailer;
  return block;
}

bool verifyPSS(const PublicKey &key, ByteView signature, ByteView digest,
               const PSSParameters &parameters) {
  auto block = encryptBlock(key, signature);
  const std::size_t size = digestSize(parameters.hash);
  const auto usedBits = static_cast<std::size_t>(std::max(key.bits(), 16)) - 1;
  const std::size_t encodedSize = (usedBits + 7) / 8;
  if (!block || digest.size() != size || encodedSize < size + 2 ||
      parameters.saltLength > encodedSize - size - 2) {
    return false;
  }
  // RFC 8017 9.1.2, step by step
  const std::span<std::uint8_t> encoded = std::span(*block).last(encodedSize);
  const std::span<std::uint8_t> masked = encoded.first(encodedSize - size - 1);
  const ByteView hash = ByteView(encoded).subspan(masked.size(), size);
  const auto unused = static_cast<std::uint8_t>(~(0xFFU >> (8 * encodedSize - usedBits)));
  const bool isFramed = encoded.back() == kTrailer && (masked[0] & unused) == 0 &&
                        (encodedSize == block->size() || block->front() == 0);
  layMGF1(masked, hash, parameters.maskHash);
  masked[0] &= static_cast<std::uint8_t>(~unused);
  const auto salt = masked.last(parameters.saltLength);
  const auto zeros = masked.first(masked.size() - salt.size() - 1);
  return isFramed && masked[zeros.size()] == 1 &&
         std::ranges::all_of(zeros, [](std::uint8_t byte) { return byte == 0; }) &&
         base::equal(hashOfSalted(digest, salt, parameters.hash), hash);
}

}  // namespace crypto
