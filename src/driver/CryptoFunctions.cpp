// The cryptographic functions of PKCS #11 v2.40: encryption, decryption, digests, signatures and
// random numbers.

#include <cstdlib>
#include <memory>

#include "driver/Driver.hpp"
#include "driver/EntryPointGuard.hpp"
#include "driver/Operation.hpp"
#include "driver/OperationKey.hpp"
#include "driver/Pkcs11.hpp"

namespace driver {
namespace {

// The bytes of an input argument; nothing if the pointer is null but the length is not zero.
std::optional<ByteView> inputOf(const CK_BYTE *bytes, CK_ULONG length) {
  if (bytes == nullptr) {
    return length == 0 ? std::optional(ByteView()) : std::nullopt;
  }
  return ByteView(bytes, length);
}

// Implements the …Init functions: starts an operation in the session, unless one of that kind is
// active.
template <typename T>
CK_RV begin(Driver &driver, ActiveOperation<T> &place, const CK_MECHANISM *mechanism,
            CK_OBJECT_HANDLE handle, CK_FLAGS purpose) {
  if (place.isActive()) {
    return CKR_OPERATION_ACTIVE;
  }
  OperationKey key;
  const CK_RV result = prepareKey(driver, mechanism, handle, purpose, key);
  return result == CKR_OK ? place.begin(std::make_unique<T>(std::move(key))) : result;
}

// Runs a step of an operation with input: `step` takes the operation and the bytes.
template <typename T, typename Step>
CK_RV proceed(ActiveOperation<T> &place, PartMode form, const CK_BYTE *bytes, CK_ULONG length,
              const Step &step) {
  return place.proceed(form, [&](T &operation) -> Progress {
    const auto input = inputOf(bytes, length);
    return input ? step(operation, *input) : Progress{CKR_ARGUMENTS_BAD};
  });
}

// Implements the …Update functions that may return output but never do.
template <typename T>
CK_RV addPart(ActiveOperation<T> &place, const CK_BYTE *bytes, CK_ULONG length, CK_ULONG *given) {
  return proceed(place, PartMode::multiple, bytes, length,
                 [&](T &operation, ByteView part) -> Progress {
                   if (given == nullptr) {
                     return {CKR_ARGUMENTS_BAD};
                   }
                   *given = 0;
                   return operation.add(part);
                 });
}

// Implements C_Verify. An invalid signature pointer ends the operation.
Progress finishVerifying(VerifyOperation &operation, ByteView message,
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

Progress finishDigest(crypto::RunningDigest &digest, ByteView lastPart,
                      const OutputBuffer &output) {
  if (const auto ended = output.checkRoomFor(crypto::digestSize(digest.algorithm()))) {
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

}  // namespace
}  // namespace driver

using driver::Driver;
using driver::guardEntryPoint;
using driver::OutputBuffer;
using driver::PartMode;
using driver::Session;

extern "C" {

CK_RV C_EncryptInit(CK_SESSION_HANDLE handle, CK_MECHANISM *mechanism, CK_OBJECT_HANDLE key) {
  return guardEntryPoint("C_EncryptInit", handle, [&](Driver &driver, Session &session) {
    return driver::begin(driver, session.encrypting, mechanism, key, CKF_ENCRYPT);
  });
}

CK_RV C_Encrypt(CK_SESSION_HANDLE handle, CK_BYTE *data, CK_ULONG dataLength, CK_BYTE *place,
                CK_ULONG *length) {
  return guardEntryPoint("C_Encrypt", handle, [&](Driver & /*driver*/, Session &session) {
    return driver::proceed(session.encrypting, PartMode::single, data, dataLength,
                           [&](driver::EncryptOperation &operation, ByteView input) {
                             return operation.finish(input, OutputBuffer(place, length));
                           });
  });
}

CK_RV C_EncryptUpdate(CK_SESSION_HANDLE handle, CK_BYTE *part, CK_ULONG partLength,
                      CK_BYTE * /*place*/, CK_ULONG *length) {
  return guardEntryPoint("C_EncryptUpdate", handle, [&](Driver & /*driver*/, Session &session) {
    return driver::addPart(session.encrypting, part, partLength, length);
  });
}

CK_RV C_EncryptFinal(CK_SESSION_HANDLE handle, CK_BYTE *place, CK_ULONG *length) {
  return guardEntryPoint("C_EncryptFinal", handle, [&](Driver & /*driver*/, Session &session) {
    return session.encrypting.proceed(PartMode::multiple, [&](driver::EncryptOperation &operation) {
      return operation.finish({}, OutputBuffer(place, length));
    });
  });
}

CK_RV C_DecryptInit(CK_SESSION_HANDLE handle, CK_MECHANISM *mechanism, CK_OBJECT_HANDLE key) {
  return guardEntryPoint("C_DecryptInit", handle, [&](Driver &driver, Session &session) {
    return driver::begin(driver, session.decrypting, mechanism, key, CKF_DECRYPT);
  });
}

CK_RV C_Decrypt(CK_SESSION_HANDLE handle, CK_BYTE *data, CK_ULONG dataLength, CK_BYTE *place,
                CK_ULONG *length) {
  return guardEntryPoint("C_Decrypt", handle, [&](Driver &driver, Session &session) {
    return driver::proceed(session.decrypting, PartMode::single, data, dataLength,
                           [&](driver::DecryptOperation &operation, ByteView input) {
                             return operation.finish(driver.token, input,
                                                     OutputBuffer(place, length));
                           });
  });
}

CK_RV C_DecryptUpdate(CK_SESSION_HANDLE handle, CK_BYTE *part, CK_ULONG partLength,
                      CK_BYTE * /*place*/, CK_ULONG *length) {
  return guardEntryPoint("C_DecryptUpdate", handle, [&](Driver & /*driver*/, Session &session) {
    return driver::addPart(session.decrypting, part, partLength, length);
  });
}

CK_RV C_DecryptFinal(CK_SESSION_HANDLE handle, CK_BYTE *place, CK_ULONG *length) {
  return guardEntryPoint("C_DecryptFinal", handle, [&](Driver &driver, Session &session) {
    return session.decrypting.proceed(PartMode::multiple, [&](driver::DecryptOperation &operation) {
      return operation.finish(driver.token, {}, OutputBuffer(place, length));
    });
  });
}

CK_RV C_DigestInit(CK_SESSION_HANDLE handle, CK_MECHANISM *mechanism) {
  return guardEntryPoint("C_DigestInit", handle, [&](Driver & /*driver*/, Session &session) {
    return driver::beginDigest(session, mechanism);
  });
}

CK_RV C_Digest(CK_SESSION_HANDLE handle, CK_BYTE *data, CK_ULONG dataLength, CK_BYTE *place,
               CK_ULONG *length) {
  return guardEntryPoint("C_Digest", handle, [&](Driver & /*driver*/, Session &session) {
    return driver::proceed(session.digesting, PartMode::single, data, dataLength,
                           [&](crypto::RunningDigest &operation, ByteView input) {
                             return driver::finishDigest(operation, input,
                                                         OutputBuffer(place, length));
                           });
  });
}

CK_RV C_DigestUpdate(CK_SESSION_HANDLE handle, CK_BYTE *part, CK_ULONG partLength) {
  return guardEntryPoint("C_DigestUpdate", handle, [&](Driver & /*driver*/, Session &session) {
    return driver::proceed(session.digesting, PartMode::multiple, part, partLength,
                           driver::addToDigest);
  });
}

CK_RV C_DigestKey(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE /*key*/) {
  return driver::refuse("C_DigestKey", handle, CKR_KEY_INDIGESTIBLE);
}

CK_RV C_DigestFinal(CK_SESSION_HANDLE handle, CK_BYTE *place, CK_ULONG *length) {
  return guardEntryPoint("C_DigestFinal", handle, [&](Driver & /*driver*/, Session &session) {
    return session.digesting.proceed(PartMode::multiple, [&](crypto::RunningDigest &operation) {
      return driver::finishDigest(operation, {}, OutputBuffer(place, length));
    });
  });
}

CK_RV C_SignInit(CK_SESSION_HANDLE handle, CK_MECHANISM *mechanism, CK_OBJECT_HANDLE key) {
  return guardEntryPoint("C_SignInit", handle, [&](Driver &driver, Session &session) {
    return driver::begin(driver, session.signing, mechanism, key, CKF_SIGN);
  });
}

CK_RV C_Sign(CK_SESSION_HANDLE handle, CK_BYTE *data, CK_ULONG dataLength, CK_BYTE *place,
             CK_ULONG *length) {
  return guardEntryPoint("C_Sign", handle, [&](Driver &driver, Session &session) {
    return driver::proceed(session.signing, PartMode::single, data, dataLength,
                           [&](driver::SignOperation &operation, ByteView input) {
                             return operation.finish(driver.token, input,
                                                     OutputBuffer(place, length));
                           });
  });
}

CK_RV C_SignUpdate(CK_SESSION_HANDLE handle, CK_BYTE *part, CK_ULONG partLength) {
  return guardEntryPoint("C_SignUpdate", handle, [&](Driver & /*driver*/, Session &session) {
    return driver::proceed(
        session.signing, PartMode::multiple, part, partLength,
        [&](driver::SignOperation &operation, ByteView input) { return operation.add(input); });
  });
}

CK_RV C_SignFinal(CK_SESSION_HANDLE handle, CK_BYTE *place, CK_ULONG *length) {
  return guardEntryPoint("C_SignFinal", handle, [&](Driver &driver, Session &session) {
    return session.signing.proceed(PartMode::multiple, [&](driver::SignOperation &operation) {
      return operation.finish(driver.token, {}, OutputBuffer(place, length));
    });
  });
}

CK_RV C_SignRecoverInit(CK_SESSION_HANDLE handle, CK_MECHANISM * /*mechanism*/,
                        CK_OBJECT_HANDLE /*key*/) {
  return driver::refuse("C_SignRecoverInit", handle, CKR_FUNCTION_NOT_SUPPORTED);
}

CK_RV C_SignRecover(CK_SESSION_HANDLE handle, CK_BYTE * /*part*/, CK_ULONG /*partLength*/,
                    CK_BYTE * /*place*/, CK_ULONG * /*length*/) {
  return driver::refuse("C_SignRecover", handle, CKR_FUNCTION_NOT_SUPPORTED);
}

CK_RV C_VerifyInit(CK_SESSION_HANDLE handle, CK_MECHANISM *mechanism, CK_OBJECT_HANDLE key) {
  return guardEntryPoint("C_VerifyInit", handle, [&](Driver &driver, Session &session) {
    return driver::begin(driver, session.verifying, mechanism, key, CKF_VERIFY);
  });
}

CK_RV C_Verify(CK_SESSION_HANDLE handle, CK_BYTE *data, CK_ULONG dataLength, CK_BYTE *signature,
               CK_ULONG length) {
  return guardEntryPoint("C_Verify", handle, [&](Driver & /*driver*/, Session &session) {
    return driver::proceed(session.verifying, PartMode::single, data, dataLength,
                           [&](driver::VerifyOperation &operation, ByteView input) {
                             return driver::finishVerifying(operation, input,
                                                            driver::inputOf(signature, length));
                           });
  });
}

CK_RV C_VerifyUpdate(CK_SESSION_HANDLE handle, CK_BYTE *part, CK_ULONG partLength) {
  return guardEntryPoint("C_VerifyUpdate", handle, [&](Driver & /*driver*/, Session &session) {
    return driver::proceed(
        session.verifying, PartMode::multiple, part, partLength,
        [&](driver::VerifyOperation &operation, ByteView input) { return operation.add(input); });
  });
}

CK_RV C_VerifyFinal(CK_SESSION_HANDLE handle, CK_BYTE *signature, CK_ULONG length) {
  return guardEntryPoint("C_VerifyFinal", handle, [&](Driver & /*driver*/, Session &session) {
    return driver::proceed(session.verifying, PartMode::multiple, signature, length,
                           [&](driver::VerifyOperation &operation, ByteView given) {
                             return operation.finish({}, given);
                           });
  });
}

CK_RV C_VerifyRecoverInit(CK_SESSION_HANDLE handle, CK_MECHANISM * /*mechanism*/,
                          CK_OBJECT_HANDLE /*key*/) {
  return driver::refuse("C_VerifyRecoverInit", handle, CKR_FUNCTION_NOT_SUPPORTED);
}

CK_RV C_VerifyRecover(CK_SESSION_HANDLE handle, CK_BYTE * /*part*/, CK_ULONG /*partLength*/,
                      CK_BYTE * /*place*/, CK_ULONG * /*length*/) {
  return driver::refuse("C_VerifyRecover", handle, CKR_FUNCTION_NOT_SUPPORTED);
}

CK_RV C_DigestEncryptUpdate(CK_SESSION_HANDLE handle, CK_BYTE * /*part*/, CK_ULONG /*partLength*/,
                            CK_BYTE * /*place*/, CK_ULONG * /*length*/) {
  return driver::refuse("C_DigestEncryptUpdate", handle, CKR_FUNCTION_NOT_SUPPORTED);
}

CK_RV C_DecryptDigestUpdate(CK_SESSION_HANDLE handle, CK_BYTE * /*part*/, CK_ULONG /*partLength*/,
                            CK_BYTE * /*place*/, CK_ULONG * /*length*/) {
  return driver::refuse("C_DecryptDigestUpdate", handle, CKR_FUNCTION_NOT_SUPPORTED);
}

CK_RV C_SignEncryptUpdate(CK_SESSION_HANDLE handle, CK_BYTE * /*part*/, CK_ULONG /*partLength*/,
                          CK_BYTE * /*place*/, CK_ULONG * /*length*/) {
  return driver::refuse("C_SignEncryptUpdate", handle, CKR_FUNCTION_NOT_SUPPORTED);
}

CK_RV C_DecryptVerifyUpdate(CK_SESSION_HANDLE handle, CK_BYTE * /*part*/, CK_ULONG /*partLength*/,
                            CK_BYTE * /*place*/, CK_ULONG * /*length*/) {
  return driver::refuse("C_DecryptVerifyUpdate", handle, CKR_FUNCTION_NOT_SUPPORTED);
}

CK_RV C_SeedRandom(CK_SESSION_HANDLE handle, CK_BYTE * /*seed*/, CK_ULONG /*length*/) {
  return driver::refuse("C_SeedRandom", handle, CKR_RANDOM_SEED_NOT_SUPPORTED);
}

CK_RV C_GenerateRandom(CK_SESSION_HANDLE handle, CK_BYTE *place, CK_ULONG length) {
  return guardEntryPoint("C_GenerateRandom", handle,
                         [&](Driver & /*driver*/, Session & /*session*/) {
                           return driver::generateRandom(place, length);
                         });
}

}  // extern "C"
