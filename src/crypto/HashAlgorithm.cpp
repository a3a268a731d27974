#include "crypto/HashAlgorithm.hpp"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <new>

#include "crypto/Library.hpp"

namespace crypto {
namespace {

struct Row {
  HashAlgorithm algorithm;
  const char *name;
  std::size_t size;
  ByteView objectIdentifier;  // the content of its DER form
};

constexpr std::array<std::uint8_t, 5> kSHA1{0x2B, 0x0E, 0x03, 0x02, 0x1A};  // 1.3.14.3.2.26
// 2.16.840.1.101.3.4.2 and a last number
constexpr std::array<std::uint8_t, 9> nistHash(std::uint8_t number) {
  return {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, number};
}
constexpr auto kSHA256 = nistHash(1);
constexpr auto kSHA384 = nistHash(2);
constexpr auto kSHA512 = nistHash(3);
constexpr auto kSHA224 = nistHash(4);

// In the order of the enumeration.
constexpr std::array<Row, 5> kRows{{
    {HashAlgorithm::sha1, "sha1", 20, kSHA1},
    {HashAlgorithm::sha224, "sha224", 28, kSHA224},
    {HashAlgorithm::sha256, "sha256", 32, kSHA256},
    {HashAlgorithm::sha384, "sha384", 48, kSHA384},
    {HashAlgorithm::sha512, "sha512", 64, kSHA512},
}};

const Row &rowOf(HashAlgorithm algorithm) {
  return kRows.at(static_cast<std::size_t>(algorithm));
}

// A DER value of fewer than 128 bytes.
Bytes derValue(std::uint8_t tag, ByteView content) {
  Bytes value{tag, static_cast<std::uint8_t>(content.size())};
  value.insert(value.end(), content.begin(), content.end());
  return value;
}

Bytes joined(Bytes left, ByteView right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

}  // namespace

std::optional<HashAlgorithm> hashAlgorithmNamed(std::string_view name) {
  const auto *const row = std::ranges::find(kRows, name, &Row::name);
  return row == kRows.end() ? std::nullopt : std::optional(row->algorithm);
}

const char *nameOf(HashAlgorithm algorithm) {
  return rowOf(algorithm).name;
}

std::size_t digestSize(HashAlgorithm algorithm) {
  return rowOf(algorithm).size;
}

Bytes digestOf(HashAlgorithm algorithm, ByteView bytes) {
  Bytes digest(digestSize(algorithm));
  // Only a library without memory fails here. An empty result would not do: it equals every other
  // one.
  if (EVP_Q_digest(libraryContext(), nameOf(algorithm), nullptr, bytes.data(), bytes.size(),
                   digest.data(), nullptr) != 1) {
    throw std::bad_alloc();
  }
  return digest;
}

Bytes digestInfo(HashAlgorithm algorithm, ByteView digest) {
  constexpr std::uint8_t kSequence = 0x30;
  constexpr std::uint8_t kObjectIdentifier = 0x06;
  constexpr std::uint8_t kOctetString = 0x04;
  constexpr std::array<std::uint8_t, 2> kNull{0x05, 0x00};
  const Bytes identifier =
      joined(derValue(kObjectIdentifier, rowOf(algorithm).objectIdentifier), kNull);
  return derValue(kSequence,
                  joined(derValue(kSequence, identifier), derValue(kOctetString, digest)));
}

std::optional<HashAlgorithm> hashOfDigestInfo(ByteView data) {
  const auto *const found = std::ranges::find_if(kHashAlgorithms, [&](HashAlgorithm algorithm) {
    const std::size_t size = digestSize(algorithm);
    return data.size() > size && base::equal(digestInfo(algorithm, data.last(size)), data);
  });
  return found == kHashAlgorithms.end() ? std::nullopt : std::optional(*found);
}

}  // namespace crypto
