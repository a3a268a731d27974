#include <openssl/err.h>
#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <set>
#include <utility>

#include "crypto/Identity.hpp"
#include "crypto/Owned.hpp"

namespace crypto {
namespace {

using KeyInfo = Owned<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>;

constexpr std::array kReadAlgorithms{NID_rsaEncryption, NID_rsassaPss, NID_X9_62_id_ecPublicKey,
                                     NID_ED25519,       NID_ED448,     NID_dsa};

// For a DSA key the library computes the public key, modulo a number that may be as long as the
// file. A key with the largest modulus of FIPS 186-4, 3,072 bits, takes 870 bytes.
constexpr std::size_t kLongestDSAKey = 1024;
constexpr int kMostDSAKeys = 16;

// Decides which keys are worth reading.
class Readable {
 public:
  bool operator()(int algorithm, ByteView der) {
    if (algorithm == NID_dsa && (der.size() > kLongestDSAKey || ++dsaKeys_ > kMostDSAKeys)) {
      return false;
    }
    return std::ranges::find(kReadAlgorithms, algorithm) != kReadAlgorithms.end();
  }

 private:
  int dsaKeys_ = 0;
};

// The certificates of one file, indexed by what links a key to them.
class Certificates {
 public:
  explicit Certificates(const Pkcs12Content &content);

  // In the order of the file.
  [[nodiscard]] std::vector<Identity> identitiesOf(const PrivateKey &key) const;

  // True if a key may belong to one of them, as far as that is known before the key is read.
  [[nodiscard]] bool haveOneFor(const Pkcs12Content::Key &key, const ASN1_OBJECT *algorithm) const {
    return (!key.localKeyID.empty() && localKeyIDs_.contains(key.localKeyID)) ||
           algorithms_.contains(encodedForm(algorithm));
  }

 private:
  static Bytes encodedForm(const ASN1_OBJECT *algorithm) {
    const std::uint8_t *bytes = OBJ_get0_data(algorithm);
    return {bytes, bytes + OBJ_length(algorithm)};
  }

  std::map<Bytes, std::vector<Certificate>> byPublicKey_;
  std::set<Bytes> localKeyIDs_;
  std::set<Bytes> algorithms_;  // of the certificates' keys
};

// Equal for a certificate and its private key, however the file encodes a point.
Bytes indexOf(const PublicKey &key) {
  return key.externalRepresentation().value_or(key.subjectPublicKeyInfo());
}

Certificates::Certificates(const Pkcs12Content &content) {
  std::set<ByteView, decltype([](ByteView left, ByteView right) {
             return std::ranges::lexicographical_compare(left, right);
           })>
      known;
  for (const auto &[der, localKeyID] : content.certificates) {
    localKeyIDs_.insert(localKeyID);
    const auto certificate = known.insert(der).second ? Certificate::fromDER(der) : std::nullopt;
    if (!certificate) {
      continue;  // a key that does not parse belongs to no certificate
    }
    ASN1_OBJECT *algorithm = nullptr;
    X509_PUBKEY_get0_param(&algorithm, nullptr, nullptr, nullptr,
                           X509_get_X509_PUBKEY(certificate->native()));
    algorithms_.insert(encodedForm(algorithm));
    if (const auto key = certificate->publicKey()) {
      byPublicKey_[indexOf(*key)].push_back(*certificate);
    }
  }
}

std::vector<Identity> Certificates::identitiesOf(const PrivateKey &key) const {
  std::vector<Identity> identities;
  const auto found = byPublicKey_.find(indexOf(key.publicKey()));
  if (found != byPublicKey_.end()) {
    for (const Certificate &certificate : found->second) {
      if (belongTogether(certificate, key)) {
        identities.push_back({certificate, key});
      }
    }
  }
  return identities;
}

}  // namespace

std::vector<std::optional<Identity>> identitiesIn(const Pkcs12Content &content) {
  const Certificates certificates(content);
  Readable readable;
  std::vector<std::optional<Identity>> identities;
  std::set<Bytes> known;
  for (const Pkcs12Content::Key &key : content.keys) {
    const ByteView der = key.info.reveal();
    const std::uint8_t *end = der.data();
    const KeyInfo info(d2i_PKCS8_PRIV_KEY_INFO(nullptr, &end, static_cast<long>(der.size())));
    const ASN1_OBJECT *algorithm = nullptr;
    if (!info || PKCS8_pkey_get0(&algorithm, nullptr, nullptr, nullptr, info.get()) != 1) {
      identities.emplace_back();
      continue;
    }
    const bool isReadable = readable(OBJ_obj2nid(algorithm), der);
    const auto read = isReadable ? PrivateKey::fromPKCS8(der) : std::nullopt;
    if (!read) {
      if (isReadable || certificates.haveOneFor(key, algorithm)) {
        identities.emplace_back();
      }
    } else if (known.insert(indexOf(read->publicKey())).second) {
      std::ranges::copy(certificates.identitiesOf(*read), std::back_inserter(identities));
    }
  }
  ERR_clear_error();
  return identities;
}

}  // namespace crypto
