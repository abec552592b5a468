#pragma once
// The devices of one interface library. Hosts reach devices through the device manager; what this
// object has to offer is its type and the native code of the thread's last failure.
#include "Object.h"
#include "VELUsbKeyDll.h"

namespace velcrypto {

class DeviceSet : public Object<IVELDeviceSet> {
 public:
  explicit DeviceSet(VEL_CRYPTO_INTERFACE_TYPE type) : m_type(type) {}

  VEL_CRYPTO_INTERFACE_TYPE GetBaseType() override { return m_type; }
  PVOID GetBaseInterface() override { return nullptr; }
  HANDLE GetHandle() override { return nullptr; }
  ULONG GetOrgErrorCode() override { return LastNativeCode(); }

  ULONG InitDLLInterface(LPCSTR, VEL_CRYPTO_INTERFACE_TYPE, LPCSTR, LPVOID) override {
    return kNotSupported;
  }
  ULONG Initialize() override { return kNotSupported; }
  ULONG Finalize() override { return kNotSupported; }
  ULONG EnumDevice(ISmartList<CVelStringT<char>>*) override { return kNotSupported; }
  ULONG DeviceIsExists(LPCSTR, BOOL*) override { return kNotSupported; }
  IVELDevice* CreatDeviceInstance() override { return nullptr; }
  IVELDevice* GetDeviceByDeviceName(LPCSTR) override { return nullptr; }

 private:
  const VEL_CRYPTO_INTERFACE_TYPE m_type;
};

}  // namespace velcrypto
