#pragma once

// The types and constants of PKCS #11 v2.40 (OASIS), and the v3.0 mechanism and key type for
// Edwards curves. Only the header is used; no library is linked.
#include <p11-kit/pkcs11.h>
