#include "driver/EncryptDecrypt.hpp"

#include <algorithm>

#include "crypto/Padding.hpp"
#include "driver/CardToken.hpp"

namespace driver {

Progress EncryptOperation::add(ByteView part) {
  if (part.size() > key_.publicKey().sizeInBytes() - data_.size()) {
    return {CKR_DATA_LEN_RANGE};
  }
  data_.insert(data_.end(), part.begin(), part.end());
  return {CKR_OK, /*isOver=*/false};
}

std::optional<Bytes> EncryptOperation::encrypted() const {
  if (key_.scheme() == Scheme::rsaPKCS1) {
    return crypto::encryptPKCS1(key_.publicKey(), data_);
  }
  if (key_.scheme() == Scheme::rsaOAEP) {
    return crypto::encryptOAEP(key_.publicKey(), data_, key_.parameters.oaep);
  }
  CleansedBytes block(key_.publicKey().sizeInBytes());
  std::ranges::copy(data_, block.end() - static_cast<std::ptrdiff_t>(data_.size()));
  return crypto::encryptBlock(key_.publicKey(), block);
}

Progress EncryptOperation::finish(ByteView lastPart, const OutputBuffer &output) {
  if (const auto ended = output.checkRoomFor(key_.publicKey().sizeInBytes())) {
    return *ended;
  }
  if (const Progress added = add(lastPart); added.result != CKR_OK) {
    return added;
  }
  const auto result = encrypted();
  return result ? output.put(*result) : Progress{CKR_DATA_LEN_RANGE};
}

Progress DecryptOperation::add(ByteView part) {
  if (result_ || part.size() > key_.publicKey().sizeInBytes() - block_.size()) {
    return {CKR_ENCRYPTED_DATA_LEN_RANGE};
  }
  block_.insert(block_.end(), part.begin(), part.end());
  return {CKR_OK, /*isOver=*/false};
}

std::optional<SecretBytes> DecryptOperation::withoutPadding(ByteView block) const {
  const crypto::OAEPParameters &oaep = key_.parameters.oaep;
  if (key_.scheme() == Scheme::rsaPKCS1) {
    return crypto::unpadPKCS1(block);
  }
  if (key_.scheme() == Scheme::rsaOAEP) {
    return crypto::unpadOAEP(block, oaep.hash, oaep.maskHash, oaep.label);
  }
  return SecretBytes(block);
}

Progress DecryptOperation::finish(CardToken &token, ByteView lastPart, const OutputBuffer &output) {
  if (result_) {
    return output.put(result_->reveal());
  }
  if (output.isEmpty()) {
    return output.checkRoomFor(key_.publicKey().sizeInBytes())
        .value_or(Progress{CKR_ARGUMENTS_BAD});
  }
  if (const Progress added = add(lastPart); added.result != CKR_OK) {
    return added;
  }
  if (block_.size() != key_.publicKey().sizeInBytes()) {
    return {CKR_ENCRYPTED_DATA_LEN_RANGE};
  }
  SecretBytes answer;
  if (const CK_RV result = token.request(CardOperation::decrypt, *key_.object, block_, answer);
      result != CKR_OK) {
    return {result};
  }
  if (answer.reveal().size() != key_.publicKey().sizeInBytes()) {
    return {CKR_DEVICE_ERROR};
  }
  result_ = withoutPadding(answer.reveal());
  return result_ ? output.put(result_->reveal()) : Progress{CKR_ENCRYPTED_DATA_INVALID};
}

}  // namespace driver
