#pragma once
// The device library as a host gets it: opened at run time, spoken to through its factories.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "KeyMaker.h"
#include "VELUsbKeyDll.h"

class Library {
 public:
  Library() : m_handle(dlopen(VELCRYPTO_PATH, RTLD_LAZY | RTLD_LOCAL)) {
    EXPECT_NE(m_handle, nullptr) << dlerror();
  }
  ~Library() {
    if (m_handle != nullptr) dlclose(m_handle);
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  CSmartObjPtr<IVELDeviceManager> NewManager() { return Make<IVELDeviceManager>("DeviceManager"); }
  CSmartObjPtr<IVELKeyDisplayCertUIEx> NewDialog() {
    return Make<IVELKeyDisplayCertUIEx>("CertUI");
  }
  CSmartObjPtr<IVELKeyAuxClass> NewAux() { return Make<IVELKeyAuxClass>("AuxClass"); }
  CSmartObjPtr<IVELCallQueue> NewQueue() { return Make<IVELCallQueue>("CallQueue"); }
  CSmartObjPtr<IVELCertificate> NewCertificate() { return Make<IVELCertificate>("Certificate"); }

  void* Symbol(const std::string& name) { return dlsym(m_handle, name.c_str()); }

 private:
  template <typename T>
  CSmartObjPtr<T> Make(const char* name) {
    void* const factory = Symbol(std::string("CreateUsbKeyInstance_") + name);
    return CSmartObjPtr<T>(reinterpret_cast<T* (*)()>(factory)());
  }

  void* const m_handle;
};

inline tag_VEL_KEY_INFO_EX KeyFamily(
    const std::string& library, VEL_CRYPTO_INTERFACE_TYPE type = VEL_CRYPTO_INTERFACE_TYPE_CSP) {
  tag_VEL_KEY_INFO_EX key;
  key.CryptoInterfaceType = type;
  library.copy(key.InterfaceLibName, sizeof(key.InterfaceLibName) - 1);
  return key;
}

// A manager that is configured and initialised.
inline CSmartObjPtr<IVELDeviceManager> ManagerOf(Library& library,
                                                 const std::vector<tag_VEL_KEY_INFO_EX>& keys) {
  CSmartObjPtr<IVELDeviceManager> manager = library.NewManager();
  CSmartList<tag_VEL_KEY_INFO_EX> list;
  for (const tag_VEL_KEY_INFO_EX& key : keys) list.AddItem(key);
  EXPECT_EQ(manager->AddKeyEx(&list, TRUE), 0u);
  EXPECT_EQ(manager->Initialize(nullptr), 0u);
  return manager;
}

inline std::vector<tag_VEL_CERT_INFO> CertificatesOf(
    IVELDeviceManager* manager, const std::vector<tag_VEL_CERT_FILTER_ITEM>& filters = {}) {
  CSmartList<tag_VEL_CERT_FILTER_ITEM> items;
  for (const tag_VEL_CERT_FILTER_ITEM& filter : filters) items.AddItem(filter);
  CSmartList<tag_VEL_CERT_INFO> certificates;
  EXPECT_EQ(manager->GetCertList(&items, &certificates), 0u);
  return certificates.m_vecList;
}

inline keymaker::Bytes BytesOf(CSmartBuffer& buffer) {
  return keymaker::Bytes(buffer.GetBytes(), buffer.GetBytes() + buffer.GetSize());
}

inline std::wstring Text(const CVelStringW& text) {
  return static_cast<const wchar_t*>(text);
}
