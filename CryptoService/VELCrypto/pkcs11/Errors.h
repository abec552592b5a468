#pragma once
// The one table from the codes of PKCS#11 to ours.
#include "../Outcome.h"
#include "Cryptoki.h"

namespace velcrypto {

// What `call` came to; the native code is kept. A code that means nothing to a user is kFailed.
Outcome CryptokiOutcome(const char* call, CK_RV result);

// The token or the session is not what it was when the handle was made: looking the token up again
// may help, and the token has seen nothing of the call.
bool IsStale(CK_RV result);

}  // namespace velcrypto
