#include "Backends.h"

#include "keystore/KeyStore.h"
#include "pkcs11/Pkcs11.h"
#include "Process.h"

namespace velcrypto {

namespace {

struct Kind {
  VEL_CRYPTO_INTERFACE_TYPE first, last;
  // The full name of what the configured one means; equal names share a backend.
  std::string (*resolve)(const std::string& library);
  std::unique_ptr<Backend> (*open)(const std::string& resolved, Outcome* outcome);
};

std::string AsGiven(const std::string& library) {
  return library;
}

std::unique_ptr<Backend> NotBuiltIn(const std::string&, Outcome* outcome) {
  *outcome = {kLibraryNotLoaded, 0, "this build has no backend for the interface type"};
  return nullptr;
}

// One line a backend.
const Kind kKinds[] = {
    {VEL_CRYPTO_INTERFACE_TYPE_CSP, VEL_CRYPTO_INTERFACE_TYPE_CSP, KeyStoreFolder, OpenKeyStore},
    {VEL_CRYPTO_INTERFACE_TYPE_SKF, VEL_CRYPTO_INTERFACE_TYPE_SKF, AsGiven, NotBuiltIn},
    {VEL_CRYPTO_INTERFACE_TYPE_P11, VEL_CRYPTO_INTERFACE_TYPE_P11_FIN56, Pkcs11Module, OpenPkcs11},
};

const Kind* FindKind(VEL_CRYPTO_INTERFACE_TYPE type) {
  for (const Kind& kind : kKinds) {
    if (type >= kind.first && type <= kind.last) return &kind;
  }
  return nullptr;
}

}  // namespace

bool IsSupportedFamily(VEL_CRYPTO_INTERFACE_TYPE type) {
  return FindKind(type) != nullptr;
}

OpenedBackend OpenBackend(VEL_CRYPTO_INTERFACE_TYPE type, const std::string& library) {
  const Kind* const kind = FindKind(type);
  if (kind == nullptr) return {nullptr, kFamilyNotSupported};
  const std::string resolved = kind->resolve(library);
  Process& process = Process::Current();
  const std::lock_guard<std::mutex> lock(process.mutex);
  std::unique_ptr<Backend>& backend = process.backends[{kind->first, resolved}];
  OpenedBackend opened;
  if (backend == nullptr) backend = kind->open(resolved, &opened.outcome);
  opened.backend = backend.get();
  return opened;
}

void CloseBackends() {
  Process& process = Process::Current();
  process.logins.Clear();
  const std::lock_guard<std::mutex> lock(process.mutex);
  for (const auto& entry : process.backends) {
    if (entry.second != nullptr) entry.second->Close();
  }
}

}  // namespace velcrypto
