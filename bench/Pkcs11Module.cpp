#include "Pkcs11Module.hpp"

#include <dlfcn.h>

#include <array>
#include <vector>

#include "Statistics.hpp"

namespace bench {
namespace {

void need(CK_RV result, const char *what) {
  check(result == CKR_OK, what);
}

// The first slot whose token is ready for use.
CK_SLOT_ID slotOf(CK_FUNCTION_LIST &functions) {
  CK_ULONG count = 0;
  need(functions.C_GetSlotList(CK_TRUE, nullptr, &count), "no list of slots");
  std::vector<CK_SLOT_ID> slots(count);
  need(functions.C_GetSlotList(CK_TRUE, slots.data(), &count), "no list of slots");
  for (const CK_SLOT_ID slot : slots) {
    CK_TOKEN_INFO info{};
    if (functions.C_GetTokenInfo(slot, &info) == CKR_OK &&
        (info.flags & CKF_TOKEN_INITIALIZED) != 0) {
      return slot;
    }
  }
  check(false, "no token");
  return 0;
}

}  // namespace

Pkcs11Module::Pkcs11Module(const std::string &path, std::string pin) : pin_(std::move(pin)) {
  void *const library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  check(library != nullptr, path.c_str());
  const auto list = reinterpret_cast<CK_C_GetFunctionList>(::dlsym(library, "C_GetFunctionList"));
  check(list != nullptr && list(&functions_) == CKR_OK, "no function list");
  CK_C_INITIALIZE_ARGS arguments{};
  arguments.flags = CKF_OS_LOCKING_OK;
  const CK_RV result = functions_->C_Initialize(&arguments);
  check(result == CKR_OK || result == CKR_CRYPTOKI_ALREADY_INITIALIZED, "C_Initialize");
}

Pkcs11Module::Signer::Signer(const Pkcs11Module &module) : functions_(*module.functions_) {
  need(
      functions_.C_OpenSession(slotOf(functions_), CKF_SERIAL_SESSION, nullptr, nullptr, &session_),
      "C_OpenSession");
  if (!module.pin_.empty()) {
    std::string pin = module.pin_;
    const CK_RV result = functions_.C_Login(
        session_, CKU_USER, reinterpret_cast<CK_UTF8CHAR *>(pin.data()), pin.size());
    check(result == CKR_OK || result == CKR_USER_ALREADY_LOGGED_IN, "C_Login");
  }
  CK_OBJECT_CLASS objectClass = CKO_PRIVATE_KEY;
  CK_ATTRIBUTE wanted{CKA_CLASS, &objectClass, sizeof objectClass};
  need(functions_.C_FindObjectsInit(session_, &wanted, 1), "C_FindObjectsInit");
  CK_ULONG count = 0;
  need(functions_.C_FindObjects(session_, &key_, 1, &count), "C_FindObjects");
  need(functions_.C_FindObjectsFinal(session_), "C_FindObjectsFinal");
  check(count == 1, "no key");
}

Pkcs11Module::Signer::~Signer() {
  (void)functions_.C_CloseSession(session_);
}

void Pkcs11Module::Signer::sign() {
  // RFC 8017 9.2, note 1; any digest will do.
  std::array<CK_BYTE, 51> data{0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                               0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
  std::array<CK_BYTE, 256> signature{};
  CK_ULONG length = signature.size();
  CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
  need(functions_.C_SignInit(session_, &mechanism, key_), "C_SignInit");
  need(functions_.C_Sign(session_, data.data(), data.size(), signature.data(), &length), "C_Sign");
  check(length == signature.size(), "a signature of another length");
}

}  // namespace bench
