#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "base/Bytes.hpp"
#include "encodings/CertificateInfo.hpp"

namespace protocol {

// One element of a card's certificate list. The relay searches by the digest, which is computed
// once, when the list arrives.
struct CardEntry {
  std::string json;             // compact JSON text, "/" escaped
  bool hasCertificate = false;  // a dictionary with a text under "certificate"
  Bytes certificateSHA1;        // of the DER bytes in that text; empty if it decodes to none
};

// The certificate list of a virtual card. Immutable and shared, so that nobody has to copy it.
class CardList {
 public:
  using Beginning = std::array<std::uint8_t, 8>;  // of a digest

  explicit CardList(std::vector<CardEntry> entries);

  [[nodiscard]] std::span<const CardEntry> entries() const { return entries_; }

  // The position of the first entry whose certificate has this SHA-1 digest; nothing if there is
  // none. Takes the same time in a list of any length.
  [[nodiscard]] std::optional<std::size_t> find(ByteView certificateSHA1) const;

  // How many entries before this position have a certificate that decodes to no bytes.
  [[nodiscard]] std::size_t unusableBefore(std::size_t position) const;

  // The approximate memory that the list takes, in bytes.
  [[nodiscard]] std::size_t bytes() const { return bytes_; }

 private:
  // Sorted by the digests' first bytes, then by position, for binary search.
  std::vector<std::pair<Beginning, std::size_t>> byDigest_;
  std::vector<std::size_t> unusable_;  // positions

  std::vector<CardEntry> entries_;
  std::size_t bytes_ = 0;
};

// An element to make a list of: the description of an identity, or bytes, which are encoded as
// Base64 text.
using CardElement = std::variant<Bytes, encodings::CertificateInfo>;
[[nodiscard]] std::shared_ptr<const CardList> makeCardList(std::span<const CardElement> elements);

// The digest of the DER bytes in a "certificate" text; empty if the text decodes to none.
[[nodiscard]] Bytes certificateSHA1In(std::string_view text);

// The identity that an element describes: a missing boolean is false and a missing label empty.
// Nothing if it has no certificate text.
[[nodiscard]] std::optional<encodings::CertificateInfo> certificateInfoIn(const CardEntry &entry);

// The identities that a list describes, in order; elements without a certificate text are skipped.
[[nodiscard]] std::vector<encodings::CertificateInfo> certificateInfosOf(const CardList &list);

// The text form for logs: "(a, b)". A text longer than `most` bytes may be cut after `most` bytes.
[[nodiscard]] std::string logText(const CardList &list, std::size_t most);

}  // namespace protocol
