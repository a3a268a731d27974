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

struct OpenedPSS {
  Bytes hash;
  Bytes salt;
};

// Removes the padding of a block as long as the modulus and checks it (RFC 8017 9.1.2). Whether the
// hash belongs to a digest is left to the caller, who knows the digest.
std::optional<OpenedPSS> openPSS(ByteView block, const PSSParameters &parameters, int modulusBits) {
  const std::size_t size = digestSize(parameters.hash);
  const auto usedBits = static_cast<std::size_t>(std::max(modulusBits, 16)) - 1;
  const std::size_t encodedSize = (usedBits + 7) / 8;
  // written without sums, because a foreign length could overflow them
  if (block.size() < encodedSize || encodedSize < size + 2 ||
      parameters.saltLength > encodedSize - size - 2) {
    return std::nullopt;
  }
  const auto isZero = [](std::uint8_t byte) { return byte == 0; };
  const ByteView encoded = block.last(encodedSize);
  const ByteView hash = encoded.subspan(encodedSize - size - 1, size);
  const auto unused = static_cast<std::uint8_t>(~(0xFFU >> (8 * encodedSize - usedBits)));
  if (encoded.back() != kTrailer || (encoded[0] & unused) != 0 ||
      !std::ranges::all_of(block.first(block.size() - encodedSize), isZero)) {
    return std::nullopt;
  }
  Bytes data(encoded.begin(), hash.begin());
  layMGF1(data, hash, parameters.maskHash);
  data[0] &= static_cast<std::uint8_t>(~unused);
  const auto salt = data.end() - static_cast<std::ptrdiff_t>(parameters.saltLength);
  const auto one = salt - 1;
  if (*one != 1 || !std::all_of(data.begin(), one, isZero)) {
    return std::nullopt;
  }
  return OpenedPSS{Bytes(hash.begin(), hash.end()), Bytes(salt, data.end())};
}

}  // namespace

std::optional<Bytes> padPSS(ByteView digest, const PSSParameters &parameters, int modulusBits) {
  const auto usedBits = static_cast<std::size_t>(modulusBits) - 1;
  const std::size_t size = digestSize(parameters.hash);
  const std::size_t encodedSize = (usedBits + 7) / 8;
  // written without sums, because a foreign length could overflow them
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

std::optional<HashAlgorithm> hashOfPSSBlock(ByteView block, int modulusBits) {
  const auto *const found = std::ranges::find_if(kHashAlgorithms, [&](HashAlgorithm algorithm) {
    return openPSS(block, {algorithm, algorithm, digestSize(algorithm)}, modulusBits).has_value();
  });
  return found == kHashAlgorithms.end() ? std::nullopt : std::optional(*found);
}

bool verifyPSS(const PublicKey &key, ByteView signature, ByteView digest,
               const PSSParameters &parameters) {
  const auto block = encryptBlock(key, signature);
  const auto opened = block ? openPSS(*block, parameters, key.bits()) : std::nullopt;
  return opened && digest.size() == digestSize(parameters.hash) &&
         base::equal(hashOfSalted(digest, opened->salt, parameters.hash), opened->hash);
}

}  // namespace crypto
