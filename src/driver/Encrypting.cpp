#include "driver/Encrypting.hpp"

#include <algorithm>

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

}  // namespace driver
