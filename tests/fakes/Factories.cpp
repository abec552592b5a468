// The twelve factories. A variant of the library defines one of these names for its fault.
#include "FakeManager.h"
#include "FakeObjects.h"

#if defined(FAKE_COUNTS_OBJECTS_FROM_ONE)
static const unsigned long kFirstReferences = 1;
#else
static const unsigned long kFirstReferences = 0;
#endif

namespace {

template <typename Object>
Object* Made(const char* factory) {
  Fake().Record(factory);
  if (Fake().onMake) Fake().onMake();
  Object* const object = new Object(kFirstReferences);
  if (kFirstReferences != 0) KeepLostObject(object);
  return object;
}

template <typename Object>
[[maybe_unused]] Object* Refused(const char* factory) {
  Fake().Record(factory);
  return nullptr;
}

// Passed through by the toolkit and never looked into: the address is all there is.
template <typename Object>
Object* Opaque(const char* factory) {
  static char place;
  Fake().Record(factory);
  return reinterpret_cast<Object*>(&place);
}

__attribute__((constructor)) void Loaded() {
  ++Fake().loads;
  if (Fake().onLoad) Fake().onLoad();
}

__attribute__((destructor)) void Unloaded() {
  ++Fake().unloads;
}

}  // namespace

extern "C" {

#if !defined(FAKE_LACKS_DEVICE_SET_FACTORY)
IVELDeviceSet* CreateUsbKeyInstance_DeviceSet(VEL_CRYPTO_INTERFACE_TYPE) {
  return Opaque<IVELDeviceSet>("CreateDeviceSetInstance");
}
#endif

IVELCertificate* CreateUsbKeyInstance_Certificate() {
  return Opaque<IVELCertificate>("CreateCertificateInstance");
}

IVELKeyAuxClass* CreateUsbKeyInstance_AuxClass() {
#if defined(FAKE_GIVES_NO_AUX_CLASS)
  return Refused<FakeAuxClass>("CreateAuxClassInstance");
#else
  return Made<FakeAuxClass>("CreateAuxClassInstance");
#endif
}

IVELKeyDisplayCertUIEx* CreateUsbKeyInstance_CertUI() {
#if defined(FAKE_GIVES_NO_DIALOG)
  return Refused<FakeDialog>("CreateCertUIInstance");
#else
  return Made<FakeDialog>("CreateCertUIInstance");
#endif
}

IVELDeviceManager* CreateUsbKeyInstance_DeviceManager() {
#if defined(FAKE_GIVES_NO_DEVICE_MANAGER)
  return Refused<FakeManager>("CreateDeviceManagerInstance");
#else
  return Made<FakeManager>("CreateDeviceManagerInstance");
#endif
}

IVELCallQueue* CreateUsbKeyInstance_CallQueue() {
#if defined(FAKE_GIVES_NO_CALL_QUEUE)
  return Refused<FakeCallQueue>("CreateCallQueueInstance");
#else
  return Made<FakeCallQueue>("CreateCallQueueInstance");
#endif
}

IVELSessionKey* CreateUsbKeyInstance_SessionKey() {
  return Opaque<IVELSessionKey>("CreateSessionKeyInstance");
}

IVELTokenPrivileges* CreateUsbKeyInstance_TokenPrivileges() {
  return Opaque<IVELTokenPrivileges>("CreateTokenPrivilegesInstance");
}

IVELDevice* CreateUsbKeyInstance_Device(IVELDeviceSet*) {
  return Opaque<IVELDevice>("CreateDeviceInstance");
}

IVELApplication* CreateUsbKeyInstance_Application(IVELDevice*) {
  return Opaque<IVELApplication>("CreateApplicationInstance");
}

IVELHashKey* CreateUsbKeyInstance_HashKey(IVELDevice*) {
  return Opaque<IVELHashKey>("CreateHashKeyInstance");
}

#if !defined(FAKE_LACKS_CONTAINER_FACTORY)
IVELContainer* CreateUsbKeyInstance_Container(IVELDevice*, IVELApplication*, IVELHashKey*) {
  return Opaque<IVELContainer>("CreateContainerInstance");
}
#endif
}
