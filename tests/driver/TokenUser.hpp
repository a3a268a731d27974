#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "base/Root.hpp"
#include "driver/FunctionList.hpp"
#include "driver/ModuleState.hpp"
#include "fakes/FakeCard.hpp"

namespace driver {

inline crypto::PrivateKey madeCurveKey(const char *curve) {
  return crypto::PrivateKey(
      std::shared_ptr<EVP_PKEY>(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", curve), EVP_PKEY_free));
}

// True if the machine's log, here a file in the sandboxed root, contains the text.
inline bool hasReported(const std::string &text) {
  std::ifstream log(base::rooted("/var/log/unified.log"));
  const std::string lines(std::istreambuf_iterator<char>(log), {});
  return lines.find(text) != std::string::npos;
}

// The keys of the usual card, generated once. With 1025 bits, the modulus is a byte longer than a
// PSS block.
enum UsualKey : std::size_t { rsa, oddRSA, p256, p384, p521, ed25519, usualKeyCount };
inline const std::vector<crypto::PrivateKey> &usualKeys() {
  static const std::vector<crypto::PrivateKey> keys{
      fakes::madeKey("RSA"), *crypto::PrivateKey::generateRSA(1025),
      fakes::madeKey("EC"),  madeCurveKey("P-384"),
      madeCurveKey("P-521"), fakes::madeKey("ED25519")};
  return keys;
}

// A mechanism, with the parameters if they name a hash.
template <typename Parameters>
CK_MECHANISM mechanismOf(CK_MECHANISM_TYPE type, Parameters &parameters) {
  return parameters.hashAlg == 0 ? CK_MECHANISM{type, nullptr, 0}
                                 : CK_MECHANISM{type, &parameters, sizeof parameters};
}

// A program that uses the token through the function table while the usual card is inserted.
class TokenUser : public testing::Test {
 protected:
  TokenUser() {
    writeSettings("showEd25519 = true\n");
    ModuleState::useCardFactory(fakes::CardInHand::factory);
    card.insert(usualKeys());
    card.outcome = RequestOutcome::done;
    card.answersWrongly = false;
    card.uses = 0;
    EXPECT_EQ(f.C_Initialize(nullptr), CKR_OK);
    session = opened();
  }
  ~TokenUser() override { f.C_Finalize(nullptr); }

  static void writeSettings(const std::string &text) {
    const std::string folder = base::rooted("/etc/keyferry");
    std::filesystem::create_directories(folder);
    std::ofstream(folder + "/pkcs11.toml") << text;
  }

  CK_SESSION_HANDLE opened() {
    CK_SESSION_HANDLE handle = 0;
    EXPECT_EQ(f.C_OpenSession(0, CKF_SERIAL_SESSION, nullptr, nullptr, &handle), CKR_OK);
    return handle;
  }

  // The handles of the objects that match a template.
  std::vector<CK_OBJECT_HANDLE> found(std::vector<CK_ATTRIBUTE> wanted) {
    std::vector<CK_OBJECT_HANDLE> handles(64);
    CK_ULONG count = 0;
    EXPECT_EQ(f.C_FindObjectsInit(session, wanted.data(), wanted.size()), CKR_OK);
    EXPECT_EQ(f.C_FindObjects(session, handles.data(), handles.size(), &count), CKR_OK);
    EXPECT_EQ(f.C_FindObjectsFinal(session), CKR_OK);
    handles.resize(count);
    return handles;
  }

  CK_OBJECT_HANDLE key(CK_OBJECT_CLASS objectClass, UsualKey which) {
    Bytes id = card.content->at(which).publicKeyHash;
    const auto handles =
        found({{CKA_CLASS, &objectClass, sizeof objectClass}, {CKA_ID, id.data(), id.size()}});
    EXPECT_EQ(handles.size(), 1U);
    return handles.empty() ? CK_INVALID_HANDLE : handles.front();
  }

  Bytes attribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
    Bytes value(4096);
    CK_ATTRIBUTE wanted{type, value.data(), value.size()};
    EXPECT_EQ(f.C_GetAttributeValue(session, object, &wanted, 1), CKR_OK) << type;
    value.resize(wanted.ulValueLen == CK_UNAVAILABLE_INFORMATION ? 0 : wanted.ulValueLen);
    return value;
  }

  // Signs in a single call.
  CK_RV sign(CK_OBJECT_HANDLE object, CK_MECHANISM given, Bytes message) {
    Bytes signature(512);
    CK_ULONG length = signature.size();
    const CK_RV begun = f.C_SignInit(session, &given, object);
    return begun != CKR_OK
               ? begun
               : f.C_Sign(session, message.data(), message.size(), signature.data(), &length);
  }

  CK_FUNCTION_LIST &f = *functionList();
  fakes::CardInHand &card = fakes::CardInHand::instance();
  CK_SESSION_HANDLE session = CK_INVALID_HANDLE;
};

}  // namespace driver
