#include "driver/Signing.hpp"

#include "crypto/KeyParts.hpp"
#include "driver/TokenUser.hpp"

namespace driver {
namespace {

using enum crypto::HashAlgorithm;

struct SigningCase {
  const char *name;
  UsualKey key;
  CK_MECHANISM_TYPE mechanism;
  Bytes message;
  CK_RSA_PKCS_PSS_PARAMS pss = {};
};

class Signatures : public TokenUser, public testing::WithParamInterface<SigningCase> {
 protected:
  CK_MECHANISM mechanism() {
    return pss_.hashAlg == 0 ? CK_MECHANISM{GetParam().mechanism, nullptr, 0}
                             : CK_MECHANISM{GetParam().mechanism, &pss_, sizeof pss_};
  }

  CK_RSA_PKCS_PSS_PARAMS pss_ = GetParam().pss;
};

// In one call and in parts, with a question for the length before; the token's own verification
// accepts both and nothing else.
TEST_P(Signatures, AreMadeWholeAndInPartsAndVerified) {
  CK_MECHANISM given = mechanism();
  Bytes message = GetParam().message;
  const CK_OBJECT_HANDLE privateKey = key(CKO_PRIVATE_KEY, GetParam().key);
  const CK_OBJECT_HANDLE publicKey = key(CKO_PUBLIC_KEY, GetParam().key);

  CK_ULONG length = 0;
  ASSERT_EQ(f.C_SignInit(session, &given, privateKey), CKR_OK);
  EXPECT_EQ(f.C_SignInit(session, &given, privateKey), CKR_OPERATION_ACTIVE);
  ASSERT_EQ(f.C_Sign(session, message.data(), message.size(), nullptr, &length), CKR_OK);
  Bytes whole(length);
  CK_ULONG tooShort = length - 1;
  EXPECT_EQ(f.C_Sign(session, message.data(), message.size(), whole.data(), &tooShort),
            CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(tooShort, length);
  EXPECT_EQ(card.uses, 0) << "the holder was asked without need";
  ASSERT_EQ(f.C_Sign(session, message.data(), message.size(), whole.data(), &length), CKR_OK);
  EXPECT_EQ(length, whole.size());
  EXPECT_EQ(f.C_Sign(session, message.data(), message.size(), whole.data(), &length),
            CKR_OPERATION_NOT_INITIALIZED);

  Bytes inParts(length);
  const std::size_t half = message.size() / 2;
  ASSERT_EQ(f.C_SignInit(session, &given, privateKey), CKR_OK);
  ASSERT_EQ(f.C_SignUpdate(session, message.data(), half), CKR_OK);
  ASSERT_EQ(f.C_SignUpdate(session, message.data() + half, message.size() - half), CKR_OK);
  ASSERT_EQ(f.C_SignFinal(session, inParts.data(), &length), CKR_OK);
  EXPECT_EQ(card.uses, 2);

  for (Bytes &signature : std::vector{whole, inParts}) {
    ASSERT_EQ(f.C_VerifyInit(session, &given, publicKey), CKR_OK);
    EXPECT_EQ(
        f.C_Verify(session, message.data(), message.size(), signature.data(), signature.size()),
        CKR_OK);
  }
  whole[whole.size() / 2] ^= 1;
  ASSERT_EQ(f.C_VerifyInit(session, &given, publicKey), CKR_OK);
  ASSERT_EQ(f.C_VerifyUpdate(session, message.data(), message.size()), CKR_OK);
  EXPECT_EQ(f.C_VerifyFinal(session, whole.data(), whole.size()), CKR_SIGNATURE_INVALID);
}

Bytes sixty() {
  return Bytes(60, 0x5A);
}

INSTANTIATE_TEST_SUITE_P(
    Mechanisms, Signatures,
    testing::Values(
        SigningCase{"RSABytes", rsa, CKM_RSA_PKCS, Bytes(245, 3)},
        SigningCase{"RSAShortBlock", rsa, CKM_RSA_X_509, Bytes(250, 3)},
        SigningCase{"RSABlock", rsa, CKM_RSA_X_509, Bytes(256, 3)},
        SigningCase{"RSASHA1", rsa, CKM_SHA1_RSA_PKCS, sixty()},
        SigningCase{"RSASHA512", oddRSA, CKM_SHA512_RSA_PKCS, sixty()},
        SigningCase{
            "PSSDigest", rsa, CKM_RSA_PKCS_PSS, Bytes(32, 7), {CKM_SHA256, CKG_MGF1_SHA256, 32}},
        SigningCase{"PSSMessage",
                    oddRSA,
                    CKM_SHA384_RSA_PKCS_PSS,
                    sixty(),
                    {CKM_SHA384, CKG_MGF1_SHA384, 48}},
        SigningCase{"PSSWithoutSaltAndOtherMask",
                    rsa,
                    CKM_SHA224_RSA_PKCS_PSS,
                    sixty(),
                    {CKM_SHA224, CKG_MGF1_SHA1, 0}},
        SigningCase{"ECDSADigest", p256, CKM_ECDSA, Bytes(64, 9)},
        SigningCase{"ECDSASHA384", p384, CKM_ECDSA_SHA384, sixty()},
        SigningCase{"ECDSASHA1", p521, CKM_ECDSA_SHA1, sixty()},
        SigningCase{"Ed25519", ed25519, CKM_EDDSA, Bytes(5000, 9)}),
    [](const auto &row) { return std::string(row.param.name); });

// What the library makes with the same key says whether our forms are those of others.
TEST_F(TokenUser, SignsAsOthersDo) {
  CK_MECHANISM rsaMechanism{CKM_SHA256_RSA_PKCS, nullptr, 0};
  CK_MECHANISM ecMechanism{CKM_ECDSA, nullptr, 0};
  Bytes message = sixty();
  Bytes digest = crypto::digestOf(sha256, message);
  Bytes signature(256);
  CK_ULONG length = signature.size();
  ASSERT_EQ(f.C_SignInit(session, &rsaMechanism, key(CKO_PRIVATE_KEY, rsa)), CKR_OK);
  ASSERT_EQ(f.C_Sign(session, message.data(), message.size(), signature.data(), &length), CKR_OK);
  EXPECT_EQ(signature, usualKeys()[rsa].signRawPKCS1(crypto::digestInfo(sha256, digest)));
  ASSERT_EQ(f.C_VerifyInit(session, &ecMechanism, key(CKO_PUBLIC_KEY, p521)), CKR_OK);
  Bytes joined =
      crypto::joinedSignature(*usualKeys()[p521].signDigestECDSA(digest), /*fieldBytes=*/66)
          .value();
  EXPECT_EQ(f.C_Verify(session, digest.data(), digest.size(), joined.data(), joined.size()),
            CKR_OK);
}

struct RefusedCase {
  const char *name;
  CK_OBJECT_CLASS objectClass;
  UsualKey key;
  CK_MECHANISM_TYPE mechanism;
  std::size_t messageBytes;
  CK_RV atInit;
  CK_RV atSign = CKR_OK;
  CK_RSA_PKCS_PSS_PARAMS pss = {};
};

TEST_F(TokenUser, RefusesWhatDoesNotFit) {
  const RefusedCase kCases[] = {
      {"TooLongToPad", CKO_PRIVATE_KEY, rsa, CKM_RSA_PKCS, 246, CKR_OK, CKR_DATA_LEN_RANGE},
      {"TooLongForABlock", CKO_PRIVATE_KEY, rsa, CKM_RSA_X_509, 257, CKR_OK, CKR_DATA_LEN_RANGE},
      {"NoDigest", CKO_PRIVATE_KEY, p256, CKM_ECDSA, 65, CKR_OK, CKR_DATA_LEN_RANGE},
      {"WrongDigestLength",
       CKO_PRIVATE_KEY,
       rsa,
       CKM_RSA_PKCS_PSS,
       31,
       CKR_OK,
       CKR_DATA_LEN_RANGE,
       {CKM_SHA256, CKG_MGF1_SHA256, 32}},
      {"SaltTooLongForTheKey",
       CKO_PRIVATE_KEY,
       oddRSA,
       CKM_RSA_PKCS_PSS,
       32,
       CKR_OK,
       CKR_DATA_LEN_RANGE,
       {CKM_SHA256, CKG_MGF1_SHA256, 96}},
      {"NoParameters", CKO_PRIVATE_KEY, rsa, CKM_RSA_PKCS_PSS, 32, CKR_MECHANISM_PARAM_INVALID},
      {"OtherHash",
       CKO_PRIVATE_KEY,
       rsa,
       CKM_SHA1_RSA_PKCS_PSS,
       9,
       CKR_MECHANISM_PARAM_INVALID,
       CKR_OK,
       {CKM_SHA256, CKG_MGF1_SHA256, 32}},
      {"UnknownMask",
       CKO_PRIVATE_KEY,
       rsa,
       CKM_RSA_PKCS_PSS,
       32,
       CKR_MECHANISM_PARAM_INVALID,
       CKR_OK,
       {CKM_SHA256, 99, 32}},
      {"HugeSalt",
       CKO_PRIVATE_KEY,
       rsa,
       CKM_RSA_PKCS_PSS,
       32,
       CKR_MECHANISM_PARAM_INVALID,
       CKR_OK,
       {CKM_SHA256, CKG_MGF1_SHA256, ~CK_ULONG{0}}},
      {"OtherKindOfKey", CKO_PRIVATE_KEY, p256, CKM_SHA256_RSA_PKCS, 9, CKR_KEY_TYPE_INCONSISTENT},
      {"PublicKey", CKO_PUBLIC_KEY, rsa, CKM_SHA256_RSA_PKCS, 9, CKR_KEY_FUNCTION_NOT_PERMITTED},
      {"UnknownMechanism", CKO_PRIVATE_KEY, rsa, CKM_AES_CBC, 9, CKR_MECHANISM_INVALID}};
  for (RefusedCase row : kCases) {
    SCOPED_TRACE(row.name);
    CK_MECHANISM given{row.mechanism, &row.pss, row.pss.hashAlg == 0 ? 0 : sizeof row.pss};
    Bytes message(row.messageBytes, 1);
    Bytes signature(512);
    CK_ULONG length = signature.size();
    EXPECT_EQ(f.C_SignInit(session, &given, key(row.objectClass, row.key)), row.atInit);
    EXPECT_EQ(f.C_Sign(session, message.data(), message.size(), signature.data(), &length),
              row.atInit == CKR_OK ? row.atSign : CKR_OPERATION_NOT_INITIALIZED);
  }
  EXPECT_EQ(card.uses, 0);
}

TEST_F(TokenUser, TellsHowTheHoldersAnswerCameOut) {
  const std::pair<UseOutcome, CK_RV> kOutcomes[] = {
      {UseOutcome::refused, CKR_FUNCTION_REJECTED},
      {UseOutcome::cardGone, CKR_DEVICE_REMOVED},
      {UseOutcome::timedOut, CKR_FUNCTION_FAILED},
      {UseOutcome::failed, CKR_DEVICE_ERROR},
      {UseOutcome::done, CKR_DEVICE_ERROR}};  // with a signature that the certificate denies
  card.answersWrongly = true;
  for (const UsualKey which : {rsa, p256, ed25519}) {
    for (const auto &[outcome, result] : kOutcomes) {
      constexpr std::array<CK_MECHANISM_TYPE, usualKeyCount> kPlain{
          CKM_RSA_PKCS, CKM_RSA_PKCS, CKM_ECDSA, CKM_ECDSA, CKM_ECDSA, CKM_EDDSA};
      CK_MECHANISM given{kPlain.at(which), nullptr, 0};
      Bytes message(32, 1);
      Bytes signature(256);
      CK_ULONG length = signature.size();
      card.outcome = outcome;
      ASSERT_EQ(f.C_SignInit(session, &given, key(CKO_PRIVATE_KEY, which)), CKR_OK);
      EXPECT_EQ(f.C_Sign(session, message.data(), message.size(), signature.data(), &length),
                result);
    }
  }
}

}  // namespace
}  // namespace driver
