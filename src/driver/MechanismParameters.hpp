#pragma once

#include "base/Bytes.hpp"
#include "crypto/PSS.hpp"
#include "crypto/RSAEncryption.hpp"
#include "driver/Mechanisms.hpp"
#include "driver/Pkcs11.hpp"

namespace driver {

// What a program handed over beside a mechanism's type, checked and copied; which member counts
// depends on the scheme.
struct MechanismParameters {
  crypto::PSSParameters pss;
  crypto::OAEPParameters oaep;
  Bytes peerPoint;  // of ECDH: uncompressed, not checked to lie on the curve
};

// Reads them. CKR_MECHANISM_PARAM_INVALID if the scheme wants others. A scheme that wants none
// ignores what is there, as programs leave things behind.
[[nodiscard]] CK_RV readParameters(const CK_MECHANISM &given, const Mechanism &mechanism,
                                   MechanismParameters &parameters);

}  // namespace driver
