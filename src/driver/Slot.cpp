#include "driver/Slot.hpp"

#include <algorithm>
#include <span>
#include <string_view>

#include "base/UTF8.hpp"
#include "driver/Mechanisms.hpp"

namespace driver {
namespace {

constexpr CK_ULONG kLongestPin = 255;
constexpr CK_VERSION kVersionOfOurs{0, 1};
constexpr std::string_view kMaker = "Keyferry";

// A text of fixed length, blanks behind it and no zero (PKCS #11 v2.40, 4.1).
template <std::size_t Size>
void put(std::string_view text, unsigned char (&field)[Size]) {
  std::ranges::fill(field, static_cast<unsigned char>(' '));
  std::ranges::copy(text.substr(0, Size), field);
}

// Gives a list in the way of all lists: without a place its length alone.
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

}  // namespace

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
  // systemd-cryptenroll passes over slots of software
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
  *info = {mechanism->leastBits, mechanism->mostBits, mechanism->flags};
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
    return CKR_OPERATION_NOT_INITIALIZED;  // no key asks for it
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

}  // namespace driver
