#include "driver/Signing.hpp"

#include "driver/SignatureForm.hpp"
#include "driver/Token.hpp"

namespace driver {
namespace {

Progress added(bool isAdded) {
  return isAdded ? Progress{CKR_OK, /*isOver=*/false} : Progress{CKR_DATA_LEN_RANGE};
}

}  // namespace

Progress Signing::add(ByteView part) {
  return added(input_.add(part));
}

Progress Signing::finish(Token &token, ByteView lastPart, const Output &output) {
  if (const auto ended = output.withoutRoomFor(signatureSize(use_))) {
    return *ended;
  }
  if (!input_.add(lastPart)) {
    return {CKR_DATA_LEN_RANGE};
  }
  const Bytes input = input_.finish();
  Bytes request;
  if (const CK_RV result = requestFor(use_, input, request); result != CKR_OK) {
    return {result};
  }
  SecretBytes answer;
  if (const CK_RV result = token.ask(KeyRequest::sign, *use_.object, request, answer);
      result != CKR_OK) {
    return {result};
  }
  const auto signature = signatureIn(use_, answer.reveal());
  if (!signature || verify(use_, input, *signature) != CKR_OK) {
    token.report("the key's holder answered with a signature that the certificate \"" +
                 use_.object->identity->label +
                 "\" does not verify, so it was not used; try: make sure that the device holds the "
                 "key that belongs to the certificate");
    return {CKR_DEVICE_ERROR};
  }
  return output.put(*signature);
}

Progress Verifying::add(ByteView part) {
  return added(input_.add(part));
}

Progress Verifying::finish(ByteView lastPart, ByteView signature) {
  return {input_.add(lastPart) ? verify(use_, input_.finish(), signature)
                               : CK_RV{CKR_DATA_LEN_RANGE}};
}

}  // namespace driver
