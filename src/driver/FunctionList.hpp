#pragma once

#include "driver/Pkcs11.hpp"

namespace driver {

// The table of all functions of PKCS #11 v2.40; none is missing. C_GetFunctionList
// gives it to programs.
[[nodiscard]] CK_FUNCTION_LIST *functionList();

}  // namespace driver
