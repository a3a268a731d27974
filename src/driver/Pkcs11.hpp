#pragma once

// The types and constants of PKCS #11 v2.40 (OASIS), and the mechanism and key type of v3.0 for
// Edwards curves. The header is needed to build, no library of it to run.
#include <p11-kit/pkcs11.h>
