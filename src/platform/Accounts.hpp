#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "base/Secret.hpp"

namespace platform {

// The rights that this process has obtained.
class Authorization {
 public:
  virtual ~Authorization() = default;

  // Asks for a right. Returns 0 if it is granted, otherwise the reason's number.
  [[nodiscard]] virtual std::int32_t copyRight(std::string_view right, std::uint32_t flags) = 0;
};

// The class of accounts for logins of people or services, as opposed to system accounts.
inline constexpr int kUserClass = 1;

// One account whose password can be set.
class AccountIdentity {
 public:
  virtual ~AccountIdentity() = default;

  [[nodiscard]] virtual int accountClass() const = 0;

  // Takes the new password; nothing changes before commit().
  virtual void setPassword(const SecretText &password) = 0;

  // Makes the change, with an administrator's authorization. Blocks. True if it was made.
  [[nodiscard]] virtual bool commit(const Authorization &authorization) = 0;
};

// The account services of this machine.
class Accounts {
 public:
  virtual ~Accounts() = default;

  // A new authorization without rights; null with a status other than 0 if that is not possible.
  [[nodiscard]] virtual std::unique_ptr<Authorization> createAuthorization(
      std::int32_t &status) = 0;

  // The account with exactly this name; null if there is none.
  [[nodiscard]] virtual std::unique_ptr<AccountIdentity> identityWithName(
      const std::string &name) = 0;
};

}  // namespace platform
