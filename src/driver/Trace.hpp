#pragma once

#include "driver/Pkcs11.hpp"

namespace driver {

// For who looks into a program's use of the driver: with KFY_PKCS11_DEBUG=1 in the environment, of
// a program without raised privileges, a line on standard error for each call with its result.
// Arguments, some of them secret, do not show.
void trace(const char *function, CK_RV result);

}  // namespace driver
