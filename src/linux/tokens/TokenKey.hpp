#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/Bytes.hpp"
#include "crypto/KeyOperations.hpp"
#include "linux/tokens/Token.hpp"

namespace platform_linux {

// A private key on a token, identified by its CKA_ID. It keeps the token's session, finds the key
// at its first use, and finds token and key once more if they were lost. Reports failures, but not
// the same one twice in a row.
class TokenKey : public crypto::KeyOperations {
 public:
  TokenKey(std::shared_ptr<Token> token, Bytes id, std::string label, Report report);

  [[nodiscard]] std::optional<Bytes> signPKCS1(ByteView data) override;
  [[nodiscard]] std::optional<Bytes> signBlock(ByteView block) override;
  [[nodiscard]] std::optional<SecretBytes> decryptBlock(ByteView block) override;
  [[nodiscard]] std::optional<Bytes> signECDSA(ByteView digest) override;

 private:
  [[nodiscard]] CK_RV find();
  [[nodiscard]] CK_RV once(Token::Use use, CK_MECHANISM_TYPE mechanism, ByteView data,
                           CleansedBytes &result);
  [[nodiscard]] std::optional<CleansedBytes> use(Token::Use use, CK_MECHANISM_TYPE mechanism,
                                                 ByteView data);
  [[nodiscard]] std::optional<Bytes> sign(CK_MECHANISM_TYPE mechanism, ByteView data);
  void reportOnce(CK_RV result);

  std::shared_ptr<Token> token_;
  Bytes id_;
  std::string label_;
  Report report_;
  CK_OBJECT_HANDLE handle_ = CK_INVALID_HANDLE;
  CK_RV lastReported_ = CKR_OK;
};

}  // namespace platform_linux
