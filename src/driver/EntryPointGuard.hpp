#pragma once

#include <cerrno>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "crypto/ErrorQueue.hpp"
#include "driver/Driver.hpp"
#include "driver/ModuleState.hpp"
#include "driver/OpenSSLContext.hpp"
#include "driver/Pkcs11.hpp"
#include "driver/Trace.hpp"

namespace driver {

// Restores the program's errno at the end of a call.
struct KeptErrorNumber {
  KeptErrorNumber() = default;
  ~KeptErrorNumber() { errno = value; }
  KeptErrorNumber(const KeptErrorNumber &) = delete;
  KeptErrorNumber &operator=(const KeptErrorNumber &) = delete;

  int value = errno;
};

// Runs `call` with the driver, if it is initialized.
template <typename Call>
[[nodiscard]] CK_RV withDriver(Call &&call) {
  const std::shared_ptr<Driver> driver = ModuleState::current().driver();
  if (!driver || crypto::libraryHasEnded()) {
    return CKR_CRYPTOKI_NOT_INITIALIZED;
  }
  return std::forward<Call>(call)(*driver);
}

// Every entry point of the module runs in this guard. `call` takes no argument, the Driver, or
// (with a handle) the Driver and the Session. No exception leaves it, and the program's errno and
// OpenSSL error queue are unchanged afterwards.
template <typename Call>
[[nodiscard]] CK_RV guardEntryPoint(const char *function, Call &&call) noexcept {
  const KeptErrorNumber keptErrorNumber;
  CK_RV result = CKR_GENERAL_ERROR;
  try {
    prepareThread();
    const crypto::KeptErrorQueue keptErrorQueue;
    if constexpr (std::is_invocable_v<Call, Driver &>) {
      result = withDriver(std::forward<Call>(call));
    } else {
      result = std::forward<Call>(call)();
    }
    trace(function, result);
  } catch (const std::bad_alloc &) {
    result = CKR_HOST_MEMORY;
  } catch (...) {
    result = CKR_GENERAL_ERROR;
  }
  return result;
}

template <typename Call>
[[nodiscard]] CK_RV guardEntryPoint(const char *function, CK_SESSION_HANDLE handle,
                                    const Call &call) noexcept {
  return guardEntryPoint(function, [&](Driver &driver) {
    const std::shared_ptr<Session> session = driver.sessions.find(handle);
    return session ? call(driver, *session) : CK_RV{CKR_SESSION_HANDLE_INVALID};
  });
}

// Implements a function that the token does not support.
[[nodiscard]] inline CK_RV refuse(const char *function, CK_SESSION_HANDLE handle,
                                  CK_RV reason) noexcept {
  return guardEntryPoint(function, handle,
                         [&](Driver & /*driver*/, Session & /*session*/) { return reason; });
}

}  // namespace driver
