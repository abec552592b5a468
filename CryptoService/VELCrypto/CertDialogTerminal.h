#pragma once
// The choice of a certificate on a terminal: a numbered list, a number as the answer.
#include "CertOffer.h"

namespace velcrypto {

// Asks on the controlling terminal of the process. `shown` is false when there is none, or when
// another job has it. Fails with kCancelled, kTimeout.
Answer AskTerminal(LiveOffer& offer, const DialogOptions& options);

}  // namespace velcrypto
