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

// The number of list entries that are read. More would slow down every program and every search.
inline constexpr std::size_t kMaxCertificates = 1024;

// The card's content from a list, in the list's order. Leaves out entries whose certificate does
// not parse or has an unknown type of key, and those beyond kMaxCertificates. The content is
// unverified.
[[nodiscard]] CardContent cardContentOf(const protocol::CardList &list);

// True if both contain the same certificates with the same properties; null counts as none.
[[nodiscard]] bool haveSameEntries(const CardContent *left, const CardContent *right);

// True if the content includes the certificate of `identity`.
[[nodiscard]] bool contains(const CardContent *content, const CardIdentity &identity);

// What is known of the card without asking the daemon, and whether that is up to date. Not
// thread-safe.
class CardCache {
 public:
  using Content = std::shared_ptr<const CardContent>;
  using Clock = std::chrono::steady_clock;

  // Checks the marker and drops the content if the marker changed. Calls `isFolderPrivate` once, if
  // no marker has been seen yet.
  void checkMarker(const std::function<bool()> &isFolderPrivate);

  // True if the marker can't be seen even while a card is present.
  [[nodiscard]] bool isMarkerHidden() const { return isMarkerHidden_.value_or(false); }

  // True if a card is present: according to the marker, or to the last list if the marker is
  // hidden.
  [[nodiscard]] bool isPresent() const;

  // True if `content` is up to date as far as the marker shows.
  [[nodiscard]] bool isFresh() const { return isFresh_; }
  [[nodiscard]] const Content &content() const { return content_; }

  // A number that changes whenever a card is inserted or removed.
  [[nodiscard]] std::uint64_t generation() const { return generation_; }

  // When a card that had been read was first missed; nothing while it is present, or if none was
  // ever read.
  [[nodiscard]] const std::optional<Clock::time_point> &goneSince() const { return goneSince_; }

  // Stores a list that was read; null: it can't be read, or it is empty.
  void store(Content content);

  // Has the content read again although the marker did not change. A card that is known to be empty
  // stays so, since a new card comes with a new marker.
  void invalidate() { isFresh_ = isFresh_ && content_ == nullptr; }

  // When the daemon was last asked for the list. While the marker is visible, set only after a
  // failure.
  std::optional<Clock::time_point> lastAskedAt;

 private:
  void recordAbsence();

  std::optional<bool> isMarkerHidden_;
  std::optional<client::CardMarker> marker_;
  Content content_;  // null: unknown or empty
  bool isFresh_ = false;
  bool wasRead_ = false;
  std::optional<Clock::time_point> goneSince_;
  std::uint64_t generation_ = 0;
};

}  // namespace driver
