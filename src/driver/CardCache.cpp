#include "driver/CardCache.hpp"

#include <algorithm>
#include <optional>
#include <span>
#include <tuple>
#include <utility>

#include "crypto/Digest.hpp"
#include "encodings/HexString.hpp"

namespace driver {
namespace {

std::optional<CardIdentity> identityOf(const encodings::CertificateInfo &info) {
  const Bytes der = encodings::dataFromBase64String(info.certificate);
  auto certificate = crypto::Certificate::fromDER(der);
  const auto key = certificate ? certificate->publicKey() : std::nullopt;
  const auto keyHash = key ? key->hash() : std::nullopt;
  if (!keyHash) {
    return std::nullopt;
  }
  return CardIdentity{
      std::move(*certificate), crypto::sha1Digest(der), *keyHash, info.label, info.canSign,
      info.canDecrypt,         info.canUnwrap};
}

auto descriptionOf(const CardIdentity &identity) {
  return std::tie(identity.certificateHash, identity.label, identity.canSign, identity.canDecrypt,
                  identity.canUnwrap);
}

}  // namespace

CardContent cardContentOf(const protocol::CardList &list) {
  CardContent content;
  const std::span<const protocol::CardEntry> entries(list.entries());
  for (const protocol::CardEntry &entry :
       entries.first(std::min(entries.size(), kMaxCertificates))) {
    const auto info = protocol::certificateInfoIn(entry);
    if (auto identity = info ? identityOf(*info) : std::nullopt) {
      content.push_back(std::move(*identity));
    }
  }
  return content;
}

bool haveSameEntries(const CardContent *left, const CardContent *right) {
  if (left == nullptr || right == nullptr) {
    return left == right;
  }
  return std::ranges::equal(*left, *right, {}, descriptionOf, descriptionOf);
}

bool contains(const CardContent *content, const CardIdentity &identity) {
  return content != nullptr && std::ranges::find(*content, identity.certificateHash,
                                                 &CardIdentity::certificateHash) != content->end();
}

void CardCache::checkMarker(const std::function<bool()> &isFolderPrivate) {
  const auto marker = client::findCardMarker();
  if (marker) {
    isMarkerHidden_ = false;  // the daemon's marker is visible in the folder
  } else if (!isMarkerHidden_) {
    isMarkerHidden_ = isFolderPrivate();
  }
  if (marker != marker_) {
    marker_ = marker;
    content_ = nullptr;
    isFresh_ = false;
    lastAskedAt.reset();
    ++generation_;
  }
  recordAbsence();
}

void CardCache::recordAbsence() {
  if (isPresent()) {
    goneSince_.reset();
  } else if (wasRead_ && !goneSince_) {
    goneSince_ = Clock::now();
  }
}

bool CardCache::isPresent() const {
  const bool isKnownToBeEmpty = isFresh_ && content_ == nullptr;
  return isMarkerHidden() ? content_ != nullptr : marker_ && !isKnownToBeEmpty;
}

void CardCache::store(Content content) {
  if (!haveSameEntries(content_.get(), content.get())) {
    // the first list under a new marker is no change: the marker was counted already
    generation_ += isMarkerHidden() || content_ != nullptr ? 1 : 0;
    content_ = std::move(content);
  }
  isFresh_ = true;
  wasRead_ = wasRead_ || content_ != nullptr;
  recordAbsence();
}

}  // namespace driver
