#include <openssl/err.h>

#include <cerrno>
#include <thread>

#include "driver/TokenUser.hpp"

namespace driver {
namespace {

class TokenUserWithSettings : public TokenUser {
 protected:
  void use(const std::string &settings) {
    writeSettings(settings);
    EXPECT_EQ(f.C_Finalize(nullptr), CKR_OK);
    EXPECT_EQ(f.C_Initialize(nullptr), CKR_OK);
    session = opened();
  }

  CK_RV loginWith(std::string pin) {
    return f.C_Login(session, CKU_USER, reinterpret_cast<CK_BYTE *>(pin.data()), pin.size());
  }
  CK_FLAGS tokenFlags() {
    CK_TOKEN_INFO info{};
    EXPECT_EQ(f.C_GetTokenInfo(0, &info), CKR_OK);
    return info.flags;
  }
  CK_RV sign(CK_OBJECT_HANDLE object) {
    return TokenUser::sign(object, {CKM_ECDSA, nullptr, 0}, Bytes(32, 1));
  }
};

TEST_F(TokenUser, InitialisesOnceAndAgain) {
  CK_INFO info{};
  CK_C_INITIALIZE_ARGS strange{};
  strange.pReserved = &strange;
  EXPECT_EQ(f.C_Initialize(&strange), CKR_CRYPTOKI_ALREADY_INITIALIZED);
  EXPECT_EQ(f.C_Finalize(nullptr), CKR_OK);
  EXPECT_EQ(f.C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
  EXPECT_EQ(f.C_GetInfo(&info), CKR_CRYPTOKI_NOT_INITIALIZED);
  strange.LockMutex = [](void *) { return CK_RV{CKR_OK}; };
  EXPECT_EQ(f.C_Initialize(&strange), CKR_ARGUMENTS_BAD)
      << "some functions for locks without others";
  strange.UnlockMutex = strange.DestroyMutex = strange.LockMutex;
  strange.CreateMutex = [](void **) { return CK_RV{CKR_OK}; };
  EXPECT_EQ(f.C_Initialize(&strange), CKR_OK);
  EXPECT_EQ(f.C_CloseSession(session), CKR_SESSION_HANDLE_INVALID);
}

// Even if our calls fail in OpenSSL. A mark that the program set stays too.
TEST_F(TokenUser, LeavesTheProgramsErrorsAlone) {
  CK_MECHANISM given{CKM_RSA_PKCS, nullptr, 0};
  Bytes block(256, 1);
  Bytes opened(256);
  CK_ULONG length = opened.size();
  ERR_clear_error();
  ERR_raise_data(ERR_LIB_EVP, EVP_R_DECODE_ERROR, "of the %s", "program");
  ERR_raise(ERR_LIB_SYS, ENOENT);
  ERR_set_mark();
  errno = EDOM;
  EXPECT_EQ(f.C_DecryptInit(session, &given, key(CKO_PRIVATE_KEY, rsa)), CKR_OK);
  EXPECT_EQ(f.C_Decrypt(session, block.data(), block.size(), opened.data(), &length),
            CKR_ENCRYPTED_DATA_INVALID);
  EXPECT_EQ(errno, EDOM);
  ERR_raise(ERR_LIB_EVP, EVP_R_DECODE_ERROR);
  EXPECT_EQ(ERR_pop_to_mark(), 1);
  EXPECT_EQ(ERR_clear_last_mark(), 0);
  const char *data = nullptr;
  int flags = 0;
  const unsigned long first = ERR_get_error_all(nullptr, nullptr, nullptr, &data, &flags);
  EXPECT_EQ(ERR_GET_REASON(first), EVP_R_DECODE_ERROR);
  EXPECT_STREQ(data, "of the program");
  EXPECT_EQ(ERR_GET_REASON(ERR_get_error()), ENOENT);
  EXPECT_EQ(ERR_get_error(), 0U);
}

TEST_F(TokenUser, WaitingEndsWithTheDriver) {
  CK_SLOT_ID slot = 0;
  CK_RV result = CKR_OK;
  EXPECT_EQ(f.C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr), CKR_NO_EVENT);
  std::thread waiting([&] { result = f.C_WaitForSlotEvent(0, &slot, nullptr); });
  EXPECT_EQ(f.C_Finalize(nullptr), CKR_OK);
  waiting.join();
  EXPECT_EQ(result, CKR_CRYPTOKI_NOT_INITIALIZED);
}

TEST_F(TokenUserWithSettings, WithoutThemNothingOfAnEd25519KeyIsShown) {
  use("");
  EXPECT_EQ(found({}).size(), 3 * (usualKeyCount - 1));
  card.insert({usualKeys()[ed25519]});
  EXPECT_EQ(found({}).size(), 0U);
  EXPECT_TRUE(hasReported("write showEd25519 true"));
}

TEST_F(TokenUserWithSettings, ThePinGoesWithRequestsUntilTheEndOfTheLogin) {
  use("pinMode = \"pass\"\nshowEd25519 = true\n");
  EXPECT_EQ(tokenFlags() & CKF_LOGIN_REQUIRED, CKF_LOGIN_REQUIRED);
  EXPECT_EQ(found({}).size(), 2 * usualKeyCount);
  EXPECT_EQ(loginWith(""), CKR_PIN_LEN_RANGE);
  EXPECT_EQ(loginWith(std::string(256, '1')), CKR_PIN_LEN_RANGE);
  EXPECT_EQ(loginWith("\xFF"), CKR_PIN_INVALID);
  ASSERT_EQ(loginWith(std::string(255, '1')), CKR_OK);
  EXPECT_EQ(f.C_CloseAllSessions(0), CKR_OK);
  session = opened();
  ASSERT_EQ(loginWith("1234"), CKR_OK);
  EXPECT_EQ(loginWith("1234"), CKR_USER_ALREADY_LOGGED_IN);
  const CK_OBJECT_HANDLE object = key(CKO_PRIVATE_KEY, p256);
  EXPECT_EQ(sign(object), CKR_OK);
  EXPECT_EQ(card.lastPin, "1234");
  EXPECT_EQ(f.C_Logout(session), CKR_OK);
  EXPECT_EQ(sign(object), CKR_KEY_HANDLE_INVALID);
  ASSERT_EQ(loginWith("1234"), CKR_OK);
  EXPECT_EQ(f.C_CloseSession(session), CKR_OK);
  session = opened();
  EXPECT_EQ(sign(object), CKR_KEY_HANDLE_INVALID);
  ASSERT_EQ(loginWith("1234"), CKR_OK);
  card.insert({usualKeys()[p521]});  // another holder's card
  EXPECT_EQ(found({}).size(), 2U);
  card.meanwhile = [&] { EXPECT_EQ(f.C_CloseSession(session), CKR_OK); };
  EXPECT_EQ(loginWith("1234"), CKR_SESSION_CLOSED);
  session = opened();
  EXPECT_EQ(found({}).size(), 2U);
}

TEST_F(TokenUserWithSettings, NoPinGoesAnywhereElse) {
  constexpr CK_FLAGS kLogin =
      CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED | CKF_PROTECTED_AUTHENTICATION_PATH;
  for (const auto &[settings, flags] :
       {std::pair("", CK_FLAGS{0}), std::pair("pinMode = \"protected\"\n", kLogin)}) {
    use(settings);
    EXPECT_EQ(tokenFlags(), CKF_TOKEN_INITIALIZED | CKF_RNG | CKF_WRITE_PROTECTED | flags);
    EXPECT_EQ(loginWith("1234"), CKR_OK);
    EXPECT_EQ(sign(key(CKO_PRIVATE_KEY, p256)), CKR_OK);
    EXPECT_EQ(card.lastPin, "");
  }
}

}  // namespace
}  // namespace driver
