#include "linux/tokens/Token.hpp"

#include <p11-kit/uri.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

namespace platform_linux {
namespace {

// A signature of an RSA key of 16384 bits.
constexpr std::size_t kLongestResult = 2048;

// The answers by which a working token says that it does not give an attribute.
constexpr std::array kNoAttribute = {CKR_ATTRIBUTE_TYPE_INVALID, CKR_ATTRIBUTE_SENSITIVE,
                                     CKR_OBJECT_HANDLE_INVALID, CKR_BUFFER_TOO_SMALL};

// Nothing, with the answer in `result`, if the slot has no information about a token.
std::optional<CK_TOKEN_INFO> infoOf(const Module &module, CK_SLOT_ID slot, CK_RV &result) {
  CK_TOKEN_INFO info{};
  result = module.functions().C_GetTokenInfo(slot, &info);
  return result == CKR_OK ? std::optional(info) : std::nullopt;
}

bool saysThatNoneIsThere(CK_RV result) {
  return result == CKR_TOKEN_NOT_PRESENT || result == CKR_TOKEN_NOT_RECOGNIZED;
}

std::string uriOf(const CK_TOKEN_INFO &info) {
  const std::unique_ptr<P11KitUri, decltype(&p11_kit_uri_free)> uri(p11_kit_uri_new(),
                                                                    p11_kit_uri_free);
  if (!uri) {
    return "";
  }
  *p11_kit_uri_get_token_info(uri.get()) = info;
  char *text = nullptr;
  if (p11_kit_uri_format(uri.get(), P11_KIT_URI_FOR_TOKEN, &text) != P11_KIT_URI_OK) {
    return "";
  }
  const std::string result = text;
  std::free(text);  // NOLINT: p11-kit allocates so
  return result;
}

// The slots that hold a token, by their numbers: a module may list them in any order.
std::vector<CK_SLOT_ID> slotsOf(const Module &module, CK_RV &result) {
  CK_ULONG count = 0;
  result = module.functions().C_GetSlotList(CK_TRUE, nullptr, &count);
  std::vector<CK_SLOT_ID> slots(result == CKR_OK ? count : 0);
  if (result == CKR_OK) {
    result = module.functions().C_GetSlotList(CK_TRUE, slots.data(), &count);
  }
  if (result == CKR_BUFFER_TOO_SMALL) {
    result = CKR_OK;  // a slot has just been added; the next search finds all
    return {};
  }
  slots.resize(result == CKR_OK ? std::min<std::size_t>(count, slots.size()) : 0);
  std::ranges::sort(slots);
  return slots;
}

void addTokensOf(const std::shared_ptr<Module> &module, PresentTokens &present,
                 const Report &report) {
  const std::lock_guard lock(module->mutex);
  const auto failed = [&](const std::string &what, CK_RV result) {
    report(what + p11_kit_strerror(result));
    present.failure = present.failure == CKR_OK ? result : present.failure;
  };
  CK_RV result = CKR_OK;
  const auto slots = slotsOf(*module, result);
  if (result != CKR_OK) {
    failed("a PKCS #11 module does not list its slots: ", result);
  }
  for (const CK_SLOT_ID slot : slots) {
    const auto info = infoOf(*module, slot, result);
    if (!info && !saysThatNoneIsThere(result)) {
      failed("token in slot " + std::to_string(slot) + " left out: ", result);
    }
    if (!info || (info->flags & CKF_TOKEN_INITIALIZED) == 0) {
      continue;
    }
    std::string id = uriOf(*info);
    if (!id.empty() &&
        std::ranges::find(present.places, id, &TokenPlace::id) == present.places.end()) {
      present.places.push_back({module, slot, std::move(id)});
    }
  }
}

}  // namespace

PresentTokens presentTokens(const std::vector<std::shared_ptr<Module>> &modules,
                            const Report &report) {
  PresentTokens present;
  for (const auto &module : modules) {
    addTokensOf(module, present, report);
  }
  return present;
}

Token::~Token() {
  const std::lock_guard lock(mutex());
  close();
}

void Token::close() {
  if (session_ != CK_INVALID_HANDLE) {
    static_cast<void>(call().C_CloseSession(session_));
    session_ = CK_INVALID_HANDLE;
  }
}

CK_RV Token::open() {
  return call().C_OpenSession(place_.slot, CKF_SERIAL_SESSION, nullptr, nullptr, &session_);
}

void Token::note(CK_RV result) const {
  failure_ = failure_ == CKR_OK ? result : failure_;
}

std::optional<CK_TOKEN_INFO> Token::info() const {
  CK_RV result = CKR_OK;
  auto info = infoOf(*place_.module, place_.slot, result);
  note(result);
  return info;
}

bool Token::wantsLogin() const {
  const auto now = info();
  return now && (now->flags & CKF_LOGIN_REQUIRED) != 0;
}

bool Token::takesPIN() const {
  const auto now = info();
  return now && (now->flags & CKF_LOGIN_REQUIRED) != 0 &&
         (now->flags & CKF_USER_PIN_INITIALIZED) != 0 &&
         (now->flags & CKF_PROTECTED_AUTHENTICATION_PATH) == 0;
}

CK_RV Token::giveTo(CK_USER_TYPE user, const SecretText &pin) const {
  const std::string_view characters = pin.reveal();
  // the interface takes no constant PIN, and changes none
  auto *const bytes =
      reinterpret_cast<CK_UTF8CHAR *>(const_cast<char *>(characters.data()));  // NOLINT
  return call().C_Login(session_, user, bytes, characters.size());
}

CK_RV Token::login(const SecretText &pin) {
  const auto now = info();
  if (!now) {
    return takeFailure();
  }
  if ((now->flags & (CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_LOCKED)) != 0) {
    return CKR_PIN_LOCKED;
  }
  const CK_RV result = giveTo(CKU_USER, pin);
  // another search in this process may have logged in
  if (result != CKR_OK && result != CKR_USER_ALREADY_LOGGED_IN) {
    return result;
  }
  pin_ = std::make_unique<SecretText>(pin);
  return CKR_OK;
}

CK_RV Token::reopen() {
  close();
  CK_RV ignored = CKR_OK;
  const auto slots = slotsOf(*place_.module, ignored);
  const auto slot = std::ranges::find_if(slots, [&](CK_SLOT_ID candidate) {
    const auto there = infoOf(*place_.module, candidate, ignored);
    return there && uriOf(*there) == place_.id;
  });
  if (slot == slots.end()) {
    return CKR_TOKEN_NOT_PRESENT;
  }
  place_.slot = *slot;
  const CK_RV opened = open();
  const auto pin = std::move(pin_);
  return opened != CKR_OK || !pin ? opened : login(*pin);
}

std::vector<CK_OBJECT_HANDLE> Token::objects(CK_OBJECT_CLASS type, const Bytes *id) const {
  Bytes wanted = id == nullptr ? Bytes{} : *id;
  std::array<CK_ATTRIBUTE, 2> pattern{
      {{CKA_CLASS, &type, sizeof type}, {CKA_ID, wanted.data(), wanted.size()}}};
  std::vector<CK_OBJECT_HANDLE> found;
  CK_RV result = call().C_FindObjectsInit(session_, pattern.data(), id == nullptr ? 1 : 2);
  if (result != CKR_OK) {
    note(result);
    return found;
  }
  std::array<CK_OBJECT_HANDLE, 32> some{};
  CK_ULONG count = 0;
  while ((result = call().C_FindObjects(session_, some.data(), some.size(), &count)) == CKR_OK &&
         count > 0) {
    found.insert(found.end(), some.begin(), some.begin() + static_cast<std::ptrdiff_t>(count));
  }
  note(result);
  static_cast<void>(call().C_FindObjectsFinal(session_));
  return found;
}

Bytes Token::attribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const {
  CK_ATTRIBUTE attribute{type, nullptr, 0};
  const auto isRead = [&] {
    const CK_RV result = call().C_GetAttributeValue(session_, object, &attribute, 1);
    if (std::ranges::find(kNoAttribute, result) == kNoAttribute.end()) {
      note(result);
    }
    return result == CKR_OK && attribute.ulValueLen != CK_UNAVAILABLE_INFORMATION;
  };
  if (!isRead()) {
    return {};
  }
  Bytes value(attribute.ulValueLen);
  attribute.pValue = value.data();
  if (!isRead()) {
    return {};
  }
  value.resize(std::min<std::size_t>(attribute.ulValueLen, value.size()));
  return value;
}

bool Token::isSet(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const {
  const Bytes value = attribute(object, type);
  return value.size() == sizeof(CK_BBOOL) && value[0] != CK_FALSE;
}

CK_ULONG Token::number(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const {
  const Bytes value = attribute(object, type);
  CK_ULONG number = CK_UNAVAILABLE_INFORMATION;
  if (value.size() == sizeof number) {
    std::memcpy(&number, value.data(), sizeof number);
  }
  return number;
}

CK_RV Token::use(CK_OBJECT_HANDLE key, Use use, CK_MECHANISM_TYPE mechanism, ByteView data,
                 CleansedBytes &result) const {
  const bool signs = use == Use::sign;
  CK_MECHANISM chosen{mechanism, nullptr, 0};
  const CK_RV begun = (signs ? call().C_SignInit : call().C_DecryptInit)(session_, &chosen, key);
  if (begun != CKR_OK) {
    return begun;
  }
  if (pin_ && isSet(key, CKA_ALWAYS_AUTHENTICATE)) {
    if (const CK_RV again = giveTo(CKU_CONTEXT_SPECIFIC, *pin_); again != CKR_OK) {
      return again;
    }
  }
  CleansedBytes input(data.begin(), data.end());
  CleansedBytes output(kLongestResult);
  CK_ULONG length = output.size();
  const CK_RV done = (signs ? call().C_Sign : call().C_Decrypt)(
      session_, input.data(), input.size(), output.data(), &length);
  output.resize(done == CKR_OK ? std::min<std::size_t>(length, output.size()) : 0);
  result = std::move(output);
  return done;
}

}  // namespace platform_linux
