#include "driver/Decrypting.hpp"

#include "crypto/Padding.hpp"
#include "driver/Token.hpp"

namespace driver {

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
