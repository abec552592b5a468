#pragma once
// The backends that this process has opened, one for each key family in use.
#include <memory>
#include <string>

#include "Backend.h"
#include "VelKeyTypes.h"

namespace velcrypto {

// Whether there may be a backend for this interface type at all.
bool IsSupportedFamily(VEL_CRYPTO_INTERFACE_TYPE type);

struct OpenedBackend {
  Backend* backend = nullptr;  // null when the outcome fails; stays until the process ends
  Outcome outcome;
};

// The backend of a family, opened at the first call; later calls give the same one. `library` is
// the configured name, empty for the family's default.
OpenedBackend OpenBackend(VEL_CRYPTO_INTERFACE_TYPE type, const std::string& library);

// Ends the logins of all opened backends.
void CloseBackends();

}  // namespace velcrypto
