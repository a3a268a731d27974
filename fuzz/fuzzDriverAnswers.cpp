// The answers of a hostile daemon: each line of the input is a chunk from it. The harness reads all
// objects of the card, uses each key, and checks what a program gets.

#include <array>
#include <sstream>

#include "Expect.hpp"
#include "driver/CardCache.hpp"
#include "driver/FunctionList.hpp"
#include "driver/ModuleState.hpp"
#include "fakes/FakeCard.hpp"
#include "protocol/Frame.hpp"

namespace {

// The daemon's answer to the next request.
driver::RequestResult nextUse;

class AnsweredCard final : public fakes::FakeCard {
  driver::RequestResult sign(const driver::CardIdentity &, ByteView, const SecretText &) override {
    return nextUse;
  }
  driver::RequestResult decrypt(const driver::CardIdentity &, ByteView,
                                const SecretText &) override {
    return nextUse;
  }
};

constexpr std::array<CK_ATTRIBUTE_TYPE, 12> kAttributes{
    CKA_LABEL,    CKA_VALUE, CKA_ISSUER,  CKA_SERIAL_NUMBER,   CKA_SUBJECT,   CKA_ID,
    CKA_KEY_TYPE, CKA_SIGN,  CKA_MODULUS, CKA_PUBLIC_EXPONENT, CKA_EC_PARAMS, CKA_EC_POINT};

class Program {
 public:
  void run() {
    CK_ULONG count = 0;
    if (f_.C_OpenSession(0, CKF_SERIAL_SESSION, nullptr, nullptr, &session_) != CKR_OK) {
      return;  // no card
    }
    expect(f_.C_FindObjectsInit(session_, nullptr, 0) == CKR_OK &&
           f_.C_FindObjects(session_, objects_.data(), objects_.size(), &count) == CKR_OK);
    objects_.resize(count);
    for (const CK_OBJECT_HANDLE object : objects_) {
      std::ranges::for_each(kAttributes, [&](auto type) { readAttribute(object, type); });
      for (const CK_MECHANISM_TYPE type : {CKM_RSA_PKCS, CKM_ECDSA, CKM_EDDSA}) {
        CK_MECHANISM mechanism{type, nullptr, 0};
        sign(object, mechanism);
        decrypt(object, mechanism);
      }
    }
  }

 private:
  // Queries the length first, as programs do.
  void readAttribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
    CK_ATTRIBUTE wanted{type, nullptr, 0};
    if (f_.C_GetAttributeValue(session_, object, &wanted, 1) == CKR_OK) {
      Bytes value(wanted.ulValueLen);
      wanted.pValue = value.data();
      expect(f_.C_GetAttributeValue(session_, object, &wanted, 1) == CKR_OK &&
             wanted.ulValueLen == value.size());
    }
  }

  void sign(CK_OBJECT_HANDLE key, CK_MECHANISM &mechanism) {
    Bytes data(32, 7);
    Bytes room(4096);
    CK_ULONG length = room.size();
    if (f_.C_SignInit(session_, &mechanism, key) == CKR_OK &&
        f_.C_Sign(session_, data.data(), data.size(), room.data(), &length) == CKR_OK) {
      expect(std::ranges::any_of(objects_, [&](CK_OBJECT_HANDLE other) {
        return f_.C_VerifyInit(session_, &mechanism, other) == CKR_OK &&
               f_.C_Verify(session_, data.data(), data.size(), room.data(), length) == CKR_OK;
      }));
    }
  }

  void decrypt(CK_OBJECT_HANDLE key, CK_MECHANISM &mechanism) {
    Bytes room(4096);
    CK_ULONG length = 0;
    if (f_.C_DecryptInit(session_, &mechanism, key) == CKR_OK &&
        f_.C_Decrypt(session_, room.data(), 1, nullptr, &length) == CKR_OK &&
        length < room.size()) {
      Bytes data(length, 1);
      const CK_ULONG longest = length;
      (void)f_.C_Decrypt(session_, data.data(), data.size(), room.data(), &length);
      expect(length <= longest);
    }
  }

  CK_FUNCTION_LIST &f_ = *driver::functionList();
  CK_SESSION_HANDLE session_ = CK_INVALID_HANDLE;
  std::vector<CK_OBJECT_HANDLE> objects_ = std::vector<CK_OBJECT_HANDLE>(64);
};

void take(const QuillMessage &answer) {
  if (answer.certificates) {
    auto content = driver::cardContentOf(*answer.certificates);
    fakes::CardInHand::instance().show(
        content.empty() ? nullptr
                        : std::make_shared<const driver::CardContent>(std::move(content)));
  }
  const auto signature = SecretBytes(answer.signedData.value_or(Bytes()));
  nextUse = {driver::RequestOutcome::done, answer.decryptedData.value_or(signature)};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  // the root does not exist, so nothing is written to the machine's log
  ::setenv("KFYD_ROOT", "/dev/null/root", /*overwrite=*/1);
  driver::ModuleState::useCardFactory([](const driver::DriverSettings &, driver::Journal &) {
    return std::unique_ptr<driver::Card>(std::make_unique<AnsweredCard>());
  });
  nextUse = {};
  fakes::CardInHand::instance().show(nullptr);
  CleansedBytes frame;
  std::istringstream chunks(std::string(base::textOf({data, size})));
  for (std::string chunk; std::getline(chunks, chunk);) {
    const auto collected = protocol::collectChunk(frame, base::viewOf(chunk));
    if (collected.outcome == protocol::ChunkOutcome::frame) {
      if (const auto answer = QuillMessage::initWithJSONData(collected.payload)) {
        take(*answer);
      }
    }
  }
  CK_FUNCTION_LIST &f = *driver::functionList();
  expect(f.C_Initialize(nullptr) == CKR_OK);
  Program().run();
  expect(f.C_Finalize(nullptr) == CKR_OK);
  return 0;
}
