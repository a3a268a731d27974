#pragma once

#include "driver/Pkcs11.hpp"

namespace driver {

// The table of all functions of PKCS #11 v2.40, as C_GetFunctionList returns it. Every entry is
// set.
[[nodiscard]] CK_FUNCTION_LIST *functionList();

}  // namespace driver
