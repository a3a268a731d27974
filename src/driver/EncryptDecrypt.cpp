#include "driver/EncryptDecrypt.hpp"

#include <algorithm>

#include "crypto/Padding.hpp"
#include "driver/Token.hpp"

namespace driver {

Progress Encrypting::add(ByteView part) {
  if (part.size() > use_.key().sizeInBytes() - data_.size()) {
    return {CKR_DATA_LEN_RANGE};
  }
  data_.insert(data_.end(), part.begin(), part.end());
  return {CKR_OK, /*isOver=*/false};
}

std::optional<Bytes> Encrypting::encrypted() const {
  if (use_.scheme() == Scheme::rsaPKCS1) {
    return crypto::encryptPKCS1(use_.key(), data_);
  }
  if (use_.scheme() == Scheme::rsaOAEP) {
    return crypto::encryptOAEP(use_.key(), data_, use_.parameters.oaep);
  }
  CleansedBytes block(use_.key().sizeInBytes());
  std::ranges::copy(data_, block.end() - static_cast<std::ptrdiff_t>(data_.size()));
  return crypto::encryptBlock(use_.key(), block);
}

Progress Encrypting::finish(ByteView lastPart, const Output &output) {
  if (const auto ended = output.withoutRoomFor(use_.key().sizeInBytes())) {
    return *ended;
  }
  if (const Progress added = add(lastPart); added.result != CKR_OK) {
    return added;
  }
  const auto result = encrypted();
  return result ? output.put(*result) : Progress{CKR_DATA_LEN_RANGE};
}

Progress Decrypting::add(ByteView part) {
  if (result_ || part.size() > use_.key().sizeInBytes() - block_.size()) {
    return {CKR_ENCRYPTED_DATA_LEN_RANGE};
  }
  block_.insert(block_.end(), part.begin(), part.end());
  return {CKR_OK, /*isOver=*/false};
}

std::optional<SecretBytes> Decrypting::withoutPadding(ByteView block) const {
  const crypto::OAEPParameters &oaep = use_.parameters.oaep;
  if (use_.scheme() == Scheme::rsaPKCS1) {
    return crypto::unpadPKCS1(block);
  }
  if (use_.scheme() == Scheme::rsaOAEP) {
    return crypto::unpadOAEP(block, oaep.hash, oaep.maskHash, oaep.label);
  }
  return SecretBytes(block);
}

Progress Decrypting::finish(Token &token, ByteView lastPart, const Output &output) {
  if (result_) {
    return output.put(result_->reveal());
  }
  if (output.isEmpty()) {
    return output.withoutRoomFor(use_.key().sizeInBytes()).value_or(Progress{CKR_ARGUMENTS_BAD});
  }
  if (const Progress added = add(lastPart); added.result != CKR_OK) {
    return added;
  }
  if (block_.size() != use_.key().sizeInBytes()) {
    return {CKR_ENCRYPTED_DATA_LEN_RANGE};
  }
  SecretBytes answer;
  if (const CK_RV result = token.ask(KeyRequest::decrypt, *use_.object, block_, answer);
      result != CKR_OK) {
    return {result};
  }
  if (answer.reveal().size() != use_.key().sizeInBytes()) {
    return {CKR_DEVICE_ERROR};
  }
  result_ = withoutPadding(answer.reveal());
  return result_ ? output.put(result_->reveal()) : Progress{CKR_ENCRYPTED_DATA_INVALID};
}

}  // namespace driver
