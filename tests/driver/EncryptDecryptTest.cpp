#include "driver/EncryptDecrypt.hpp"

#include "driver/TokenUser.hpp"

namespace driver {
namespace {

struct DecryptionCase {
  const char *name;
  CK_MECHANISM_TYPE mechanism;
  std::size_t mostBytes;
  CK_RSA_PKCS_OAEP_PARAMS oaep = {};
};

// The token decrypts what it encrypted, in parts too. A buffer that is too small costs no second
// request.
TEST_F(TokenUser, DecryptsWhatItEncrypts) {
  Bytes label{1, 2, 3};
  const DecryptionCase kCases[] = {
      {"PKCS1", CKM_RSA_PKCS, 245},
      {"Raw", CKM_RSA_X_509, 256},
      {"OAEP",
       CKM_RSA_PKCS_OAEP,
       190,
       {CKM_SHA256, CKG_MGF1_SHA256, CKZ_DATA_SPECIFIED, nullptr, 0}},
      {"OAEPWithLabelAndOtherMask",
       CKM_RSA_PKCS_OAEP,
       214,
       {CKM_SHA_1, CKG_MGF1_SHA384, CKZ_DATA_SPECIFIED, label.data(), label.size()}}};
  for (DecryptionCase row : kCases) {
    SCOPED_TRACE(row.name);
    CK_MECHANISM given = mechanismOf(row.mechanism, row.oaep);
    const Bytes plain(row.mostBytes, 0x11);
    Bytes block(256);
    Bytes opened(256);
    CK_ULONG length = block.size();
    const auto encrypt = [&](Bytes text) {
      EXPECT_EQ(f.C_EncryptInit(session, &given, key(CKO_PUBLIC_KEY, rsa)), CKR_OK);
      EXPECT_EQ(f.C_Encrypt(session, text.data(), 1, nullptr, &length), CKR_OK);
      EXPECT_EQ(f.C_EncryptFinal(session, block.data(), &length), CKR_OPERATION_ACTIVE);
      return f.C_Encrypt(session, text.data(), text.size(), block.data(), &length);
    };
    EXPECT_EQ(encrypt(Bytes(row.mostBytes + 1, 1)), CKR_DATA_LEN_RANGE);
    ASSERT_EQ(encrypt(plain), CKR_OK);
    ASSERT_EQ(f.C_EncryptInit(session, &given, key(CKO_PUBLIC_KEY, rsa)), CKR_OK);
    for (const CK_ULONG bytes : {CK_ULONG{9}, row.mostBytes - 9}) {
      EXPECT_EQ(f.C_EncryptUpdate(session, Bytes(plain).data(), bytes, nullptr, &length), CKR_OK);
    }
    length = block.size();
    ASSERT_EQ(f.C_EncryptFinal(session, block.data(), &length), CKR_OK);
    ASSERT_EQ(f.C_DecryptInit(session, &given, key(CKO_PRIVATE_KEY, rsa)), CKR_OK);
    ASSERT_EQ(f.C_DecryptUpdate(session, block.data(), 256, nullptr, &length), CKR_OK);
    length = opened.size();
    EXPECT_EQ(f.C_DecryptFinal(session, opened.data(), &length), CKR_OK);
    EXPECT_EQ(opened[length - 1], 0x11);
    card.uses = 0;
    ASSERT_EQ(f.C_DecryptInit(session, &given, key(CKO_PRIVATE_KEY, rsa)), CKR_OK);
    EXPECT_EQ(f.C_Decrypt(session, block.data(), 255, opened.data(), &length),
              CKR_ENCRYPTED_DATA_LEN_RANGE);
    ASSERT_EQ(f.C_DecryptInit(session, &given, key(CKO_PRIVATE_KEY, rsa)), CKR_OK);
    ASSERT_EQ(f.C_Decrypt(session, block.data(), block.size(), nullptr, &length), CKR_OK);
    EXPECT_EQ(length, 256U);
    EXPECT_EQ(f.C_DecryptFinal(session, opened.data(), &length), CKR_OPERATION_ACTIVE);
    EXPECT_EQ(card.uses, 0);
    length = 5;
    EXPECT_EQ(f.C_Decrypt(session, block.data(), block.size(), opened.data(), &length),
              CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, plain.size());
    EXPECT_EQ(f.C_Decrypt(session, block.data(), block.size(), opened.data(), &length), CKR_OK);
    EXPECT_EQ(card.uses, 1);
    opened.resize(length);
    EXPECT_EQ(opened, plain);
  }
}

TEST_F(TokenUser, RefusesOtherParametersOfOAEP) {
  constexpr CK_ULONG kData = CKZ_DATA_SPECIFIED;
  Bytes label(std::size_t{64} * 1024 + 1);
  CK_RSA_PKCS_OAEP_PARAMS kCases[] = {
      {CKM_SHA256, CKG_MGF1_SHA256, kData, label.data(), label.size() - 1},
      {CKM_SHA256, CKG_MGF1_SHA256, kData, label.data(), label.size()},
      {CKM_SHA256, CKG_MGF1_SHA256, kData, nullptr, 1},
      {CKM_SHA256, CKG_MGF1_SHA256, 0, label.data(), 1},
      {CKM_SHA256, 99, 0, nullptr, 0},
      {CKM_RSA_PKCS, CKG_MGF1_SHA256, 0, nullptr, 0}};
  const CK_OBJECT_HANDLE object = key(CKO_PUBLIC_KEY, rsa);
  for (CK_RSA_PKCS_OAEP_PARAMS &row : kCases) {
    CK_MECHANISM given{CKM_RSA_PKCS_OAEP, &row, sizeof row};
    const bool isGood = &row == kCases;
    EXPECT_EQ(f.C_EncryptInit(session, &given, object),
              isGood ? CKR_OK : CKR_MECHANISM_PARAM_INVALID);
    for (const auto &[bytes, result] : {std::pair(256U, CKR_OK), {1U, CKR_DATA_LEN_RANGE}}) {
      EXPECT_EQ(f.C_EncryptUpdate(session, label.data(), bytes, nullptr, &row.source),
                isGood ? result : CKR_OPERATION_NOT_INITIALIZED);
    }
  }
}

struct DerivationCase {
  const char *name;
  UsualKey key;
  Bytes prefix;    // before the peer's point
  CK_ULONG bytes;  // the wanted length
  CK_RV result = CKR_OK;
};

class Derivation : public TokenUser {
 protected:
  CK_RV derive(CK_SESSION_HANDLE in, CK_OBJECT_HANDLE with, Bytes point,
               std::vector<CK_ATTRIBUTE> wanted) {
    CK_ECDH1_DERIVE_PARAMS parameters{CKD_NULL, 0, nullptr, point.size(), point.data()};
    CK_MECHANISM given{CKM_ECDH1_DERIVE, &parameters, sizeof parameters};
    return f.C_DeriveKey(in, &given, with, wanted.data(), wanted.size(), &secret);
  }

  CK_OBJECT_HANDLE secret = CK_INVALID_HANDLE;
};

TEST_F(Derivation, AgreesOnASecretWithAnotherKey) {
  const DerivationCase kCases[] = {
      {"RawPoint", p256, {}, 32},
      {"PointInAnOctetString", p384, {4, 97}, 48},
      {"LongOctetString", p521, {4, 0x81, 133}, 66},
      {"EndOfTheCoordinate", p256, {4, 65}, 1},
      {"Nothing", p256, {}, 0, CKR_ATTRIBUTE_VALUE_INVALID},
      {"NoOctetString", p256, {5, 65}, 32, CKR_MECHANISM_PARAM_INVALID},
      {"OtherLength", p384, {4, 98}, 48, CKR_MECHANISM_PARAM_INVALID},
      {"OtherLengthOfLength", p521, {4, 0x82, 133}, 66, CKR_MECHANISM_PARAM_INVALID},
      {"LongerThanTheCoordinate", p256, {}, 33, CKR_ATTRIBUTE_VALUE_INVALID},
      {"NoPoint", p256, {9}, 32, CKR_MECHANISM_PARAM_INVALID}};
  constexpr std::array<const char *, usualKeyCount> kCurves{"", "", "P-256", "P-384", "P-521", ""};
  for (const DerivationCase &row : kCases) {
    SCOPED_TRACE(row.name);
    const crypto::PrivateKey peer = madeCurveKey(kCurves.at(row.key));
    const Bytes point = peer.publicKey().externalRepresentation().value();
    Bytes encoded = row.prefix;
    encoded.insert(encoded.end(), point.begin(), point.end());
    CK_ULONG bytes = row.bytes;
    ASSERT_EQ(derive(session, key(CKO_PRIVATE_KEY, row.key), encoded,
                     {{CKA_VALUE_LEN, &bytes, sizeof bytes}}),
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

TEST_F(Derivation, ASecretThatIsNotOpenStaysHiddenAndGoesWithItsSession) {
  const Bytes point = madeCurveKey("P-256").publicKey().externalRepresentation().value();
  const CK_OBJECT_HANDLE object = key(CKO_PRIVATE_KEY, p256);
  const std::pair<CK_ATTRIBUTE_TYPE, CK_BBOOL> kFlags[] = {
      {CKA_SENSITIVE, CK_TRUE}, {CKA_SENSITIVE, 7}, {CKA_EXTRACTABLE, CK_FALSE}};
  for (auto [flag, set] : kFlags) {
    const CK_SESSION_HANDLE other = opened();
    ASSERT_EQ(derive(other, object, point, {{flag, &set, sizeof set}}), CKR_OK);
    CK_ATTRIBUTE value{CKA_VALUE, nullptr, 0};
    EXPECT_EQ(f.C_GetAttributeValue(session, secret, &value, 1), CKR_ATTRIBUTE_SENSITIVE);
    EXPECT_EQ(f.C_CloseSession(other), CKR_OK);
    EXPECT_EQ(f.C_GetAttributeValue(session, secret, &value, 1), CKR_OBJECT_HANDLE_INVALID);
  }
  EXPECT_EQ(derive(session, key(CKO_PUBLIC_KEY, p256), point, {}), CKR_KEY_FUNCTION_NOT_PERMITTED);
  CK_BBOOL yes = CK_TRUE;
  CK_OBJECT_CLASS other = CKO_DATA;
  const std::pair<CK_ATTRIBUTE, CK_RV> kTemplates[] = {
      {{CKA_TOKEN, &yes, sizeof yes}, CKR_TOKEN_WRITE_PROTECTED},
      {{CKA_CLASS, &other, sizeof other}, CKR_TEMPLATE_INCONSISTENT},
      {{CKA_VALUE, &yes, sizeof yes}, CKR_TEMPLATE_INCONSISTENT},
      {{CKA_VALUE_LEN, &yes, sizeof yes}, CKR_ATTRIBUTE_VALUE_INVALID},
      {{CKA_ID, nullptr, 1}, CKR_ARGUMENTS_BAD}};
  for (const auto &[wanted, result] : kTemplates) {
    EXPECT_EQ(derive(session, object, point, {wanted}), result) << wanted.type;
  }
  const CK_SESSION_HANDLE closed = opened();
  card.meanwhile = [&] { EXPECT_EQ(f.C_CloseSession(closed), CKR_OK); };
  EXPECT_EQ(derive(closed, object, point, {}), CKR_SESSION_CLOSED);
  EXPECT_EQ(found({}).size(), 3 * usualKeyCount) << "the secret is still there";
}

}  // namespace
}  // namespace driver
