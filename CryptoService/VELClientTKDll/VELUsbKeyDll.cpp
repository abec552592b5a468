#include "VELUsbKeyDll.h"

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <wchar.h>

namespace {

const DWORD kLoadFailed = static_cast<DWORD>(-1);

// Resolves one factory; false when the library lacks it. A stale error of an earlier call is
// cleared first, since only dlerror tells a missing symbol from a null one.
template <typename Factory>
bool Resolve(void* library, const char* name, Factory& factory) {
  dlerror();
  factory = reinterpret_cast<Factory>(dlsym(library, name));
  return dlerror() == nullptr;
}

template <typename Factory, typename... Args>
auto CreateWith(Factory factory, Args... args) -> decltype(factory(args...)) {
  return factory == nullptr ? nullptr : factory(args...);
}

}  // namespace

DWORD CVELUsbKey::LoadDll(LPCTSTR name) {
  UnloadDll();
  char fileName[128] = {};
  const size_t length = name == nullptr ? 0 : wcslen(name);
  const size_t limit = sizeof(fileName) - 1;
  if (name != nullptr) wcstombs(fileName, name, length < limit ? length : limit);
  m_hDllInstance = dlopen(fileName, RTLD_LAZY);
  if (m_hDllInstance == nullptr) {
    printf("err %s", dlerror());
    return kLoadFailed;
  }
  const bool complete =
      Resolve(m_hDllInstance, "CreateUsbKeyInstance_DeviceSet", m_CreateUsbKeyInstance_DeviceSet) &&
      Resolve(m_hDllInstance, "CreateUsbKeyInstance_Certificate",
              m_CreateUsbKeyInstance_Certificate) &&
      Resolve(m_hDllInstance, "CreateUsbKeyInstance_AuxClass", m_CreateUsbKeyInstance_AuxClass) &&
      Resolve(m_hDllInstance, "CreateUsbKeyInstance_CertUI", m_CreateUsbKeyInstance_CertUI) &&
      Resolve(m_hDllInstance, "CreateUsbKeyInstance_DeviceManager",
              m_CreateUsbKeyInstance_DeviceManager) &&
      Resolve(m_hDllInstance, "CreateUsbKeyInstance_CallQueue", m_CreateUsbKeyInstance_CallQueue) &&
      Resolve(m_hDllInstance, "CreateUsbKeyInstance_SessionKey",
              m_CreateUsbKeyInstance_SessionKey) &&
      Resolve(m_hDllInstance, "CreateUsbKeyInstance_TokenPrivileges",
              m_CreateUsbKeyInstance_TokenPrivileges) &&
      Resolve(m_hDllInstance, "CreateUsbKeyInstance_Device", m_CreateUsbKeyInstance_Device) &&
      Resolve(m_hDllInstance, "CreateUsbKeyInstance_Application",
              m_CreateUsbKeyInstance_Application) &&
      Resolve(m_hDllInstance, "CreateUsbKeyInstance_HashKey", m_CreateUsbKeyInstance_HashKey) &&
      Resolve(m_hDllInstance, "CreateUsbKeyInstance_Container", m_CreateUsbKeyInstance_Container);
  return complete ? 0 : kLoadFailed;
}

void CVELUsbKey::UnloadDll() {
  if (m_hDllInstance == nullptr) return;
  dlclose(m_hDllInstance);
  m_hDllInstance = nullptr;
}

CVELUsbKey::~CVELUsbKey() {
  UnloadDll();
}

IVELDeviceSet* CVELUsbKey::CreateDeviceSetInstance(VEL_CRYPTO_INTERFACE_TYPE type) {
  return CreateWith(m_CreateUsbKeyInstance_DeviceSet, type);
}

IVELCertificate* CVELUsbKey::CreateCertificateInstance() {
  return CreateWith(m_CreateUsbKeyInstance_Certificate);
}

IVELKeyAuxClass* CVELUsbKey::CreateAuxClassInstance() {
  return CreateWith(m_CreateUsbKeyInstance_AuxClass);
}

IVELKeyDisplayCertUIEx* CVELUsbKey::CreateCertUIInstance() {
  return CreateWith(m_CreateUsbKeyInstance_CertUI);
}

IVELDeviceManager* CVELUsbKey::CreateDeviceManagerInstance() {
  return CreateWith(m_CreateUsbKeyInstance_DeviceManager);
}

IVELCallQueue* CVELUsbKey::CreateCallQueueInstance() {
  return CreateWith(m_CreateUsbKeyInstance_CallQueue);
}

IVELSessionKey* CVELUsbKey::CreateSessionKeyInstance() {
  return CreateWith(m_CreateUsbKeyInstance_SessionKey);
}

IVELTokenPrivileges* CVELUsbKey::CreateTokenPrivilegesInstance() {
  return CreateWith(m_CreateUsbKeyInstance_TokenPrivileges);
}

IVELDevice* CVELUsbKey::CreateDeviceInstance(IVELDeviceSet* pDeviceSet) {
  return CreateWith(m_CreateUsbKeyInstance_Device, pDeviceSet);
}

IVELApplication* CVELUsbKey::CreateApplicationInstance(IVELDevice* pDevice) {
  return CreateWith(m_CreateUsbKeyInstance_Application, pDevice);
}

IVELHashKey* CVELUsbKey::CreateHashKeyInstance(IVELDevice* pDevice) {
  return CreateWith(m_CreateUsbKeyInstance_HashKey, pDevice);
}

IVELContainer* CVELUsbKey::CreateContainerInstance(IVELDevice* pDevice,
                                                   IVELApplication* pApplication,
                                                   IVELHashKey* pHashKey) {
  return CreateWith(m_CreateUsbKeyInstance_Container, pDevice, pApplication, pHashKey);
}
