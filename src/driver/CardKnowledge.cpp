#include "driver/CardKnowledge.hpp"

#include <utility>

#include "driver/CardReading.hpp"

namespace driver {

void CardKnowledge::look(const std::function<bool()> &isFolderPrivate) {
  const auto marker = client::findCardMarker();
  if (marker) {
    isBlind_ = false;  // wherever the folder is, the daemon writes into it
  } else if (!isBlind_) {
    isBlind_ = isFolderPrivate();
  }
  if (marker != marker_) {
    marker_ = marker;
    content_ = nullptr;
    isFresh_ = false;
    askedAt.reset();
    ++generation_;
  }
  noteAbsence();
}

void CardKnowledge::noteAbsence() {
  if (isPresent()) {
    goneSince_.reset();
  } else if (wasRead_ && !goneSince_) {
    goneSince_ = Clock::now();
  }
}

bool CardKnowledge::isPresent() const {
  const bool isKnownToBeEmpty = isFresh_ && content_ == nullptr;
  return isBlind() ? content_ != nullptr : marker_ && !isKnownToBeEmpty;
}

void CardKnowledge::take(Content content) {
  if (!areAlike(content_.get(), content.get())) {
    // a list that is read for the first time under its marker is no news
    generation_ += isBlind() || content_ != nullptr ? 1 : 0;
    content_ = std::move(content);
  }
  isFresh_ = true;
  wasRead_ = wasRead_ || content_ != nullptr;
  noteAbsence();
}

}  // namespace driver
