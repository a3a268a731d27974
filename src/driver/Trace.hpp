#pragma once

#include "driver/Pkcs11.hpp"

namespace driver {

// For debugging: with KFY_PKCS11_DEBUG=1 in the environment, writes a line to standard error for
// each call with its result. Ignored in programs with elevated privileges. Arguments are not shown,
// since some are secret.
void trace(const char *function, CK_RV result);

}  // namespace driver
