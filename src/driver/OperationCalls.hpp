#pragma once

#include <memory>

#include "driver/Driver.hpp"
#include "driver/KeyUse.hpp"
#include "driver/Output.hpp"
#include "driver/Pkcs11.hpp"

namespace driver {

// The bytes that a program points to; nothing if it points nowhere, but says that there are some.
[[nodiscard]] std::optional<ByteView> inputOf(const CK_BYTE *bytes, CK_ULONG length);

// An …Init function: puts a new operation at its place in the session, unless one is active there.
template <typename T>
[[nodiscard]] CK_RV begin(Driver &driver, OperationPlace<T> &place, const CK_MECHANISM *mechanism,
                          CK_OBJECT_HANDLE key, CK_FLAGS purpose) {
  if (place.isActive()) {
    return CKR_OPERATION_ACTIVE;
  }
  KeyUse use;
  const CK_RV result = prepare(driver, mechanism, key, purpose, use);
  return result == CKR_OK ? place.begin(std::make_unique<T>(std::move(use))) : result;
}

// A step of an operation that gets input: `step` takes the operation and the bytes.
template <typename T, typename Step>
[[nodiscard]] CK_RV proceed(OperationPlace<T> &place, Input form, const CK_BYTE *bytes,
                            CK_ULONG length, const Step &step) {
  return place.proceed(form, [&](T &operation) -> Progress {
    const auto input = inputOf(bytes, length);
    return input ? step(operation, *input) : Progress{CKR_ARGUMENTS_BAD};
  });
}

// An …Update function that gives nothing out, though it could.
template <typename T>
[[nodiscard]] CK_RV addPart(OperationPlace<T> &place, const CK_BYTE *bytes, CK_ULONG length,
                            CK_ULONG *given) {
  return proceed(place, Input::inParts, bytes, length,
                 [&](T &operation, ByteView part) -> Progress {
                   if (given == nullptr) {
                     return {CKR_ARGUMENTS_BAD};
                   }
                   *given = 0;
                   return operation.add(part);
                 });
}

// C_Verify; a signature that is nowhere ends the operation.
[[nodiscard]] Progress finishVerifying(Verifying &operation, ByteView message,
                                       const std::optional<ByteView> &signature);

// C_DigestInit, C_DigestUpdate, and C_Digest and C_DigestFinal, with all of the data as the last
// part.
[[nodiscard]] CK_RV beginDigest(Session &session, const CK_MECHANISM *mechanism);
[[nodiscard]] Progress addToDigest(crypto::RunningDigest &digest, ByteView part);
[[nodiscard]] Progress finishDigest(crypto::RunningDigest &digest, ByteView lastPart,
                                    const Output &output);

// C_GenerateRandom.
[[nodiscard]] CK_RV generateRandom(CK_BYTE *place, CK_ULONG length);

}  // namespace driver
