#include "driver/OperationCalls.hpp"

#include <cstdlib>

namespace driver {

std::optional<ByteView> inputOf(const CK_BYTE *bytes, CK_ULONG length) {
  if (bytes == nullptr) {
    return length == 0 ? std::optional(ByteView()) : std::nullopt;
  }
  return ByteView(bytes, length);
}

Progress finishVerifying(Verifying &operation, ByteView message,
                         const std::optional<ByteView> &signature) {
  return signature ? operation.finish(message, *signature) : Progress{CKR_ARGUMENTS_BAD};
}

CK_RV beginDigest(Session &session, const CK_MECHANISM *mechanism) {
  if (mechanism == nullptr) {
    return CKR_ARGUMENTS_BAD;
  }
  const auto hash = hashOf(mechanism->mechanism);
  return hash ? session.digesting.begin(std::make_unique<crypto::RunningDigest>(*hash))
              : CK_RV{CKR_MECHANISM_INVALID};
}

Progress addToDigest(crypto::RunningDigest &digest, ByteView part) {
  digest.add(part);
  return {CKR_OK, /*isOver=*/false};
}

Progress finishDigest(crypto::RunningDigest &digest, ByteView lastPart, const Output &output) {
  if (const auto ended = output.withoutRoomFor(crypto::digestSize(digest.algorithm()))) {
    return *ended;
  }
  digest.add(lastPart);
  return output.put(digest.finish());
}

CK_RV generateRandom(CK_BYTE *place, CK_ULONG length) {
  if (place == nullptr) {
    return length == 0 ? CKR_OK : CKR_ARGUMENTS_BAD;
  }
  ::arc4random_buf(place, length);
  return CKR_OK;
}

}  // namespace driver
