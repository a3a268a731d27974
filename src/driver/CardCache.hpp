#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "client/CardMarker.hpp"
#include "driver/Card.hpp"
#include "protocol/CardList.hpp"

namespace driver {

// So many entries of a list are read, the first ones: more would cost each program, and each of its
// searches, too much.
inline constexpr std::size_t kMaxCertificates = 1024;

// What a list says of the card, in its order. Entries whose certificate does not parse or holds a
// key of an unknown type are left out, as are those behind the first kMaxCertificates. Nobody has
// vouched for any of it.
[[nodiscard]] CardContent cardContentOf(const protocol::CardList &list);

// True if both hold the same certificates with the same descriptions; null: nothing.
[[nodiscard]] bool haveSameEntries(const CardContent *left, const CardContent *right);

// True if the certificate of `identity` is among them.
[[nodiscard]] bool contains(const CardContent *content, const CardIdentity &identity);

// What is known of the card without asking anybody, and how good that still is. Not for several
// threads at once.
class CardCache {
 public:
  using Content = std::shared_ptr<const CardContent>;
  using Clock = std::chrono::steady_clock;

  // Looks at the marker; what was read under an earlier one is forgotten. `isFolderPrivate` is
  // asked once, if no marker has been seen yet.
  void checkMarker(const std::function<bool()> &isFolderPrivate);

  // True if no marker can be seen, whether a card is there or not.
  [[nodiscard]] bool isMarkerHidden() const { return isMarkerHidden_.value_or(false); }

  // Whether a card is there: by the marker, if that can be seen, else by what was read last.
  [[nodiscard]] bool isPresent() const;

  // True if `content` is what the list holds, as far as can be seen.
  [[nodiscard]] bool isFresh() const { return isFresh_; }
  [[nodiscard]] const Content &content() const { return content_; }

  // A number that changes whenever a card came or went.
  [[nodiscard]] std::uint64_t generation() const { return generation_; }

  // When a card that was read before was first seen to be gone; nothing while it is there, and
  // where none was ever read.
  [[nodiscard]] const std::optional<Clock::time_point> &goneSince() const { return goneSince_; }

  // Takes a list that was read; null: it can't be had.
  void store(Content content);

  // What the card holds is to be read again, though the marker did not change. That it holds
  // nothing stays known: with a card comes a new marker.
  void invalidate() { isFresh_ = isFresh_ && content_ == nullptr; }

  // When the list was asked for the last time: a failure, where the marker can be seen.
  std::optional<Clock::time_point> lastAskedAt;

 private:
  void recordAbsence();

  std::optional<bool> isMarkerHidden_;
  std::optional<client::CardMarker> marker_;
  Content content_;  // null: unknown, or nothing on it
  bool isFresh_ = false;
  bool wasRead_ = false;
  std::optional<Clock::time_point> goneSince_;
  std::uint64_t generation_ = 0;
};

}  // namespace driver
