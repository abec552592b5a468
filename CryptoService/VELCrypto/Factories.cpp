// The entry points of the library.
#include "AuxClass.h"
#include "CallQueue.h"
#include "CertDialog.h"
#include "Certificate.h"
#include "DeviceManager.h"
#include "DeviceSet.h"

namespace {

// A new object with the reference count 0, or null.
template <typename T, typename... Args>
T* Create(Args... args) noexcept {
  T* object = nullptr;
  velcrypto::Contained([&]() -> velcrypto::Outcome {
    object = new T(args...);
    return velcrypto::kOk;
  });
  return object;
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

IVELDeviceSet* CreateUsbKeyInstance_DeviceSet(VEL_CRYPTO_INTERFACE_TYPE type) {
  return Create<velcrypto::DeviceSet>(type);
}

IVELCertificate* CreateUsbKeyInstance_Certificate() {
  return Create<velcrypto::Certificate>();
}

IVELKeyAuxClass* CreateUsbKeyInstance_AuxClass() {
  return Create<velcrypto::AuxClass>();
}

IVELKeyDisplayCertUIEx* CreateUsbKeyInstance_CertUI() {
  return Create<velcrypto::CertDialog>();
}

IVELDeviceManager* CreateUsbKeyInstance_DeviceManager() {
  return Create<velcrypto::DeviceManager>();
}

IVELCallQueue* CreateUsbKeyInstance_CallQueue() {
  return Create<velcrypto::CallQueue>();
}

// The interfaces below have no published shape: there is nothing that could be handed out.

IVELSessionKey* CreateUsbKeyInstance_SessionKey() {
  return nullptr;
}

IVELTokenPrivileges* CreateUsbKeyInstance_TokenPrivileges() {
  return nullptr;
}

IVELDevice* CreateUsbKeyInstance_Device(IVELDeviceSet*) {
  return nullptr;
}

IVELApplication* CreateUsbKeyInstance_Application(IVELDevice*) {
  return nullptr;
}

IVELHashKey* CreateUsbKeyInstance_HashKey(IVELDevice*) {
  return nullptr;
}

IVELContainer* CreateUsbKeyInstance_Container(IVELDevice*, IVELApplication*, IVELHashKey*) {
  return nullptr;
}

}  // extern "C"
#pragma GCC visibility pop
