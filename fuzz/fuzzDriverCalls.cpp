// A program calls the token's functions in any order, with any handles, templates, lengths and null
// pointers.

#include <array>

#include "Expect.hpp"
#include "Input.hpp"
#include "driver/FunctionList.hpp"
#include "driver/ModuleState.hpp"
#include "fakes/FakeCard.hpp"

namespace {

constexpr std::array<CK_ATTRIBUTE_TYPE, 16> kAttributeTypes{
    CKA_CLASS,          CKA_TOKEN,
    CKA_PRIVATE,        CKA_LABEL,
    CKA_VALUE,          CKA_ID,
    CKA_KEY_TYPE,       CKA_SIGN,
    CKA_SENSITIVE,      CKA_MODULUS,
    CKA_EC_POINT,       CKA_VALUE_LEN,
    CKA_SUBJECT,        CKA_PRIVATE_EXPONENT,
    CKA_VENDOR_DEFINED, CKA_ALLOWED_MECHANISMS};

constexpr std::array<CK_MECHANISM_TYPE, 12> kMechanisms{
    CKM_RSA_PKCS, CKM_RSA_X_509,           CKM_SHA256_RSA_PKCS, CKM_RSA_PKCS_PSS,
    CKM_ECDSA,    CKM_SHA512_RSA_PKCS_PSS, CKM_RSA_PKCS_OAEP,   CKM_ECDSA_SHA256,
    CKM_EDDSA,    CKM_ECDH1_DERIVE,        CKM_SHA256,          CKM_AES_CBC};

// A program with one variable for each kind of argument. Its lengths never exceed its buffers,
// since no driver could check that.
class Program {
 public:
  explicit Program(ByteView input) : choices_(input) {}

  void run() {
    while (!choices_.isAtEnd()) {
      prepareArguments();
      choices_.below(3) == 0 ? callWithObjects() : callWithKeys();
      expect(length_ <= room_.size() || length_ <= 512);  // of results and length queries
    }
  }

 private:
  using F = CK_FUNCTION_LIST;

  // Calls with the same kind of arguments share a table.
  static constexpr std::array kInits{&F::C_SignInit, &F::C_VerifyInit, &F::C_EncryptInit,
                                     &F::C_DecryptInit};
  static constexpr std::array kWholes{&F::C_Sign,   &F::C_Encrypt,       &F::C_Decrypt,
                                      &F::C_Digest, &F::C_EncryptUpdate, &F::C_DecryptUpdate};
  static constexpr std::array kUpdates{&F::C_SignUpdate, &F::C_VerifyUpdate, &F::C_DigestUpdate};
  static constexpr std::array kFinals{&F::C_SignFinal, &F::C_EncryptFinal, &F::C_DecryptFinal,
                                      &F::C_DigestFinal};

  // Performs one of the calls.
  template <typename... Calls>
  void oneCallOf(const Calls &...calls) {
    std::size_t left = choices_.below(sizeof...(calls));
    ((left-- == 0 ? calls() : void()), ...);
  }

  // A small number, sometimes a huge one.
  CK_ULONG number() {
    const std::uint8_t chosen = choices_.byte();
    return chosen == 255 ? CK_UNAVAILABLE_INFORMATION : chosen;
  }

  Bytes bytes() {
    const ByteView taken = choices_.take(choices_.below(2) == 0 ? choices_.byte() : 256);
    return {taken.begin(), taken.end()};
  }

  void callWithKeys() {
    const auto init = [&] { (f_.*choices_.oneOf(kInits))(session_, &mechanism_, object_); };
    oneCallOf([&] { f_.C_DigestInit(session_, &mechanism_); },
              [&] { f_.C_Verify(session_, input_, data_.size(), place_, room_.size()); },
              [&] { f_.C_VerifyFinal(session_, place_, room_.size()); },
              [&] { f_.C_DeriveKey(session_, &mechanism_, object_, template_, count_, &derived_); },
              [&] { (f_.*choices_.oneOf(kUpdates))(session_, input_, data_.size()); },
              [&] { (f_.*choices_.oneOf(kFinals))(session_, place_, lengthPlace_); },
              [&] {
                (f_.*choices_.oneOf(kWholes))(session_, input_, data_.size(), place_, lengthPlace_);
              },
              init, init);  // twice as often as others, since everything begins with it
  }

  void callWithObjects() {
    static const auto content = fakes::CardInHand::instance().content;
    CK_OBJECT_HANDLE handles[4] = {};
    oneCallOf(
        [&] { fakes::CardInHand::instance().show(choices_.below(2) == 0 ? nullptr : content); },
        [&] { f_.C_CloseSession(session_); }, [&] { f_.C_CloseAllSessions(0); },
        [&] { f_.C_Login(session_, choices_.below(3), input_, data_.size()); },
        [&] { f_.C_FindObjectsInit(session_, template_, count_); },
        [&] { f_.C_FindObjects(session_, handles, choices_.below(5), lengthPlace_); },
        [&] { f_.C_FindObjectsFinal(session_); }, [&] { f_.C_DestroyObject(session_, object_); },
        [&] { f_.C_GetAttributeValue(session_, object_, template_, count_); },
        [&] { f_.C_OpenSession(0, CKF_SERIAL_SESSION, nullptr, nullptr, &lastSession_); });
  }

  void prepareArguments() {
    session_ = choices_.below(4) == 0 ? number() : lastSession_;
    object_ = choices_.below(4) == 0 ? number() : 1 + choices_.below(16);
    data_ = bytes();
    input_ = choices_.below(8) == 0 ? nullptr : data_.data();
    room_.assign(choices_.below(3) == 0 ? choices_.byte() : 512, 0);
    place_ = choices_.below(4) == 0 ? nullptr : room_.data();
    length_ = room_.size();
    lengthPlace_ = choices_.below(16) == 0 ? nullptr : &length_;
    prepareMechanism();
    prepareTemplate();
  }

  void prepareMechanism() {
    pss_ = {kHash, choices_.byte(), number()};
    oaep_ = {kHash, choices_.byte(), CKZ_DATA_SPECIFIED, data_.data(), data_.size()};
    ecdh_ = {CKD_NULL, 0, nullptr, data_.size(), data_.data()};
    const CK_MECHANISM_TYPE type = choices_.oneOf(kMechanisms);
    const std::pair<void *, std::size_t> kParameters[] = {{&pss_, sizeof pss_},
                                                          {&oaep_, sizeof oaep_},
                                                          {&ecdh_, sizeof ecdh_},
                                                          {data_.data(), data_.size()},
                                                          {nullptr, 0}};
    const auto &[parameter, length] = choices_.oneOf(kParameters);
    mechanism_ = {type, parameter, length};
  }

  void prepareTemplate() {
    count_ = choices_.below(4);
    for (std::size_t index = 0; index < count_; ++index) {
      Bytes &value = values_[index] = bytes();
      const bool isNull = choices_.below(4) == 0;
      template_[index] = {choices_.oneOf(kAttributeTypes), isNull ? nullptr : value.data(),
                          isNull ? number() : value.size()};
    }
  }

  static constexpr CK_MECHANISM_TYPE kHash = CKM_SHA256;

  CK_FUNCTION_LIST &f_ = *driver::functionList();
  Input choices_;
  CK_SESSION_HANDLE lastSession_ = CK_INVALID_HANDLE;
  CK_SESSION_HANDLE session_ = CK_INVALID_HANDLE;
  CK_OBJECT_HANDLE object_ = CK_INVALID_HANDLE;
  Bytes data_;
  CK_BYTE *input_ = nullptr;
  Bytes room_;
  CK_BYTE *place_ = nullptr;
  CK_ULONG length_ = 0;
  CK_ULONG *lengthPlace_ = nullptr;
  CK_RSA_PKCS_PSS_PARAMS pss_{};
  CK_RSA_PKCS_OAEP_PARAMS oaep_{};
  CK_ECDH1_DERIVE_PARAMS ecdh_{};
  CK_MECHANISM mechanism_{};
  Bytes values_[4];
  CK_ATTRIBUTE template_[4] = {};
  CK_ULONG count_ = 0;
  CK_OBJECT_HANDLE derived_ = CK_INVALID_HANDLE;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const bool isInserted = [] {
    // the root does not exist, so nothing is written to the machine's log
    ::setenv("KFYD_ROOT", "/dev/null/root", /*overwrite=*/1);
    driver::ModuleState::useCardFactory(fakes::CardInHand::factory);
    fakes::CardInHand::instance().insert(
        {*crypto::PrivateKey::generateRSA(1024), fakes::madeKey("EC"), fakes::madeKey("ED25519")});
    return true;
  }();
  CK_FUNCTION_LIST &f = *driver::functionList();
  expect(isInserted && f.C_Initialize(nullptr) == CKR_OK);
  Program({data, size}).run();
  expect(f.C_Finalize(nullptr) == CKR_OK);
  return 0;
}
