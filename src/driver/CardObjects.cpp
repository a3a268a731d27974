#include "driver/CardObjects.hpp"

#include <algorithm>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "base/DisplayText.hpp"
#include "crypto/KeyParts.hpp"
#include "driver/Mechanisms.hpp"
#include "encodings/HexString.hpp"

namespace driver {
namespace {

using Attributes = std::map<CK_ATTRIBUTE_TYPE, Bytes>;

// A DER OCTET STRING of fewer than 256 bytes.
Bytes octetString(ByteView content) {
  Bytes der{0x04};
  if (content.size() >= 128) {
    der.push_back(0x81);
  }
  der.push_back(static_cast<std::uint8_t>(content.size()));
  der.insert(der.end(), content.begin(), content.end());
  return der;
}

// CKA_EC_PARAMS of Ed25519: the curve name as a PrintableString (PKCS #11 v3.0, 2.3.10).
Bytes edwardsCurve() {
  constexpr std::string_view kName = "edwards25519";
  Bytes der{0x13, static_cast<std::uint8_t>(kName.size())};
  der.insert(der.end(), kName.begin(), kName.end());
  return der;
}

// True if there are mechanisms for this type and size of key.
bool isUsable(const crypto::PublicKey &key) {
  constexpr int kLeastRSABits = 1024;
  constexpr int kMostRSABits = 4096;
  switch (key.type()) {
    case crypto::KeyType::rsa:
      return key.bits() >= kLeastRSABits && key.bits() <= kMostRSABits;
    case crypto::KeyType::ec:
      return crypto::curveIdentifierOf(key).has_value();
    case crypto::KeyType::ed25519:
      return true;
    case crypto::KeyType::other:
      break;
  }
  return false;
}

bool derives(const CardIdentity &identity, const crypto::PublicKey &key) {
  return identity.canDecrypt && key.type() == crypto::KeyType::ec;
}

Bytes mechanismsAttribute(crypto::KeyType type) {
  Bytes value;
  for (const CK_MECHANISM_TYPE mechanism : mechanismTypesFor(type)) {
    const Bytes one = attributeOf(mechanism);
    value.insert(value.end(), one.begin(), one.end());
  }
  return value;
}

// The attributes of every object of the card.
Attributes commonAttributes(CK_OBJECT_CLASS objectClass, const CardIdentity &identity,
                            const std::string &label) {
  return {{CKA_CLASS, attributeOf(objectClass)},
          {CKA_TOKEN, yes()},
          {CKA_PRIVATE, no()},
          {CKA_MODIFIABLE, no()},
          {CKA_COPYABLE, no()},
          {CKA_DESTROYABLE, no()},
          {CKA_LABEL, base::bytesOf(label)},
          {CKA_ID, identity.publicKeyHash},
          {CKA_SUBJECT, identity.certificate.subjectDER()},
          {CKA_START_DATE, {}},
          {CKA_END_DATE, {}}};
}

// The attributes of both halves of a key pair. The private key object has the public parameters
// too, since most programs read them from it.
void addKeyAttributes(Attributes &attributes, const crypto::PublicKey &key) {
  attributes[CKA_LOCAL] = no();
  attributes[CKA_KEY_GEN_MECHANISM] = attributeOf(CK_UNAVAILABLE_INFORMATION);
  attributes[CKA_PUBLIC_KEY_INFO] = key.subjectPublicKeyInfo();
  attributes[CKA_ALLOWED_MECHANISMS] = mechanismsAttribute(key.type());
  if (const auto parts = crypto::rsaPartsOf(key)) {
    attributes[CKA_KEY_TYPE] = attributeOf(CK_ULONG{CKK_RSA});
    attributes[CKA_MODULUS] = parts->modulus;
    attributes[CKA_PUBLIC_EXPONENT] = parts->publicExponent;
    return;
  }
  const bool isEdwards = key.type() == crypto::KeyType::ed25519;
  attributes[CKA_KEY_TYPE] = attributeOf(isEdwards ? CK_ULONG{CKK_EC_EDWARDS} : CK_ULONG{CKK_EC});
  attributes[CKA_EC_PARAMS] =
      isEdwards ? edwardsCurve() : crypto::curveIdentifierOf(key).value_or(Bytes());
  attributes[CKA_EC_POINT] = octetString(key.externalRepresentation().value_or(Bytes()));
}

// Makes labels unique, so that programs that find objects by label find all of them.
class UniqueLabels {
 public:
  std::string unique(const std::string &wanted) {
    std::string label = wanted;
    // The last number used for this label: searching from 2 each time would take quadratic time.
    int &number = lastNumbers_.try_emplace(wanted, 1).first->second;
    while (!taken_.insert(label).second) {
      label = wanted + " (" + std::to_string(++number) + ")";
    }
    return label;
  }

 private:
  std::unordered_set<std::string> taken_;
  std::unordered_map<std::string, int> lastNumbers_;
};

std::string labelOf(const CardIdentity &identity) {
  if (!identity.label.empty()) {
    return identity.label;
  }
  const auto name = identity.certificate.commonName();
  return name && !name->empty() ? *name : encodings::hexString(identity.certificateHash);
}

}  // namespace

CK_OBJECT_HANDLE CardObjectBuilder::handleOf(CK_OBJECT_CLASS objectClass, const Bytes &hash) {
  CK_OBJECT_HANDLE &handle = handlesByHash_[{objectClass, hash}];
  if (handle == CK_INVALID_HANDLE) {
    handle = handles_.next();
  }
  return handle;
}

ObjectPointer CardObjectBuilder::certificateObject(const CardIdentity &identity,
                                                   const std::string &label) {
  constexpr CK_ULONG kTokenUser = 1;           // CK_CERTIFICATE_CATEGORY_TOKEN_USER
  constexpr std::size_t kCheckValueBytes = 3;  // of the SHA-1 digest
  const Bytes &hash = identity.certificateHash;
  Object object;
  object.handle = handleOf(CKO_CERTIFICATE, hash);
  object.attributes = commonAttributes(CKO_CERTIFICATE, identity, label);
  object.attributes[CKA_CERTIFICATE_TYPE] = attributeOf(CK_ULONG{CKC_X_509});
  object.attributes[CKA_CERTIFICATE_CATEGORY] = attributeOf(kTokenUser);
  object.attributes[CKA_JAVA_MIDP_SECURITY_DOMAIN] = attributeOf(CK_ULONG{0});
  object.attributes[CKA_TRUSTED] = no();
  object.attributes[CKA_URL] = {};
  object.attributes[CKA_CHECK_VALUE] = {
      hash.begin(),
      hash.begin() + static_cast<std::ptrdiff_t>(std::min(hash.size(), kCheckValueBytes))};
  object.attributes[CKA_ISSUER] = identity.certificate.issuerDER();
  object.attributes[CKA_SERIAL_NUMBER] = identity.certificate.serialNumberDER();
  object.attributes[CKA_VALUE] = identity.certificate.der();
  return std::make_shared<const Object>(std::move(object));
}

ObjectPointer CardObjectBuilder::publicKeyObject(const CardIdentity &identity,
                                                 const std::string &label,
                                                 const crypto::PublicKey &key) {
  const bool isRSA = key.type() == crypto::KeyType::rsa;
  Object object;
  object.handle = handleOf(CKO_PUBLIC_KEY, identity.publicKeyHash);
  object.attributes = commonAttributes(CKO_PUBLIC_KEY, identity, label);
  addKeyAttributes(object.attributes, key);
  if (isRSA) {
    object.attributes[CKA_MODULUS_BITS] = attributeOf(static_cast<CK_ULONG>(key.bits()));
  }
  object.attributes[CKA_VERIFY] = yes();
  object.attributes[CKA_ENCRYPT] = attributeOf(isRSA);
  object.attributes[CKA_VERIFY_RECOVER] = no();
  object.attributes[CKA_WRAP] = no();
  // the same as on the private key, since programs ask either half
  object.attributes[CKA_DERIVE] = attributeOf(derives(identity, key));
  object.attributes[CKA_TRUSTED] = no();
  object.key = key;
  return std::make_shared<const Object>(std::move(object));
}

ObjectPointer CardObjectBuilder::privateKeyObject(const CardIdentity &identity,
                                                  const std::string &label,
                                                  const crypto::PublicKey &key, bool needsLogin) {
  const crypto::KeyType type = key.type();
  Object object;
  object.handle = handleOf(CKO_PRIVATE_KEY, identity.publicKeyHash);
  object.attributes = commonAttributes(CKO_PRIVATE_KEY, identity, label);
  addKeyAttributes(object.attributes, key);
  object.attributes[CKA_PRIVATE] = attributeOf(needsLogin);
  object.attributes[CKA_SENSITIVE] = yes();
  object.attributes[CKA_ALWAYS_SENSITIVE] = yes();
  object.attributes[CKA_EXTRACTABLE] = no();
  object.attributes[CKA_NEVER_EXTRACTABLE] = yes();
  object.attributes[CKA_ALWAYS_AUTHENTICATE] = no();
  object.attributes[CKA_WRAP_WITH_TRUSTED] = no();
  object.attributes[CKA_SIGN] = attributeOf(identity.canSign);
  object.attributes[CKA_SIGN_RECOVER] = no();
  object.attributes[CKA_DECRYPT] = attributeOf(identity.canDecrypt && type == crypto::KeyType::rsa);
  object.attributes[CKA_UNWRAP] = no();
  object.attributes[CKA_DERIVE] = attributeOf(derives(identity, key));
  object.key = key;
  object.identity = identity;
  return std::make_shared<const Object>(std::move(object));
}

std::shared_ptr<const CardObjects> CardObjectBuilder::objectsOf(
    std::shared_ptr<const CardContent> content, const DriverSettings &settings) {
  constexpr std::size_t kSerialDigits = 16;
  auto made = std::make_shared<CardObjects>();
  std::vector<ObjectPointer> keys;
  UniqueLabels labels;
  std::set<Bytes> certificateHashes;
  std::set<Bytes> keyHashes;
  for (const CardIdentity &identity : *content) {
    const auto key = identity.certificate.publicKey();
    const bool isHidden = key && key->type() == crypto::KeyType::ed25519 && !settings.showEd25519;
    if (isHidden || !certificateHashes.insert(identity.certificateHash).second) {
      continue;
    }
    const std::string label = labels.unique(base::displayText(labelOf(identity)));
    made->objects.push_back(certificateObject(identity, label));
    if (key && isUsable(*key) && keyHashes.insert(identity.publicKeyHash).second) {
      keys.push_back(privateKeyObject(identity, label, *key, settings.pinMode != PinMode::none));
      keys.push_back(publicKeyObject(identity, label, *key));
    }
  }
  made->objects.insert(made->objects.end(), keys.begin(), keys.end());
  for (const ObjectPointer &object : made->objects) {
    made->byHandle.emplace(object->handle, object);
  }
  made->serialNumber =
      encodings::hexString(content->front().publicKeyHash).substr(0, kSerialDigits);
  made->content = std::move(content);
  return made;
}

}  // namespace driver
