#pragma once
// The types and constants of PKCS#11. The header alone is used, no library.
#include <p11-kit/pkcs11.h>
