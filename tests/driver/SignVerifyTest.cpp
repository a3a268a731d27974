#include "driver/SignVerify.hpp"

#include "driver/TokenUser.hpp"

namespace driver {
namespace {

using Pss = CK_RSA_PKCS_PSS_PARAMS;

struct SigningCase {
  const char *name;
  UsualKey key;
  CK_MECHANISM_TYPE mechanism;
  Bytes message;
  Pss pss = {};
};

// Single-part and multiple-part signatures, which can't be mixed, each after a length query. The
// token verifies both and rejects all others.
TEST_F(TokenUser, SignsWholeAndInPartsAndVerifies) {
  const Bytes sixty(60, 0x5A);
  const SigningCase kCases[] = {
      {"RSABytes", rsa, CKM_RSA_PKCS, Bytes(245, 3)},
      {"RSAShortBlock", rsa, CKM_RSA_X_509, Bytes(250, 3)},
      {"RSABlock", rsa, CKM_RSA_X_509, Bytes(256, 3)},
      {"RSASHA1", rsa, CKM_SHA1_RSA_PKCS, sixty},
      {"RSASHA512", oddRSA, CKM_SHA512_RSA_PKCS, sixty},
      {"PSSDigest", rsa, CKM_RSA_PKCS_PSS, Bytes(32, 7), {CKM_SHA256, CKG_MGF1_SHA256, 32}},
      {"PSSMessage", oddRSA, CKM_SHA384_RSA_PKCS_PSS, sixty, {CKM_SHA384, CKG_MGF1_SHA384, 48}},
      {"PSSWithoutSaltAndOtherMask",
       rsa,
       CKM_SHA224_RSA_PKCS_PSS,
       sixty,
       {CKM_SHA224, CKG_MGF1_SHA1, 0}},
      {"ECDSADigest", p256, CKM_ECDSA, Bytes(64, 9)},
      {"ECDSASHA384", p384, CKM_ECDSA_SHA384, sixty},
      {"ECDSASHA1", p521, CKM_ECDSA_SHA1, sixty},
      {"Ed25519", ed25519, CKM_EDDSA, Bytes(std::size_t{1024} * 1024, 9)}};
  for (SigningCase row : kCases) {
    SCOPED_TRACE(row.name);
    CK_MECHANISM given = mechanismOf(row.mechanism, row.pss);
    Bytes &message = row.message;
    const CK_OBJECT_HANDLE object = key(CKO_PRIVATE_KEY, row.key);
    const auto verify = [&](Bytes made) {
      EXPECT_EQ(f.C_VerifyInit(session, &given, key(CKO_PUBLIC_KEY, row.key)), CKR_OK);
      return f.C_Verify(session, message.data(), message.size(), made.data(), made.size());
    };
    card.uses = 0;

    CK_ULONG length = 0;
    ASSERT_EQ(f.C_SignInit(session, &given, object), CKR_OK);
    EXPECT_EQ(f.C_SignInit(session, &given, object), CKR_OPERATION_ACTIVE);
    ASSERT_EQ(f.C_Sign(session, message.data(), message.size(), nullptr, &length), CKR_OK);
    EXPECT_EQ(f.C_SignUpdate(session, message.data(), 1), CKR_OPERATION_ACTIVE);
    EXPECT_EQ(f.C_SignFinal(session, nullptr, &length), CKR_OPERATION_ACTIVE);
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
    ASSERT_EQ(f.C_SignInit(session, &given, object), CKR_OK);
    ASSERT_EQ(f.C_SignUpdate(session, message.data(), half), CKR_OK);
    EXPECT_EQ(f.C_Sign(session, message.data(), half, inParts.data(), &length),
              CKR_OPERATION_ACTIVE);
    ASSERT_EQ(f.C_SignUpdate(session, message.data() + half, message.size() - half), CKR_OK);
    ASSERT_EQ(f.C_SignFinal(session, inParts.data(), &length), CKR_OK);
    EXPECT_EQ(card.uses, 2);

    EXPECT_EQ(verify(whole), CKR_OK);
    EXPECT_EQ(verify(inParts), CKR_OK);
    EXPECT_EQ(verify(Bytes(length - 1)), CKR_SIGNATURE_LEN_RANGE);
    whole[whole.size() / 2] ^= 1;
    ASSERT_EQ(f.C_VerifyInit(session, &given, key(CKO_PUBLIC_KEY, row.key)), CKR_OK);
    ASSERT_EQ(f.C_VerifyUpdate(session, message.data(), message.size()), CKR_OK);
    EXPECT_EQ(f.C_Verify(session, nullptr, 0, whole.data(), whole.size()), CKR_OPERATION_ACTIVE);
    EXPECT_EQ(f.C_VerifyFinal(session, whole.data(), whole.size()), CKR_SIGNATURE_INVALID);
  }
}

TEST_F(TokenUser, ADigestIsMadeWholeOrInParts) {
  CK_MECHANISM given{CKM_SHA256, nullptr, 0};
  Bytes out(32);
  CK_ULONG length = 0;
  EXPECT_EQ(f.C_DigestInit(session, &given), CKR_OK);
  EXPECT_EQ(f.C_Digest(session, out.data(), 1, nullptr, &length), CKR_OK);
  EXPECT_EQ(f.C_DigestFinal(session, out.data(), &length), CKR_OPERATION_ACTIVE);
  EXPECT_EQ(f.C_Digest(session, out.data(), 1, out.data(), &length), CKR_OK);
  EXPECT_EQ(f.C_DigestInit(session, &given), CKR_OK);
  EXPECT_EQ(f.C_DigestUpdate(session, out.data(), 1), CKR_OK);
  EXPECT_EQ(f.C_Digest(session, out.data(), 1, out.data(), &length), CKR_OPERATION_ACTIVE);
  EXPECT_EQ(f.C_DigestFinal(session, out.data(), &length), CKR_OK);
}

struct RefusedCase {
  const char *name;
  UsualKey key;
  CK_MECHANISM_TYPE mechanism;
  std::size_t messageBytes;
  CK_RV result;
  Pss pss = {};
};

// Errors of the message are reported when it is passed, all others by C_SignInit.
TEST_F(TokenUser, RefusesWhatDoesNotFit) {
  const Pss usual{CKM_SHA256, CKG_MGF1_SHA256, 32};
  const Pss noHash{CKM_RSA_PKCS, CKG_MGF1_SHA256, 32};
  const Pss otherMask{CKM_SHA256, 99, 32};
  const Pss longSalt{CKM_SHA256, CKG_MGF1_SHA256, 512};
  const Pss hugeSalt{CKM_SHA256, CKG_MGF1_SHA256, 513};
  const RefusedCase kCases[] = {
      {"TooLongToPad", rsa, CKM_RSA_PKCS, 246, CKR_DATA_LEN_RANGE},
      {"TooLongForABlock", rsa, CKM_RSA_X_509, 257, CKR_DATA_LEN_RANGE},
      {"NothingForABlock", rsa, CKM_RSA_X_509, 0, CKR_DATA_LEN_RANGE},
      {"NoDigest", p256, CKM_ECDSA, 65, CKR_DATA_LEN_RANGE},
      {"Nothing", p256, CKM_ECDSA, 0, CKR_DATA_LEN_RANGE},
      {"LongerThanAFrame", ed25519, CKM_EDDSA, 1024 * 1024 + 1, CKR_DATA_LEN_RANGE},
      {"WrongDigestLength", rsa, CKM_RSA_PKCS_PSS, 31, CKR_DATA_LEN_RANGE, usual},
      {"SaltTooLongForTheKey", oddRSA, CKM_RSA_PKCS_PSS, 32, CKR_DATA_LEN_RANGE, longSalt},
      {"NoParameters", rsa, CKM_RSA_PKCS_PSS, 32, CKR_MECHANISM_PARAM_INVALID},
      {"OtherHash", rsa, CKM_SHA1_RSA_PKCS_PSS, 9, CKR_MECHANISM_PARAM_INVALID, usual},
      {"UnknownMask", rsa, CKM_RSA_PKCS_PSS, 32, CKR_MECHANISM_PARAM_INVALID, otherMask},
      {"UnknownHash", rsa, CKM_RSA_PKCS_PSS, 32, CKR_MECHANISM_PARAM_INVALID, noHash},
      {"HugeSalt", rsa, CKM_RSA_PKCS_PSS, 32, CKR_MECHANISM_PARAM_INVALID, hugeSalt},
      {"OtherKindOfKey", p256, CKM_SHA256_RSA_PKCS, 9, CKR_KEY_TYPE_INCONSISTENT},
      {"NotForSigning", rsa, CKM_RSA_PKCS_OAEP, 9, CKR_MECHANISM_INVALID},
      {"UnknownMechanism", rsa, CKM_AES_CBC, 9, CKR_MECHANISM_INVALID}};
  for (RefusedCase row : kCases) {
    SCOPED_TRACE(row.name);
    CK_MECHANISM given = mechanismOf(row.mechanism, row.pss);
    Bytes message(row.messageBytes, 1);
    Bytes place(512);
    CK_ULONG length = place.size();
    const bool isLate = row.result == CKR_DATA_LEN_RANGE;
    EXPECT_EQ(f.C_SignInit(session, &given, key(CKO_PRIVATE_KEY, row.key)),
              isLate ? CKR_OK : row.result);
    EXPECT_EQ(f.C_Sign(session, message.data(), message.size(), place.data(), &length),
              isLate ? row.result : CKR_OPERATION_NOT_INITIALIZED);
  }
  CK_MECHANISM given{CKM_RSA_PKCS, nullptr, 0};
  for (const CK_RV result : {f.C_SignInit(session, &given, key(CKO_PUBLIC_KEY, rsa)),
                             f.C_DecryptInit(session, &given, key(CKO_PUBLIC_KEY, rsa)),
                             f.C_VerifyInit(session, &given, key(CKO_PRIVATE_KEY, rsa)),
                             f.C_EncryptInit(session, &given, key(CKO_PRIVATE_KEY, rsa))}) {
    EXPECT_EQ(result, CKR_KEY_FUNCTION_NOT_PERMITTED);
  }
  EXPECT_EQ(f.C_SignInit(session, &given, key(CKO_CERTIFICATE, rsa)), CKR_KEY_TYPE_INCONSISTENT);
  EXPECT_EQ(card.uses, 0);
}

TEST_F(TokenUser, TellsHowTheHoldersAnswerCameOut) {
  const std::tuple<RequestOutcome, CK_RV, const char *> kOutcomes[] = {
      {RequestOutcome::refused, CKR_FUNCTION_REJECTED,
       "failed: the key's holder refused; try: look"},
      {RequestOutcome::cardGone, CKR_DEVICE_REMOVED, "failed: the card is gone; try: connect"},
      {RequestOutcome::timedOut, CKR_FUNCTION_FAILED, "failed: no answer within timeLimitSeconds"},
      {RequestOutcome::failed, CKR_DEVICE_ERROR, "\"key 0\" failed: connection lost; try: kfyctl"},
      {RequestOutcome::done, CKR_DEVICE_ERROR,
       "does not verify with the certificate \"key 0\", so"}};
  card.lastFailure = "connection lost";
  card.answersWrongly = true;
  const std::pair<UsualKey, CK_MECHANISM_TYPE> kKeys[] = {
      {rsa, CKM_RSA_PKCS}, {p256, CKM_ECDSA}, {ed25519, CKM_EDDSA}};
  for (const auto &[which, mechanism] : kKeys) {
    for (const auto &[outcome, result, text] : kOutcomes) {
      card.outcome = outcome;
      EXPECT_EQ(sign(key(CKO_PRIVATE_KEY, which), {mechanism, nullptr, 0}, Bytes(32, 1)), result);
      EXPECT_TRUE(hasReported(text)) << text;
    }
  }
  EXPECT_EQ(card.uses, 15);
  card.lastFailure = "";
}

}  // namespace
}  // namespace driver
