// The PKCS #11 v2.40 functions for the module, the slot, the token and sessions.

#include <algorithm>
#include <span>
#include <string_view>

#include "base/UTF8.hpp"
#include "driver/Driver.hpp"
#include "driver/EntryPointGuard.hpp"
#include "driver/FunctionList.hpp"
#include "driver/Mechanisms.hpp"
#include "driver/Pkcs11.hpp"

namespace driver {
namespace {

// The only slot; it always exists.
constexpr CK_SLOT_ID kSlot = 0;

constexpr CK_ULONG kLongestPin = 255;
constexpr CK_VERSION kVersionOfOurs{0, 1};
constexpr std::string_view kMaker = "Keyferry";

// Fills a fixed-length text field, padded with blanks and without a terminating zero (PKCS #11
// v2.40, 4.1).
template <std::size_t Size>
void put(std::string_view text, unsigned char (&field)[Size]) {
  std::ranges::fill(field, static_cast<unsigned char>(' '));
  std::ranges::copy(text.substr(0, Size), field);
}

// Returns a list by the convention of PKCS #11: a null buffer queries the length.
template <typename T>
CK_RV giveList(std::span<const T> items, T *place, CK_ULONG *count) {
  if (count == nullptr) {
    return CKR_ARGUMENTS_BAD;
  }
  const bool isRoom = *count >= items.size();
  *count = items.size();
  if (place == nullptr) {
    return CKR_OK;
  }
  if (!isRoom) {
    return CKR_BUFFER_TOO_SMALL;
  }
  std::ranges::copy(items, place);
  return CKR_OK;
}

CK_FLAGS loginFlags(PinMode mode) {
  switch (mode) {
    case PinMode::none:
      return 0;
    case PinMode::pass:
      return CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED;
    case PinMode::atTheHolder:
      return CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED | CKF_PROTECTED_AUTHENTICATION_PATH;
  }
  return 0;
}

// True if the arguments are null, or have either all mutex functions or none (PKCS #11 v2.40, 5.4).
// The functions are not used, and other members are ignored.
bool areInitializeArgumentsGood(const CK_C_INITIALIZE_ARGS *arguments) {
  if (arguments == nullptr) {
    return true;
  }
  const int given =
      (arguments->CreateMutex != nullptr ? 1 : 0) + (arguments->DestroyMutex != nullptr ? 1 : 0) +
      (arguments->LockMutex != nullptr ? 1 : 0) + (arguments->UnlockMutex != nullptr ? 1 : 0);
  return given == 0 || given == 4;
}

CK_RV getInfo(CK_INFO *info) {
  if (info == nullptr) {
    return CKR_ARGUMENTS_BAD;
  }
  *info = {};
  info->cryptokiVersion = {CRYPTOKI_VERSION_MAJOR, CRYPTOKI_VERSION_MINOR};
  info->libraryVersion = kVersionOfOurs;
  put(kMaker, info->manufacturerID);
  put("Keyferry token driver", info->libraryDescription);
  return CKR_OK;
}

CK_RV getSlotList(Driver &driver, CK_BBOOL withToken, CK_SLOT_ID *list, CK_ULONG *count) {
  const bool isShown = withToken == CK_FALSE || driver.token.isPresent();
  return giveList(std::span(&kSlot, isShown ? 1 : 0), list, count);
}

CK_RV getSlotInfo(Driver &driver, CK_SLOT_ID slot, CK_SLOT_INFO *info) {
  if (slot != kSlot) {
    return CKR_SLOT_ID_INVALID;
  }
  if (info == nullptr) {
    return CKR_ARGUMENTS_BAD;
  }
  *info = {};
  // CKF_HW_SLOT, since systemd-cryptenroll skips software slots
  info->flags = CKF_REMOVABLE_DEVICE | CKF_HW_SLOT |
                (driver.token.isPresent() ? CK_FLAGS{CKF_TOKEN_PRESENT} : 0);
  info->firmwareVersion = kVersionOfOurs;
  put("Keyferry virtual card reader", info->slotDescription);
  put(kMaker, info->manufacturerID);
  return CKR_OK;
}

CK_RV getTokenInfo(Driver &driver, CK_SLOT_ID slot, CK_TOKEN_INFO *info) {
  if (slot != kSlot) {
    return CKR_SLOT_ID_INVALID;
  }
  if (info == nullptr) {
    return CKR_ARGUMENTS_BAD;
  }
  const auto card = driver.token.isPresent() ? driver.token.objects() : nullptr;
  if (!card) {
    return CKR_TOKEN_NOT_PRESENT;
  }
  const PinMode mode = driver.token.pinMode();
  *info = {};
  info->flags = CKF_TOKEN_INITIALIZED | CKF_RNG | CKF_WRITE_PROTECTED | loginFlags(mode);
  info->ulMaxSessionCount = CK_EFFECTIVELY_INFINITE;
  info->ulMaxRwSessionCount = CK_EFFECTIVELY_INFINITE;
  info->ulSessionCount = driver.sessions.count();
  info->ulRwSessionCount = driver.sessions.readWriteCount();
  info->ulMaxPinLen = mode == PinMode::none ? 0 : kLongestPin;
  info->ulMinPinLen = mode == PinMode::pass ? 1 : 0;
  info->ulTotalPublicMemory = CK_UNAVAILABLE_INFORMATION;
  info->ulFreePublicMemory = CK_UNAVAILABLE_INFORMATION;
  info->ulTotalPrivateMemory = CK_UNAVAILABLE_INFORMATION;
  info->ulFreePrivateMemory = CK_UNAVAILABLE_INFORMATION;
  info->firmwareVersion = kVersionOfOurs;
  put("Keyferry card", info->label);
  put(kMaker, info->manufacturerID);
  put("Remote card", info->model);
  put(card->serialNumber, info->serialNumber);
  put("", info->utcTime);
  return CKR_OK;
}

CK_RV getMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE *list, CK_ULONG *count) {
  if (slot != kSlot) {
    return CKR_SLOT_ID_INVALID;
  }
  std::vector<CK_MECHANISM_TYPE> types;
  for (const Mechanism &mechanism : mechanisms()) {
    types.push_back(mechanism.type);
  }
  return giveList(std::span<const CK_MECHANISM_TYPE>(types), list, count);
}

CK_RV getMechanismInfo(CK_SLOT_ID slot, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO *info) {
  const Mechanism *const mechanism = mechanismOf(type);
  if (slot != kSlot) {
    return CKR_SLOT_ID_INVALID;
  }
  if (info == nullptr) {
    return CKR_ARGUMENTS_BAD;
  }
  if (mechanism == nullptr) {
    return CKR_MECHANISM_INVALID;
  }
  *info = {mechanism->minBits, mechanism->maxBits, mechanism->flags};
  return CKR_OK;
}

CK_RV waitForSlotEvent(Driver &driver, CK_FLAGS flags, CK_SLOT_ID *slot) {
  if (slot == nullptr) {
    return CKR_ARGUMENTS_BAD;
  }
  const CK_RV result = driver.waitForSlotEvent(/*mayBlock=*/(flags & CKF_DONT_BLOCK) == 0);
  if (result == CKR_OK) {
    *slot = kSlot;
  }
  return result;
}

CK_RV openSession(Driver &driver, CK_SLOT_ID slot, CK_FLAGS flags, CK_SESSION_HANDLE *handle) {
  if (slot != kSlot) {
    return CKR_SLOT_ID_INVALID;
  }
  if (handle == nullptr) {
    return CKR_ARGUMENTS_BAD;
  }
  if ((flags & CKF_SERIAL_SESSION) == 0) {
    return CKR_SESSION_PARALLEL_NOT_SUPPORTED;
  }
  if (!driver.token.isPresent()) {
    return CKR_TOKEN_NOT_PRESENT;
  }
  *handle = driver.sessions.open(/*isReadWrite=*/(flags & CKF_RW_SESSION) != 0);
  return CKR_OK;
}

CK_RV closeAllSessions(Driver &driver, CK_SLOT_ID slot) {
  if (slot != kSlot) {
    return CKR_SLOT_ID_INVALID;
  }
  driver.closeAllSessions();
  return CKR_OK;
}

CK_RV getSessionInfo(Driver &driver, const Session &session, CK_SESSION_INFO *info) {
  if (info == nullptr) {
    return CKR_ARGUMENTS_BAD;
  }
  const bool isUser = driver.token.isLoggedIn();
  const CK_STATE readOnly = isUser ? CKS_RO_USER_FUNCTIONS : CKS_RO_PUBLIC_SESSION;
  const CK_STATE readWrite = isUser ? CKS_RW_USER_FUNCTIONS : CKS_RW_PUBLIC_SESSION;
  *info = {};
  info->slotID = kSlot;
  info->state = session.isReadWrite ? readWrite : readOnly;
  info->flags = CKF_SERIAL_SESSION | (session.isReadWrite ? CK_FLAGS{CKF_RW_SESSION} : 0);
  return CKR_OK;
}

CK_RV login(Driver &driver, CK_USER_TYPE user, const CK_BYTE *pin, CK_ULONG length) {
  if (user == CKU_CONTEXT_SPECIFIC) {
    return CKR_OPERATION_NOT_INITIALIZED;  // no key has CKA_ALWAYS_AUTHENTICATE
  }
  if (user != CKU_USER) {
    return CKR_USER_TYPE_INVALID;
  }
  if (driver.token.pinMode() != PinMode::pass) {
    return driver.logIn(SecretText());
  }
  if (pin == nullptr) {
    return CKR_ARGUMENTS_BAD;
  }
  if (length < 1 || length > kLongestPin) {
    return CKR_PIN_LEN_RANGE;
  }
  const ByteView characters(pin, length);
  return base::isUTF8(characters) ? driver.logIn(SecretText(base::textOf(characters)))
                                  : CK_RV{CKR_PIN_INVALID};
}

}  // namespace
}  // namespace driver

using driver::Driver;
using driver::guardEntryPoint;
using driver::ModuleState;
using driver::Session;

extern "C" {

CK_RV C_Initialize(void *arguments) {
  return guardEntryPoint("C_Initialize", [&] {
    return driver::areInitializeArgumentsGood(static_cast<const CK_C_INITIALIZE_ARGS *>(arguments))
               ? ModuleState::current().initialize()
               : CK_RV{CKR_ARGUMENTS_BAD};
  });
}

CK_RV C_Finalize(void *reserved) {
  return guardEntryPoint("C_Finalize", [&] {
    return reserved == nullptr ? ModuleState::current().finalize() : CK_RV{CKR_ARGUMENTS_BAD};
  });
}

CK_RV C_GetInfo(CK_INFO *info) {
  return guardEntryPoint("C_GetInfo", [&](Driver & /*driver*/) { return driver::getInfo(info); });
}

CK_RV C_GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID *list, CK_ULONG *count) {
  return guardEntryPoint("C_GetSlotList", [&](Driver &driver) {
    return driver::getSlotList(driver, tokenPresent, list, count);
  });
}

CK_RV C_GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO *info) {
  return guardEntryPoint("C_GetSlotInfo",
                         [&](Driver &driver) { return driver::getSlotInfo(driver, slot, info); });
}

CK_RV C_GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO *info) {
  return guardEntryPoint("C_GetTokenInfo",
                         [&](Driver &driver) { return driver::getTokenInfo(driver, slot, info); });
}

CK_RV C_WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID *slot, void * /*reserved*/) {
  return guardEntryPoint("C_WaitForSlotEvent", [&](Driver &driver) {
    return driver::waitForSlotEvent(driver, flags, slot);
  });
}

CK_RV C_GetMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE *list, CK_ULONG *count) {
  return guardEntryPoint("C_GetMechanismList", [&](Driver & /*driver*/) {
    return driver::getMechanismList(slot, list, count);
  });
}

CK_RV C_GetMechanismInfo(CK_SLOT_ID slot, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO *info) {
  return guardEntryPoint("C_GetMechanismInfo", [&](Driver & /*driver*/) {
    return driver::getMechanismInfo(slot, type, info);
  });
}

CK_RV C_InitToken(CK_SLOT_ID slot, CK_BYTE * /*pin*/, CK_ULONG /*pinLength*/, CK_BYTE * /*label*/) {
  return guardEntryPoint("C_InitToken", [&](Driver & /*driver*/) {
    return slot == driver::kSlot ? CK_RV{CKR_TOKEN_WRITE_PROTECTED} : CK_RV{CKR_SLOT_ID_INVALID};
  });
}

CK_RV C_InitPIN(CK_SESSION_HANDLE session, CK_BYTE * /*pin*/, CK_ULONG /*length*/) {
  return driver::refuse("C_InitPIN", session, CKR_TOKEN_WRITE_PROTECTED);
}

CK_RV C_SetPIN(CK_SESSION_HANDLE session, CK_BYTE * /*oldPin*/, CK_ULONG /*oldLength*/,
               CK_BYTE * /*newPin*/, CK_ULONG /*newLength*/) {
  return driver::refuse("C_SetPIN", session, CKR_TOKEN_WRITE_PROTECTED);
}

CK_RV C_OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void * /*application*/, CK_NOTIFY /*notify*/,
                    CK_SESSION_HANDLE *session) {
  return guardEntryPoint("C_OpenSession", [&](Driver &driver) {
    return driver::openSession(driver, slot, flags, session);
  });
}

CK_RV C_CloseSession(CK_SESSION_HANDLE session) {
  return guardEntryPoint("C_CloseSession",
                         [&](Driver &driver) { return driver.closeSession(session); });
}

CK_RV C_CloseAllSessions(CK_SLOT_ID slot) {
  return guardEntryPoint("C_CloseAllSessions",
                         [&](Driver &driver) { return driver::closeAllSessions(driver, slot); });
}

CK_RV C_GetSessionInfo(CK_SESSION_HANDLE handle, CK_SESSION_INFO *info) {
  return guardEntryPoint("C_GetSessionInfo", handle, [&](Driver &driver, Session &session) {
    return driver::getSessionInfo(driver, session, info);
  });
}

CK_RV C_GetOperationState(CK_SESSION_HANDLE session, CK_BYTE * /*state*/, CK_ULONG * /*length*/) {
  return driver::refuse("C_GetOperationState", session, CKR_FUNCTION_NOT_SUPPORTED);
}

CK_RV C_SetOperationState(CK_SESSION_HANDLE session, CK_BYTE * /*state*/, CK_ULONG /*length*/,
                          CK_OBJECT_HANDLE /*encryptionKey*/,
                          CK_OBJECT_HANDLE /*authenticationKey*/) {
  return driver::refuse("C_SetOperationState", session, CKR_FUNCTION_NOT_SUPPORTED);
}

CK_RV C_Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_BYTE *pin, CK_ULONG length) {
  return guardEntryPoint("C_Login", session, [&](Driver &driver, Session & /*session*/) {
    return driver::login(driver, user, pin, length);
  });
}

CK_RV C_Logout(CK_SESSION_HANDLE session) {
  return guardEntryPoint("C_Logout", session, [](Driver &driver, Session & /*session*/) {
    return driver.token.logOut();
  });
}

CK_RV C_GetFunctionStatus(CK_SESSION_HANDLE session) {
  return driver::refuse("C_GetFunctionStatus", session, CKR_FUNCTION_NOT_PARALLEL);
}

CK_RV C_CancelFunction(CK_SESSION_HANDLE session) {
  return driver::refuse("C_CancelFunction", session, CKR_FUNCTION_NOT_PARALLEL);
}

}  // extern "C"
