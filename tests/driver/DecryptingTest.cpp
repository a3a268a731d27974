#include "driver/Decrypting.hpp"

#include "driver/TokenUser.hpp"

namespace driver {
namespace {

struct DecryptionCase {
  const char *name;
  CK_MECHANISM_TYPE mechanism;
  std::size_t mostBytes;
  CK_RSA_PKCS_OAEP_PARAMS oaep = {};
};

// What the token encrypts it has decrypted, in parts as well; a place that is too short costs no
// second use of the key.
TEST_F(TokenUser, DecryptsWhatItEncrypts) {
  char label[] = "label";
  const DecryptionCase kCases[] = {
      {"PKCS1", CKM_RSA_PKCS, 245},
      {"Raw", CKM_RSA_X_509, 256},
      {"OAEP", CKM_RSA_PKCS_OAEP, 190, {CKM_SHA256, CKG_MGF1_SHA256, 0, nullptr, 0}},
      {"OAEPWithLabelAndOtherMask",
       CKM_RSA_PKCS_OAEP,
       214,
       {CKM_SHA_1, CKG_MGF1_SHA384, CKZ_DATA_SPECIFIED, label, 5}}};
  for (DecryptionCase row : kCases) {
    SCOPED_TRACE(row.name);
    CK_MECHANISM given{row.mechanism, &row.oaep, row.oaep.hashAlg == 0 ? 0 : sizeof row.oaep};
    Bytes plain(row.mostBytes, 0x11);
    Bytes block(256);
    Bytes opened(256);
    CK_ULONG length = block.size();
    ASSERT_EQ(f.C_EncryptInit(session, &given, key(CKO_PUBLIC_KEY, rsa)), CKR_OK);
    ASSERT_EQ(f.C_Encrypt(session, plain.data(), plain.size(), block.data(), &length), CKR_OK);
    ASSERT_EQ(f.C_DecryptInit(session, &given, key(CKO_PRIVATE_KEY, rsa)), CKR_OK);
    card.uses = 0;
    ASSERT_EQ(f.C_Decrypt(session, block.data(), block.size(), nullptr, &length), CKR_OK);
    EXPECT_EQ(length, 256U);
    EXPECT_EQ(card.uses, 0);
    length = 5;
    EXPECT_EQ(f.C_Decrypt(session, block.data(), block.size(), opened.data(), &length),
              CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, plain.size());
    EXPECT_EQ(f.C_Decrypt(session, block.data(), block.size(), opened.data(), &length), CKR_OK);
    EXPECT_EQ(card.uses, 1);
    opened.resize(length);
    EXPECT_EQ(opened, plain);

    Bytes longer(row.mostBytes + 1, 1);
    length = block.size();
    ASSERT_EQ(f.C_EncryptInit(session, &given, key(CKO_PUBLIC_KEY, rsa)), CKR_OK);
    EXPECT_EQ(f.C_Encrypt(session, longer.data(), longer.size(), block.data(), &length),
              CKR_DATA_LEN_RANGE);
  }
}

TEST_F(TokenUser, TellsABlockThatDoesNotUnpadFromOneThatCannot) {
  CK_MECHANISM given{CKM_RSA_PKCS, nullptr, 0};
  Bytes block(256, 1);
  Bytes opened(256);
  CK_ULONG length = opened.size();
  ASSERT_EQ(f.C_DecryptInit(session, &given, key(CKO_PRIVATE_KEY, rsa)), CKR_OK);
  EXPECT_EQ(f.C_Decrypt(session, block.data(), block.size(), opened.data(), &length),
            CKR_ENCRYPTED_DATA_INVALID);
  ASSERT_EQ(f.C_DecryptInit(session, &given, key(CKO_PRIVATE_KEY, rsa)), CKR_OK);
  CK_ULONG given2 = 0;
  EXPECT_EQ(f.C_DecryptUpdate(session, block.data(), 255, opened.data(), &given2), CKR_OK);
  EXPECT_EQ(f.C_DecryptFinal(session, opened.data(), &length), CKR_ENCRYPTED_DATA_LEN_RANGE);
}

struct DerivationCase {
  const char *name;
  UsualKey key;
  Bytes prefix;    // before the peer's point
  CK_ULONG bytes;  // that are wanted
  CK_RV result = CKR_OK;
};

TEST_F(TokenUser, AgreesOnASecretWithAnotherKey) {
  const DerivationCase kCases[] = {
      {"RawPoint", p256, {}, 32},
      {"PointInAnOctetString", p384, {4, 97}, 48},
      {"LongOctetString", p521, {4, 0x81, 133}, 66},
      {"EndOfTheCoordinate", p256, {}, 16},
      {"LongerThanTheCoordinate", p256, {}, 33, CKR_ATTRIBUTE_VALUE_INVALID},
      {"NoPoint", p256, {9}, 32, CKR_MECHANISM_PARAM_INVALID}};
  constexpr std::array<const char *, usualKeyCount> kCurves{"", "", "P-256", "P-384", "P-521", ""};
  for (const DerivationCase &row : kCases) {
    SCOPED_TRACE(row.name);
    const crypto::PrivateKey peer = madeCurveKey(kCurves.at(row.key));
    const Bytes point = peer.publicKey().externalRepresentation().value();
    Bytes encoded = row.prefix;
    encoded.insert(encoded.end(), point.begin(), point.end());
    CK_ECDH1_DERIVE_PARAMS parameters{CKD_NULL, 0, nullptr, encoded.size(), encoded.data()};
    CK_MECHANISM given{CKM_ECDH1_DERIVE, &parameters, sizeof parameters};
    CK_ULONG wantedBytes = row.bytes;
    CK_ATTRIBUTE wanted{CKA_VALUE_LEN, &wantedBytes, sizeof wantedBytes};
    CK_OBJECT_HANDLE secret = 0;
    ASSERT_EQ(f.C_DeriveKey(session, &given, key(CKO_PRIVATE_KEY, row.key), &wanted, 1, &secret),
              row.result);
    if (row.result != CKR_OK) {
      continue;
    }
    const Bytes own = usualKeys()[row.key].publicKey().externalRepresentation().value();
    const SecretBytes shared = peer.deriveECDH(own).value();
    EXPECT_TRUE(base::equal(attribute(secret, CKA_VALUE), shared.reveal().last(row.bytes)));
    EXPECT_EQ(f.C_DestroyObject(session, secret), CKR_OK);
    EXPECT_EQ(f.C_DestroyObject(session, secret), CKR_OBJECT_HANDLE_INVALID);
  }
}

TEST_F(TokenUser, ASensitiveSecretStaysHiddenAndGoesWithItsSession) {
  const crypto::PrivateKey peer = madeCurveKey("P-256");
  Bytes point = peer.publicKey().externalRepresentation().value();
  CK_ECDH1_DERIVE_PARAMS parameters{CKD_NULL, 0, nullptr, point.size(), point.data()};
  CK_MECHANISM given{CKM_ECDH1_DERIVE, &parameters, sizeof parameters};
  CK_BBOOL yes = CK_TRUE;
  CK_ATTRIBUTE sensitive{CKA_SENSITIVE, &yes, sizeof yes};
  CK_OBJECT_HANDLE secret = 0;
  const CK_SESSION_HANDLE other = opened();
  ASSERT_EQ(f.C_DeriveKey(other, &given, key(CKO_PRIVATE_KEY, p256), &sensitive, 1, &secret),
            CKR_OK);
  CK_ATTRIBUTE value{CKA_VALUE, nullptr, 0};
  EXPECT_EQ(f.C_GetAttributeValue(session, secret, &value, 1), CKR_ATTRIBUTE_SENSITIVE);
  EXPECT_EQ(f.C_CloseSession(other), CKR_OK);
  EXPECT_EQ(f.C_GetAttributeValue(session, secret, &value, 1), CKR_OBJECT_HANDLE_INVALID);
}

}  // namespace
}  // namespace driver
