#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"
#include "linux/tokens/Module.hpp"

namespace platform_linux {

// A token that is present in a slot.
struct TokenPlace {
  std::shared_ptr<Module> module;
  CK_SLOT_ID slot = 0;
  std::string id;  // a PKCS #11 URI: it names model, manufacturer, serial number and label
};

// The tokens that were found, and the first failure of a slot or module that may hold others.
struct PresentTokens {
  std::vector<TokenPlace> places;
  CK_RV failure = CKR_OK;
};

// The tokens in the modules' slots, by module and slot; each ID once. A slot that can't be asked is
// left out with a line; one without a token, or with an unknown card, is left out silently.
[[nodiscard]] PresentTokens presentTokens(const std::vector<std::shared_ptr<Module>> &modules,
                                          const Report &report);

// A token with one session, which is closed on destruction. Hold the module's mutex during each
// call.
class Token {
 public:
  explicit Token(TokenPlace place) : place_(std::move(place)) {}
  ~Token();
  Token(const Token &) = delete;
  Token &operator=(const Token &) = delete;

  [[nodiscard]] const std::string &id() const { return place_.id; }
  [[nodiscard]] std::mutex &mutex() const { return place_.module->mutex; }

  // Opens a read-only session.
  [[nodiscard]] CK_RV open();

  // True if the token hides private objects until a user logs in.
  [[nodiscard]] bool wantsLogin() const;
  [[nodiscard]] bool isLoggedIn() const { return pin_ != nullptr; }

  // True if it wants a PIN that a program can pass: it has no PIN pad of its own.
  [[nodiscard]] bool takesPIN() const;

  // Gives the PIN, once, and keeps it for reopen() and for keys that want it with each use. A token
  // that says that one more wrong PIN would lock it is not asked: CKR_PIN_LOCKED.
  [[nodiscard]] CK_RV login(const SecretText &pin);

  // Finds the token anew, in whichever slot of its module, opens a session and logs in if it was
  // logged in before. A PIN that is refused is not kept for another time.
  [[nodiscard]] CK_RV reopen();

  // The first failure of the look-ups below since the last call; CKR_OK if there was none. That an
  // object has no such attribute, or is gone, is no failure.
  [[nodiscard]] CK_RV takeFailure() const { return std::exchange(failure_, CKR_OK); }

  // Objects of a class, those with this CKA_ID only if one is given.
  [[nodiscard]] std::vector<CK_OBJECT_HANDLE> objects(CK_OBJECT_CLASS type,
                                                      const Bytes *id = nullptr) const;

  // The value of an attribute; empty if there is none.
  [[nodiscard]] Bytes attribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const;
  [[nodiscard]] bool isSet(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const;
  [[nodiscard]] CK_ULONG number(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const;

  // What a private key does.
  enum class Use { sign, decrypt };
  // Uses a private key with a mechanism without parameters; `result` is empty unless it is CKR_OK.
  [[nodiscard]] CK_RV use(CK_OBJECT_HANDLE key, Use use, CK_MECHANISM_TYPE mechanism, ByteView data,
                          CleansedBytes &result) const;

 private:
  void close();
  void note(CK_RV result) const;
  [[nodiscard]] std::optional<CK_TOKEN_INFO> info() const;
  [[nodiscard]] CK_RV giveTo(CK_USER_TYPE user, const SecretText &pin) const;
  [[nodiscard]] const CK_FUNCTION_LIST &call() const { return place_.module->functions(); }

  TokenPlace place_;
  CK_SESSION_HANDLE session_ = CK_INVALID_HANDLE;
  std::unique_ptr<SecretText> pin_;
  mutable CK_RV failure_ = CKR_OK;
};

}  // namespace platform_linux
