// A program that calls the token's functions in any order, with any handles, templates, lengths and
// null pointers, gets answers.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "Expect.hpp"
#include "driver/FunctionList.hpp"
#include "driver/Process.hpp"
#include "fakes/FakeCard.hpp"

namespace {

// Choices and bytes from the input; zeros once it is used up.
class Choices {
 public:
  explicit Choices(ByteView input) : rest_(input) {}

  [[nodiscard]] bool isAtEnd() const { return rest_.empty(); }
  std::uint8_t byte() {
    const std::uint8_t value = rest_.empty() ? 0 : rest_.front();
    rest_ = rest_.subspan(rest_.empty() ? 0 : 1);
    return value;
  }
  std::size_t below(std::size_t count) { return byte() % count; }

  // A small number, at times one that no memory has.
  CK_ULONG number() {
    const std::uint8_t chosen = byte();
    return chosen == 255 ? CK_UNAVAILABLE_INFORMATION : chosen;
  }

  Bytes bytes() {
    const std::size_t wanted = below(2) == 0 ? byte() : 256;
    const std::size_t length = std::min(wanted, rest_.size());
    Bytes taken(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(length));
    rest_ = rest_.subspan(length);
    return taken;
  }

 private:
  ByteView rest_;
};

constexpr std::array<CK_ATTRIBUTE_TYPE, 16> kAttributes{CKA_CLASS,
                                                        CKA_TOKEN,
                                                        CKA_PRIVATE,
                                                        CKA_LABEL,
                                                        CKA_VALUE,
                                                        CKA_ID,
                                                        CKA_KEY_TYPE,
                                                        CKA_SIGN,
                                                        CKA_SENSITIVE,
                                                        CKA_MODULUS,
                                                        CKA_EC_POINT,
                                                        CKA_VALUE_LEN,
                                                        CKA_SUBJECT,
                                                        CKA_PRIVATE_EXPONENT,
                                                        CKA_ALLOWED_MECHANISMS,
                                                        CKA_VENDOR_DEFINED};

constexpr std::array<CK_MECHANISM_TYPE, 12> kMechanisms{
    CKM_RSA_PKCS, CKM_RSA_X_509,           CKM_SHA256_RSA_PKCS, CKM_RSA_PKCS_PSS,
    CKM_ECDSA,    CKM_SHA512_RSA_PKCS_PSS, CKM_RSA_PKCS_OAEP,   CKM_ECDSA_SHA256,
    CKM_EDDSA,    CKM_ECDH1_DERIVE,        CKM_SHA256,          CKM_AES_CBC};

// A program with one place for each kind of argument. Lengths that it names are never longer than
// its memory: nobody could check those.
class Program {
 public:
  explicit Program(ByteView input) : choices_(input) {}

  void run() {
    while (!choices_.isAtEnd()) {
      prepareArguments();
      if (choices_.below(3) == 0) {
        callWithObjects();
      } else {
        callWithKeys();
      }
      expect(length_ <= room_.size() || length_ <= 512);  // of answers and of questions for them
    }
  }

 private:
  using Functions = CK_FUNCTION_LIST;

  // Calls that are alike are rows of the same kind.
  static constexpr std::array kInits{&Functions::C_SignInit, &Functions::C_VerifyInit,
                                     &Functions::C_EncryptInit, &Functions::C_DecryptInit};
  static constexpr std::array kWholes{&Functions::C_Sign,          &Functions::C_Encrypt,
                                      &Functions::C_Decrypt,       &Functions::C_Digest,
                                      &Functions::C_EncryptUpdate, &Functions::C_DecryptUpdate};
  static constexpr std::array kUpdates{&Functions::C_SignUpdate, &Functions::C_VerifyUpdate,
                                       &Functions::C_DigestUpdate};
  static constexpr std::array kFinals{&Functions::C_SignFinal, &Functions::C_EncryptFinal,
                                      &Functions::C_DecryptFinal, &Functions::C_DigestFinal};

  template <typename Rows>
  auto oneOf(const Rows &rows) {
    return f_.*rows.at(choices_.below(rows.size()));
  }

  void callWithKeys() {
    switch (choices_.below(9)) {
      case 0:
        f_.C_DigestInit(session_, &mechanism_);
        break;
      case 1:
        f_.C_Verify(session_, input_, data_.size(), place_, room_.size());
        break;
      case 2:
        f_.C_VerifyFinal(session_, place_, room_.size());
        break;
      case 3:
        f_.C_DeriveKey(session_, &mechanism_, object_, template_.data(), count_, &derived_);
        break;
      case 4:
        oneOf(kUpdates)(session_, input_, data_.size());
        break;
      case 5:
        oneOf(kFinals)(session_, place_, lengthPlace_);
        break;
      case 6:
        oneOf(kWholes)(session_, input_, data_.size(), place_, lengthPlace_);
        break;
      default:
        oneOf(kInits)(session_, &mechanism_, object_);
        break;
    }
  }

  void callWithObjects() {
    static const auto content = fakes::CardInHand::instance().content;
    std::array<CK_OBJECT_HANDLE, 4> handles{};
    switch (choices_.below(10)) {
      case 0:
        fakes::CardInHand::instance().show(choices_.below(2) == 0 ? nullptr : content);
        break;
      case 1:
        f_.C_CloseSession(session_);
        break;
      case 2:
        f_.C_CloseAllSessions(0);
        break;
      case 3:
        f_.C_Login(session_, choices_.below(3), input_, data_.size());
        break;
      case 4:
        f_.C_FindObjectsInit(session_, template_.data(), count_);
        break;
      case 5:
        f_.C_FindObjects(session_, handles.data(), choices_.below(5), lengthPlace_);
        break;
      case 6:
        f_.C_FindObjectsFinal(session_);
        break;
      case 7:
        f_.C_DestroyObject(session_, object_);
        break;
      case 8:
        f_.C_GetAttributeValue(session_, object_, template_.data(), count_);
        break;
      default:
        f_.C_OpenSession(0, CKF_SERIAL_SESSION, nullptr, nullptr, &lastSession_);
        break;
    }
  }

  void prepareArguments() {
    session_ = choices_.below(4) == 0 ? choices_.number() : lastSession_;
    object_ = choices_.below(4) == 0 ? choices_.number() : 1 + choices_.below(16);
    data_ = choices_.bytes();
    input_ = choices_.below(8) == 0 ? nullptr : data_.data();
    room_.assign(choices_.below(3) == 0 ? choices_.byte() : 512, 0);
    place_ = choices_.below(4) == 0 ? nullptr : room_.data();
    length_ = room_.size();
    lengthPlace_ = choices_.below(16) == 0 ? nullptr : &length_;
    prepareMechanism();
    prepareTemplate();
  }

  void prepareMechanism() {
    pss_ = {kHash, choices_.byte(), choices_.number()};
    oaep_ = {kHash, choices_.byte(), CKZ_DATA_SPECIFIED, data_.data(), data_.size()};
    ecdh_ = {CKD_NULL, 0, nullptr, data_.size(), data_.data()};
    mechanism_ = {kMechanisms.at(choices_.below(kMechanisms.size())), nullptr, 0};
    switch (choices_.below(5)) {
      case 0:
        mechanism_.pParameter = &pss_;
        mechanism_.ulParameterLen = sizeof pss_;
        break;
      case 1:
        mechanism_.pParameter = &oaep_;
        mechanism_.ulParameterLen = sizeof oaep_;
        break;
      case 2:
        mechanism_.pParameter = &ecdh_;
        mechanism_.ulParameterLen = sizeof ecdh_;
        break;
      case 3:
        mechanism_.pParameter = data_.data();
        mechanism_.ulParameterLen = data_.size();
        break;
      default:
        break;
    }
  }

  void prepareTemplate() {
    count_ = choices_.below(4);
    for (std::size_t index = 0; index < count_; ++index) {
      values_.at(index) = choices_.bytes();
      const bool isNull = choices_.below(4) == 0;
      template_.at(index) = {kAttributes.at(choices_.below(kAttributes.size())),
                             isNull ? nullptr : values_.at(index).data(),
                             isNull ? choices_.number() : values_.at(index).size()};
    }
  }

  static constexpr CK_MECHANISM_TYPE kHash = CKM_SHA256;

  CK_FUNCTION_LIST &f_ = *driver::functionList();
  Choices choices_;
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
  std::array<Bytes, 4> values_;
  std::array<CK_ATTRIBUTE, 4> template_{};
  CK_ULONG count_ = 0;
  CK_OBJECT_HANDLE derived_ = CK_INVALID_HANDLE;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const bool isInserted = [] {
    ::setenv("KFYD_ROOT", "/nonexistent", /*overwrite=*/1);  // nothing goes to the machine's log
    driver::Process::useCardFactory(fakes::CardInHand::factory);
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
