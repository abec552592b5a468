// exits_while_signing LIBRARY FOLDER PIN: a host that ends while threads of it are signing with the
// one key of the folder. It has no OpenSSL of its own.
#include <dlfcn.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "VELUsbKeyDll.h"

namespace {

CSmartObjPtr<IVELDeviceManager> NewManager(void* library, const char* folder) {
  const auto create = reinterpret_cast<PCreateUsbKeyInstance_DeviceManager>(
      dlsym(library, "CreateUsbKeyInstance_DeviceManager"));
  CSmartObjPtr<IVELDeviceManager> manager(create());
  tag_VEL_KEY_INFO_EX key;
  strncpy(key.InterfaceLibName, folder, sizeof(key.InterfaceLibName) - 1);
  CSmartList<tag_VEL_KEY_INFO_EX> keys;
  keys.AddItem(key);
  if (manager->AddKeyEx(&keys, TRUE) != 0 || manager->Initialize(nullptr) != 0) exit(2);
  return manager;
}

std::atomic<int> g_signatures{0};

void SignForEver(void* library, const char* folder) {
  CSmartObjPtr<IVELDeviceManager> manager = NewManager(library, folder);
  CSmartList<tag_VEL_CERT_INFO> certificates;
  if (manager->GetCertList(nullptr, &certificates) != 0) exit(3);
  for (;;) {
    CSmartBuffer signature;
    BYTE data = 'x';
    if (manager->P1Sign(&certificates[0], VEL_HASH_ALG_SM3, &data, 1, &signature) != 0) abort();
    ++g_signatures;
  }
}

}  // namespace

int main(int argc, char** argv) {
  void* const library = argc == 4 ? dlopen(argv[1], RTLD_LAZY) : nullptr;
  if (library == nullptr) return 2;
  CSmartObjPtr<IVELDeviceManager> manager = NewManager(library, argv[2]);
  if (manager->KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE_LOGIN, "01", VEL_PIN_CODE_TYPE_USER,
                                        argv[3], nullptr, nullptr) != 0) {
    return 4;
  }
  for (int i = 0; i < 3; ++i) std::thread(SignForEver, library, argv[2]).detach();
  while (g_signatures < 10) usleep(1000);
  exit(0);
}
