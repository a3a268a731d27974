#include "remote/KeyRing.hpp"

#include <algorithm>

#include "base/DisplayText.hpp"
#include "base/Files.hpp"
#include "encodings/HexString.hpp"

namespace remote {
namespace {

constexpr std::size_t kLargestIdentityFile = 1024 * 1024;

std::optional<crypto::Identity> readKeyFile(const std::string &file,
                                            const PasswordSource &passwords, Error *error) {
  const auto content = base::readFile(file, kLargestIdentityFile, error);
  if (!content) {
    return std::nullopt;
  }
  Error reason;
  auto identity = crypto::readIdentity(*content, /*password=*/nullptr, &reason);
  for (int attempt = 0; !identity && reason.domain == "password"; ++attempt) {
    const auto password = passwords(file, attempt, &reason);
    if (!password) {
      break;
    }
    identity = crypto::readIdentity(*content, &*password, &reason);
  }
  if (!identity) {
    base::report(error, reason.domain, reason.code, file + ": " + reason.description);
  }
  return identity;
}

std::string labelOf(const crypto::Identity &identity, const std::string &file) {
  const auto name = identity.certificate.commonName();
  return name && !name->empty() ? *name : file.substr(file.rfind('/') + 1);
}

encodings::CertificateInfo infoOf(const CardKey &key) {
  const crypto::KeyType type = key.identity.key.publicKey().type();
  encodings::CertificateInfo info;
  info.certificate =
      encodings::base64EncodeBytes(key.identity.certificate.der(), /*separateLines=*/false);
  info.canSign = true;
  info.canDecrypt = type != crypto::KeyType::ed25519 && !key.authenticates;
  info.canUnwrap = type == crypto::KeyType::rsa && !key.authenticates;
  info.label = key.label;
  info.publicKeyHash = encodings::hexString(key.publicKeyHash);
  return info;
}

}  // namespace

std::optional<KeyRing> KeyRing::load(std::span<const std::string> files,
                                     std::span<const std::string> labels,
                                     ByteView authenticationKeyHash,
                                     const PasswordSource &passwords, Error *error) {
  KeyRing ring;
  for (std::size_t index = 0; index < files.size(); ++index) {
    const std::string &file = files[index];
    const auto identity = readKeyFile(file, passwords, error);
    if (!identity) {
      return std::nullopt;
    }
    const auto hash = identity->key.publicKey().hash();
    if (!hash) {
      base::report(error, "file", 0,
                   file + ": only RSA, elliptic-curve and Ed25519 keys can be used");
      return std::nullopt;
    }
    const std::string label = index < labels.size() ? labels[index] : labelOf(*identity, file);
    ring.keys_.push_back({base::displayText(label), *identity, identity->certificate.sha1(), *hash,
                          base::equal(*hash, authenticationKeyHash)});
  }
  return ring;
}

const CardKey *KeyRing::find(ByteView certificateSHA1) const {
  const auto found = std::ranges::find_if(
      keys_, [&](const CardKey &key) { return base::equal(key.certificateSHA1, certificateSHA1); });
  return found == keys_.end() ? nullptr : &*found;
}

std::shared_ptr<const protocol::CardList> KeyRing::cardList() const {
  std::vector<protocol::CardElement> elements;
  elements.reserve(keys_.size());
  for (const CardKey &key : keys_) {
    elements.emplace_back(infoOf(key));
  }
  return protocol::makeCardList(elements);
}

bool KeyRing::areThoseOf(const protocol::CardList &list) const {
  const auto isThatOf = [](const CardKey &key, const encodings::CertificateInfo &info) {
    return infoOf(key).certificate == info.certificate && key.label == info.label;
  };
  return std::ranges::equal(keys_, protocol::certificateInfosOf(list), isThatOf);
}

}  // namespace remote
