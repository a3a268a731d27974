#include "driver/Object.hpp"

#include <gmock/gmock.h>

#include "driver/TokenUser.hpp"
#include "encodings/HexString.hpp"

namespace driver {
namespace {

Bytes joined(Bytes left, const Bytes &right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

TEST_F(TokenUser, FindsOneObjectOfEachKindForEachKey) {
  CK_OBJECT_CLASS certificates = CKO_CERTIFICATE;
  CK_BBOOL yes = CK_TRUE;
  EXPECT_EQ(found({{CKA_CLASS, &certificates, sizeof certificates}}).size(), usualKeyCount);
  EXPECT_EQ(found({{CKA_SIGN, &yes, sizeof yes}}).size(), usualKeyCount);
  EXPECT_EQ(found({{CKA_SIGN, &yes, sizeof yes}, {CKA_LABEL, nullptr, 0}}).size(), 0U);
  EXPECT_EQ(found({{CKA_CLASS, &certificates, 1}}).size(), 0U);

  CK_OBJECT_HANDLE one = 0;
  CK_ULONG count = 0;
  std::vector<CK_OBJECT_HANDLE> oneByOne;
  ASSERT_EQ(f.C_FindObjectsInit(session, nullptr, 0), CKR_OK);
  card.show(nullptr);  // the search began earlier
  while (f.C_FindObjects(session, &one, 1, &count) == CKR_OK && count == 1) {
    oneByOne.push_back(one);
  }
  EXPECT_EQ(oneByOne.size(), 3 * usualKeyCount);
  EXPECT_EQ(f.C_FindObjectsFinal(session), CKR_OK);
  EXPECT_EQ(f.C_FindObjectsFinal(session), CKR_OK);
  card.insert({usualKeys()[p256], usualKeys()[p256], *crypto::PrivateKey::generateRSA(1023)});
  EXPECT_EQ(found({}).size(), 5U) << "one key with two certificates, one that is not usable";
}

TEST_F(TokenUser, ShowsWhatProgramsLookFor) {
  const Bytes kYes{CK_TRUE};
  const Bytes kNo{CK_FALSE};
  const auto exported = [](UsualKey which) {
    return usualKeys()[which].publicKey().externalRepresentation().value();
  };
  struct Row {
    const char *name;
    CK_OBJECT_CLASS objectClass;
    UsualKey key;
    CK_ATTRIBUTE_TYPE type;
    Bytes value;
  };
  const Row kRows[] = {
      {"ECDoesNotDecrypt", CKO_PRIVATE_KEY, p256, CKA_DECRYPT, kNo},
      {"ECDerives", CKO_PRIVATE_KEY, p256, CKA_DERIVE, kYes},
      {"ModulusBits", CKO_PUBLIC_KEY, oddRSA, CKA_MODULUS_BITS, attributeOf(CK_ULONG{1025})},
      {"Curve", CKO_PRIVATE_KEY, p384, CKA_EC_PARAMS, {6, 5, 0x2B, 0x81, 4, 0, 0x22}},
      {"LongPoint", CKO_PUBLIC_KEY, p521, CKA_EC_POINT, joined({4, 0x81, 133}, exported(p521))},
      {"EdwardsPoint", CKO_PUBLIC_KEY, ed25519, CKA_EC_POINT, joined({4, 32}, exported(ed25519))},
      {"Mechanisms", CKO_PRIVATE_KEY, ed25519, CKA_ALLOWED_MECHANISMS,
       attributeOf(CK_ULONG{0x1057})},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(encodings::hexString(attribute(key(row.objectClass, row.key), row.type)),
              encodings::hexString(row.value));
  }
  for (const auto type : {CKA_SENSITIVE, CKA_NEVER_EXTRACTABLE, CKA_DECRYPT}) {
    EXPECT_EQ(attribute(key(CKO_PRIVATE_KEY, rsa), type), kYes) << type;
  }
}

TEST_F(TokenUser, FillsAllAttributesButThoseItCannot) {
  struct Row {
    CK_ATTRIBUTE_TYPE type;
    CK_ULONG room;
    CK_RV result;  // when requested alone
    CK_ULONG length = CK_UNAVAILABLE_INFORMATION;
  };
  const Row kRows[] = {{CKA_VENDOR_DEFINED | 9, 8, CKR_ATTRIBUTE_TYPE_INVALID},
                       {CKA_PRIVATE_EXPONENT, 8, CKR_ATTRIBUTE_SENSITIVE},
                       {CKA_PUBLIC_EXPONENT, 2, CKR_BUFFER_TOO_SMALL},
                       {CKA_PUBLIC_EXPONENT, 3, CKR_OK, 3},
                       {CKA_MODULUS, 300, CKR_OK, 256}};
  const CK_OBJECT_HANDLE object = key(CKO_PRIVATE_KEY, rsa);
  Bytes room(300);
  std::vector<CK_ATTRIBUTE> wanted{{CKA_PUBLIC_EXPONENT, nullptr, 77}};
  for (const Row &row : kRows) {
    CK_ATTRIBUTE &alone = wanted.emplace_back(row.type, room.data(), row.room);
    EXPECT_EQ(f.C_GetAttributeValue(session, object, &alone, 1), row.result) << row.type;
    alone.ulValueLen = row.room;
  }
  EXPECT_NE(f.C_GetAttributeValue(session, object, wanted.data(), wanted.size()), CKR_OK);
  EXPECT_EQ(wanted[0].ulValueLen, 3U);
  for (std::size_t index = 0; index < std::size(kRows); ++index) {
    EXPECT_EQ(wanted[index + 1].ulValueLen, kRows[index].length) << index;
  }
}

TEST_F(TokenUser, SaysWhatItIs) {
  const std::string maker = "Keyferry" + std::string(24, ' ');
  CK_SLOT_INFO slot{};
  CK_TOKEN_INFO token{};
  CK_SESSION_INFO use{};
  CK_SESSION_HANDLE second = 0;
  for (const CK_RV result :
       {f.C_OpenSession(0, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &second),
        f.C_GetSlotInfo(0, &slot), f.C_GetTokenInfo(0, &token), f.C_GetSessionInfo(second, &use)}) {
    EXPECT_EQ(result, CKR_OK);
  }
  EXPECT_THAT(
      std::string(reinterpret_cast<const char *>(&token), sizeof token),
      testing::StartsWith("Keyferry card                   " + maker + "Remote card     " +
                          encodings::hexString(card.content->front().publicKeyHash).substr(0, 16)));
  EXPECT_EQ(slot.flags, CKF_TOKEN_PRESENT | CKF_REMOVABLE_DEVICE | CKF_HW_SLOT);
  EXPECT_EQ(token.ulSessionCount, 2U);
  EXPECT_EQ(token.ulRwSessionCount, 1U);
  EXPECT_EQ(use.state, CKS_RW_PUBLIC_SESSION);

  CK_MECHANISM_INFO mechanism{};
  std::vector<CK_MECHANISM_TYPE> types(27);
  CK_ULONG count = 26;
  EXPECT_EQ(f.C_GetMechanismList(0, types.data(), &count), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(f.C_GetMechanismList(0, types.data(), &count), CKR_OK);
  std::set<CK_ULONG> bits;
  for (const CK_MECHANISM_TYPE type : types) {
    EXPECT_EQ(f.C_GetMechanismInfo(0, type, &mechanism), CKR_OK);
    bits.insert({mechanism.ulMinKeySize, mechanism.ulMaxKeySize});
  }
  EXPECT_THAT(bits, testing::ElementsAre(0, 255, 256, 521, 1024, 4096));
}

TEST_F(TokenUser, ACardThatGoesAndComesKeepsItsHandles) {
  const auto content = card.content;
  const auto before = found({});
  const CK_MECHANISM given{CKM_ECDSA, nullptr, 0};
  CK_TOKEN_INFO info{};
  CK_SLOT_ID slot = 9;
  card.show(nullptr);
  EXPECT_EQ(f.C_WaitForSlotEvent(0, &slot, nullptr), CKR_OK);
  EXPECT_EQ(f.C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr), CKR_NO_EVENT);
  EXPECT_EQ(slot, 0U);
  EXPECT_EQ(f.C_GetTokenInfo(0, &info), CKR_TOKEN_NOT_PRESENT);
  CK_SLOT_INFO reader{};
  EXPECT_EQ(f.C_GetSlotInfo(0, &reader), CKR_OK);
  EXPECT_EQ(reader.flags, CKF_REMOVABLE_DEVICE | CKF_HW_SLOT);
  EXPECT_EQ(sign(before.front(), given, {}), CKR_DEVICE_REMOVED);
  EXPECT_EQ(f.C_FindObjectsInit(session, nullptr, 0), CKR_DEVICE_REMOVED);
  EXPECT_TRUE(hasReported("no card is inserted"));
  card.show(std::make_shared<const CardContent>(*content));  // read again, the same keys
  EXPECT_EQ(found({}), before);
  EXPECT_EQ(f.C_GetTokenInfo(0, &info), CKR_OK);
  EXPECT_EQ(sign(key(CKO_PRIVATE_KEY, p256), given, Bytes(32, 1)), CKR_OK);
  card.insert({*crypto::PrivateKey::generateP256()});
  EXPECT_EQ(sign(before.back(), given, {}), CKR_KEY_HANDLE_INVALID);
}

}  // namespace
}  // namespace driver
