#include "linux/tokens/TokenKey.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace platform_linux {
namespace {

// After these answers the token, its session or the key's handle may have to be found again.
constexpr std::array kLost = {
    CKR_SESSION_HANDLE_INVALID, CKR_SESSION_CLOSED,    CKR_DEVICE_REMOVED,
    CKR_DEVICE_ERROR,           CKR_TOKEN_NOT_PRESENT, CKR_KEY_HANDLE_INVALID,
    CKR_OBJECT_HANDLE_INVALID,  CKR_OPERATION_ACTIVE,  CKR_USER_NOT_LOGGED_IN};

}  // namespace

TokenKey::TokenKey(std::shared_ptr<Token> token, Bytes id, std::string label, Report report)
    : token_(std::move(token)),
      id_(std::move(id)),
      label_(std::move(label)),
      report_(std::move(report)) {}

CK_RV TokenKey::find() {
  static_cast<void>(token_->takeFailure());  // of another look-up
  const auto found = token_->objects(CKO_PRIVATE_KEY, &id_);
  if (const CK_RV failure = token_->takeFailure(); failure != CKR_OK) {
    return failure;
  }
  if (found.empty()) {
    return token_->wantsLogin() && !token_->isLoggedIn() ? CKR_USER_NOT_LOGGED_IN
                                                         : CKR_KEY_HANDLE_INVALID;
  }
  handle_ = found.front();
  return CKR_OK;
}

CK_RV TokenKey::once(Token::Use use, CK_MECHANISM_TYPE mechanism, ByteView data,
                     CleansedBytes &result) {
  if (handle_ == CK_INVALID_HANDLE) {
    if (const CK_RV found = find(); found != CKR_OK) {
      return found;
    }
  }
  return token_->use(handle_, use, mechanism, data, result);
}

std::optional<CleansedBytes> TokenKey::use(Token::Use use, CK_MECHANISM_TYPE mechanism,
                                           ByteView data) {
  const std::lock_guard lock(token_->mutex());
  CleansedBytes result;
  CK_RV outcome = once(use, mechanism, data, result);
  if (std::ranges::find(kLost, outcome) != kLost.end()) {
    handle_ = CK_INVALID_HANDLE;
    const CK_RV reopened = token_->reopen();
    outcome = reopened == CKR_OK ? once(use, mechanism, data, result) : reopened;
  }
  reportOnce(outcome);
  return outcome == CKR_OK ? std::optional(std::move(result)) : std::nullopt;
}

void TokenKey::reportOnce(CK_RV result) {
  if (result != CKR_OK && result != lastReported_) {
    report_("key \"" + label_ + "\" on token " + token_->id() +
            " does not work: " + p11_kit_strerror(result));
  }
  lastReported_ = result;
}

std::optional<Bytes> TokenKey::sign(CK_MECHANISM_TYPE mechanism, ByteView data) {
  const auto signature = use(Token::Use::sign, mechanism, data);
  return signature ? std::optional(Bytes(signature->begin(), signature->end())) : std::nullopt;
}

std::optional<Bytes> TokenKey::signPKCS1(ByteView data) {
  return sign(CKM_RSA_PKCS, data);
}

std::optional<Bytes> TokenKey::signBlock(ByteView block) {
  return sign(CKM_RSA_X_509, block);
}

std::optional<Bytes> TokenKey::signECDSA(ByteView digest) {
  return sign(CKM_ECDSA, digest);
}

std::optional<SecretBytes> TokenKey::decryptBlock(ByteView block) {
  auto result = use(Token::Use::decrypt, CKM_RSA_X_509, block);
  return result ? std::optional(SecretBytes(std::move(*result))) : std::nullopt;
}

}  // namespace platform_linux
