#pragma once
// Tokens behind a PKCS#11 module (docs/how_to/pkcs11.md).
#include <chrono>
#include <memory>
#include <string>

#include "../Backend.h"

namespace velcrypto {

// The file that a configured name means: a path, a name that the loader finds, a name in the folder
// where PKCS#11 modules are installed; for the empty name $VEL_PKCS11_MODULE, else every token that
// the system knows.
std::string Pkcs11Module(const std::string& configured);

// Loads the module and calls nothing of it yet. kLibraryNotLoaded.
std::unique_ptr<Backend> OpenPkcs11(const std::string& module, Outcome* outcome);

// The same with another time that a module is given for one call of a listing.
std::unique_ptr<Backend> OpenPkcs11(const std::string& module, std::chrono::milliseconds patience,
                                    Outcome* outcome);

}  // namespace velcrypto
