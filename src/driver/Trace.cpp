#include "driver/Trace.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace driver {
namespace {

struct ResultName {
  CK_RV result;
  const char *name;
};

// The results that the driver returns.
constexpr std::array kNames{
    ResultName{CKR_OK, "CKR_OK"},
    ResultName{CKR_HOST_MEMORY, "CKR_HOST_MEMORY"},
    ResultName{CKR_SLOT_ID_INVALID, "CKR_SLOT_ID_INVALID"},
    ResultName{CKR_GENERAL_ERROR, "CKR_GENERAL_ERROR"},
    ResultName{CKR_FUNCTION_FAILED, "CKR_FUNCTION_FAILED"},
    ResultName{CKR_ARGUMENTS_BAD, "CKR_ARGUMENTS_BAD"},
    ResultName{CKR_NO_EVENT, "CKR_NO_EVENT"},
    ResultName{CKR_ATTRIBUTE_SENSITIVE, "CKR_ATTRIBUTE_SENSITIVE"},
    ResultName{CKR_ATTRIBUTE_TYPE_INVALID, "CKR_ATTRIBUTE_TYPE_INVALID"},
    ResultName{CKR_ATTRIBUTE_VALUE_INVALID, "CKR_ATTRIBUTE_VALUE_INVALID"},
    ResultName{CKR_DATA_LEN_RANGE, "CKR_DATA_LEN_RANGE"},
    ResultName{CKR_DEVICE_ERROR, "CKR_DEVICE_ERROR"},
    ResultName{CKR_DEVICE_REMOVED, "CKR_DEVICE_REMOVED"},
    ResultName{CKR_ENCRYPTED_DATA_INVALID, "CKR_ENCRYPTED_DATA_INVALID"},
    ResultName{CKR_ENCRYPTED_DATA_LEN_RANGE, "CKR_ENCRYPTED_DATA_LEN_RANGE"},
    ResultName{CKR_FUNCTION_NOT_PARALLEL, "CKR_FUNCTION_NOT_PARALLEL"},
    ResultName{CKR_FUNCTION_NOT_SUPPORTED, "CKR_FUNCTION_NOT_SUPPORTED"},
    ResultName{CKR_KEY_HANDLE_INVALID, "CKR_KEY_HANDLE_INVALID"},
    ResultName{CKR_KEY_TYPE_INCONSISTENT, "CKR_KEY_TYPE_INCONSISTENT"},
    ResultName{CKR_KEY_INDIGESTIBLE, "CKR_KEY_INDIGESTIBLE"},
    ResultName{CKR_KEY_FUNCTION_NOT_PERMITTED, "CKR_KEY_FUNCTION_NOT_PERMITTED"},
    ResultName{CKR_MECHANISM_INVALID, "CKR_MECHANISM_INVALID"},
    ResultName{CKR_MECHANISM_PARAM_INVALID, "CKR_MECHANISM_PARAM_INVALID"},
    ResultName{CKR_OBJECT_HANDLE_INVALID, "CKR_OBJECT_HANDLE_INVALID"},
    ResultName{CKR_OPERATION_ACTIVE, "CKR_OPERATION_ACTIVE"},
    ResultName{CKR_OPERATION_NOT_INITIALIZED, "CKR_OPERATION_NOT_INITIALIZED"},
    ResultName{CKR_PIN_INVALID, "CKR_PIN_INVALID"},
    ResultName{CKR_PIN_LEN_RANGE, "CKR_PIN_LEN_RANGE"},
    ResultName{CKR_SESSION_CLOSED, "CKR_SESSION_CLOSED"},
    ResultName{CKR_SESSION_HANDLE_INVALID, "CKR_SESSION_HANDLE_INVALID"},
    ResultName{CKR_SESSION_PARALLEL_NOT_SUPPORTED, "CKR_SESSION_PARALLEL_NOT_SUPPORTED"},
    ResultName{CKR_SIGNATURE_INVALID, "CKR_SIGNATURE_INVALID"},
    ResultName{CKR_SIGNATURE_LEN_RANGE, "CKR_SIGNATURE_LEN_RANGE"},
    ResultName{CKR_TEMPLATE_INCONSISTENT, "CKR_TEMPLATE_INCONSISTENT"},
    ResultName{CKR_TOKEN_NOT_PRESENT, "CKR_TOKEN_NOT_PRESENT"},
    ResultName{CKR_TOKEN_WRITE_PROTECTED, "CKR_TOKEN_WRITE_PROTECTED"},
    ResultName{CKR_USER_ALREADY_LOGGED_IN, "CKR_USER_ALREADY_LOGGED_IN"},
    ResultName{CKR_USER_NOT_LOGGED_IN, "CKR_USER_NOT_LOGGED_IN"},
    ResultName{CKR_USER_TYPE_INVALID, "CKR_USER_TYPE_INVALID"},
    ResultName{CKR_RANDOM_SEED_NOT_SUPPORTED, "CKR_RANDOM_SEED_NOT_SUPPORTED"},
    ResultName{CKR_BUFFER_TOO_SMALL, "CKR_BUFFER_TOO_SMALL"},
    ResultName{CKR_CRYPTOKI_NOT_INITIALIZED, "CKR_CRYPTOKI_NOT_INITIALIZED"},
    ResultName{CKR_CRYPTOKI_ALREADY_INITIALIZED, "CKR_CRYPTOKI_ALREADY_INITIALIZED"},
    ResultName{CKR_FUNCTION_REJECTED, "CKR_FUNCTION_REJECTED"},
};

// Not a guarded static: a child of a fork could wait for its guard forever.
bool isOn() {
  enum : char { unknown, off, on };
  static std::atomic<char> known{unknown};
  if (known == unknown) {
    const char *const text = ::secure_getenv("KFY_PKCS11_DEBUG");
    known = text != nullptr && std::string_view(text) == "1" ? on : off;
  }
  return known == on;
}

}  // namespace

void trace(const char *function, CK_RV result) {
  if (!isOn()) {
    return;
  }
  const auto *const row = std::ranges::find(kNames, result, &ResultName::result);
  std::array<char, 160> line{};
  const int length =
      row == kNames.end()
          ? std::snprintf(line.data(), line.size(), "kfy-pkcs11: %s: 0x%lx\n", function, result)
          : std::snprintf(line.data(), line.size(), "kfy-pkcs11: %s: %s\n", function, row->name);
  // A single write, so that lines of several threads don't mix. Errors are ignored.
  [[maybe_unused]] const ssize_t written =
      ::write(STDERR_FILENO, line.data(), static_cast<std::size_t>(length));
}

}  // namespace driver
