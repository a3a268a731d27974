#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "base/Secret.hpp"

namespace platform {

// What a process is allowed, as far as it has asked for it.
class Authorization {
 public:
  virtual ~Authorization() = default;

  // Asks for a right. 0 if it is granted, else why not.
  [[nodiscard]] virtual std::int32_t copyRight(std::string_view right, std::uint32_t flags) = 0;
};

// The class of an account that a person or a service logs in to, rather than one that the system
// keeps for itself.
inline constexpr int kUserClass = 1;

// One account whose password can be set.
class AccountIdentity {
 public:
  virtual ~AccountIdentity() = default;

  [[nodiscard]] virtual int accountClass() const = 0;

  // Takes the new password; nothing changes before commit().
  virtual void setPassword(const SecretText &password) = 0;

  // Makes the change, with the authorization of an administrator. Blocks. True if it is made.
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
