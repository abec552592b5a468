#pragma once
// The key store: a folder of PKCS#12 files (docs/how_to/key_store.md).
#include <memory>
#include <string>

#include "../Backend.h"

namespace velcrypto {

// The folder that a configured name means: itself, or for the empty name $VEL_KEYSTORE, else
// $XDG_DATA_HOME/vel/keystore, else ~/.local/share/vel/keystore.
std::string KeyStoreFolder(const std::string& configured);

// Never fails: the folder is looked at when it is used, so it may come and go.
std::unique_ptr<Backend> OpenKeyStore(const std::string& folder, Outcome* outcome);

}  // namespace velcrypto
