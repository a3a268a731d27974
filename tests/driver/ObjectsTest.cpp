#include "driver/Object.hpp"

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
  EXPECT_EQ(found({}).size(), 3 * usualKeyCount);
  EXPECT_EQ(found({{CKA_CLASS, &certificates, sizeof certificates}}).size(), usualKeyCount);
  EXPECT_EQ(found({{CKA_SIGN, &yes, sizeof yes}}).size(), usualKeyCount);
  EXPECT_EQ(found({{CKA_SIGN, &yes, sizeof yes}, {CKA_LABEL, nullptr, 0}}).size(), 0U);
  EXPECT_EQ(found({{CKA_CLASS, &certificates, 1}}).size(), 0U);

  CK_OBJECT_HANDLE one = 0;
  CK_ULONG count = 0;
  std::vector<CK_OBJECT_HANDLE> oneByOne;
  ASSERT_EQ(f.C_FindObjectsInit(session, nullptr, 0), CKR_OK);
  card.show(nullptr);  // the search began before
  while (f.C_FindObjects(session, &one, 1, &count) == CKR_OK && count == 1) {
    oneByOne.push_back(one);
  }
  EXPECT_EQ(oneByOne.size(), 3 * usualKeyCount);
  EXPECT_EQ(f.C_FindObjectsFinal(session), CKR_OK);
  EXPECT_EQ(f.C_FindObjectsFinal(session), CKR_OK);
  card.insert({usualKeys()[p256], usualKeys()[p256]});
  EXPECT_EQ(found({}).size(), 4U) << "one key with two certificates";
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
  const crypto::Certificate &certificate = card.content->at(rsa).certificate;
  const Row kRows[] = {
      {"VisibleWithoutLogin", CKO_PRIVATE_KEY, rsa, CKA_PRIVATE, kNo},
      {"Sensitive", CKO_PRIVATE_KEY, rsa, CKA_SENSITIVE, kYes},
      {"AlwaysSensitive", CKO_PRIVATE_KEY, rsa, CKA_ALWAYS_SENSITIVE, kYes},
      {"NeverExtractable", CKO_PRIVATE_KEY, rsa, CKA_NEVER_EXTRACTABLE, kYes},
      {"NotExtractable", CKO_PRIVATE_KEY, rsa, CKA_EXTRACTABLE, kNo},
      {"NotAskedEachTime", CKO_PRIVATE_KEY, rsa, CKA_ALWAYS_AUTHENTICATE, kNo},
      {"RSADecrypts", CKO_PRIVATE_KEY, rsa, CKA_DECRYPT, kYes},
      {"ECDoesNotDecrypt", CKO_PRIVATE_KEY, p256, CKA_DECRYPT, kNo},
      {"ECDerives", CKO_PRIVATE_KEY, p256, CKA_DERIVE, kYes},
      {"ECPublicHalfToo", CKO_PUBLIC_KEY, p256, CKA_DERIVE, kYes},
      {"RSADoesNot", CKO_PUBLIC_KEY, rsa, CKA_DERIVE, kNo},
      {"Exponent", CKO_PRIVATE_KEY, rsa, CKA_PUBLIC_EXPONENT, {1, 0, 1}},
      {"ModulusBits", CKO_PUBLIC_KEY, oddRSA, CKA_MODULUS_BITS, attributeOf(CK_ULONG{1025})},
      {"Curve", CKO_PRIVATE_KEY, p384, CKA_EC_PARAMS, {6, 5, 0x2B, 0x81, 4, 0, 0x22}},
      {"ShortPoint", CKO_PUBLIC_KEY, p256, CKA_EC_POINT, joined({4, 65}, exported(p256))},
      {"LongPoint", CKO_PUBLIC_KEY, p521, CKA_EC_POINT, joined({4, 0x81, 133}, exported(p521))},
      {"EdwardsPoint", CKO_PUBLIC_KEY, ed25519, CKA_EC_POINT, joined({4, 32}, exported(ed25519))},
      {"EdwardsType", CKO_PRIVATE_KEY, ed25519, CKA_KEY_TYPE, attributeOf(CK_ULONG{0x40})},
      {"Subject", CKO_PRIVATE_KEY, rsa, CKA_SUBJECT, certificate.subjectDER()},
      {"Certificate", CKO_CERTIFICATE, rsa, CKA_VALUE, certificate.der()},
      {"Issuer", CKO_CERTIFICATE, rsa, CKA_ISSUER, certificate.issuerDER()},
      {"Mechanisms", CKO_PRIVATE_KEY, ed25519, CKA_ALLOWED_MECHANISMS,
       attributeOf(CK_ULONG{0x1057})},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(encodings::hexString(attribute(key(row.objectClass, row.key), row.type)),
              encodings::hexString(row.value));
  }
  EXPECT_EQ(attribute(key(CKO_CERTIFICATE, rsa), CKA_SERIAL_NUMBER).front(), 0x02);
  EXPECT_EQ(attribute(key(CKO_PRIVATE_KEY, rsa), CKA_MODULUS).size(), 256U);
}

TEST_F(TokenUser, FillsAllAttributesButThoseItCannot) {
  constexpr CK_ULONG kNothing = CK_UNAVAILABLE_INFORMATION;
  std::array<Bytes, 5> room{Bytes(8), Bytes(8), Bytes(300), Bytes(2), Bytes(8)};
  std::array<CK_ATTRIBUTE, 6> wanted{CK_ATTRIBUTE{CKA_VENDOR_DEFINED | 9, room[0].data(), 8},
                                     CK_ATTRIBUTE{CKA_PRIVATE_EXPONENT, room[1].data(), 8},
                                     CK_ATTRIBUTE{CKA_MODULUS, room[2].data(), 300},
                                     CK_ATTRIBUTE{CKA_PUBLIC_EXPONENT, room[3].data(), 2},
                                     CK_ATTRIBUTE{CKA_KEY_TYPE, room[4].data(), 8},
                                     CK_ATTRIBUTE{CKA_PUBLIC_EXPONENT, nullptr, 77}};
  const CK_OBJECT_HANDLE object = key(CKO_PRIVATE_KEY, rsa);
  EXPECT_NE(f.C_GetAttributeValue(session, object, wanted.data(), wanted.size()), CKR_OK);
  const std::array<CK_ULONG, 6> kLengths{kNothing, kNothing, 256, kNothing, 8, 3};
  for (std::size_t index = 0; index < wanted.size(); ++index) {
    EXPECT_EQ(wanted.at(index).ulValueLen, kLengths.at(index)) << index;
  }
  EXPECT_EQ(room[4], attributeOf(CK_ULONG{CKK_RSA}));
  const std::pair<std::size_t, CK_RV> kAlone[] = {
      {0, CKR_ATTRIBUTE_TYPE_INVALID}, {1, CKR_ATTRIBUTE_SENSITIVE}, {3, CKR_BUFFER_TOO_SMALL}};
  for (const auto &[index, result] : kAlone) {
    wanted.at(index).ulValueLen = 2;
    EXPECT_EQ(f.C_GetAttributeValue(session, object, &wanted.at(index), 1), result) << index;
  }
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
  EXPECT_TRUE(hasReported("no card is there"));
  card.show(std::make_shared<const CardContent>(*content));  // read again, the same keys
  EXPECT_EQ(found({}), before);
  EXPECT_EQ(f.C_GetTokenInfo(0, &info), CKR_OK);
  EXPECT_EQ(std::string_view(reinterpret_cast<const char *>(info.serialNumber), 16),
            encodings::hexString(content->front().publicKeyHash).substr(0, 16));
  EXPECT_EQ(sign(key(CKO_PRIVATE_KEY, p256), given, Bytes(32, 1)), CKR_OK);
  card.insert({*crypto::PrivateKey::generateP256()});
  EXPECT_EQ(sign(before.back(), given, {}), CKR_KEY_HANDLE_INVALID);
}

}  // namespace
}  // namespace driver
