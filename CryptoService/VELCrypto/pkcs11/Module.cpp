#include "Module.h"

#include <dlfcn.h>
#include <link.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <utility>

#include "Errors.h"
#include "Watch.h"

namespace velcrypto {

namespace {

// Without the package that has the first name the library that it is a name of may be there.
const char* const kSystemModules[] = {"p11-kit-proxy.so", "libp11-kit.so.0"};

// Stays mapped, whoever closes it.
void* Open(const std::string& name) {
  return dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
}

void* OpenNamed(const std::string& name) {
  if (name.empty()) {
    void* const first = Open(kSystemModules[0]);
    return first != nullptr ? first : Open(kSystemModules[1]);
  }
  void* const opened = Open(name);
  if (opened != nullptr || name.find('/') != std::string::npos) return opened;
  const std::string error = dlerror();
  return Open(VELCRYPTO_PKCS11_FOLDER "/" + name);
}

}  // namespace

// Modules stay mapped, so what a name stood for it stands for until the process ends. A list that
// only grows at its head needs no lock, which a forked child might find locked.
std::string Module::Resolve(const std::string& name) {
  struct Resolved {
    std::string name, path;
    const Resolved* next;
  };
  static std::atomic<const Resolved*> all{nullptr};
  for (const Resolved* each = all; each != nullptr; each = each->next) {
    if (each->name == name) return each->path;
  }
  void* const opened = OpenNamed(name);
  const link_map* map = nullptr;
  if (opened == nullptr || dlinfo(opened, RTLD_DI_LINKMAP, &map) != 0) return name;
  auto* const resolved = new Resolved{name, map->l_name, all};
  while (!all.compare_exchange_weak(resolved->next, resolved)) {
  }
  dlclose(opened);
  return resolved->path;
}

std::shared_ptr<Module> Module::Load(const std::string& name, Outcome* outcome) {
  void* const opened = OpenNamed(name);
  if (opened == nullptr) {
    *outcome = {kLibraryNotLoaded, 0, dlerror()};
    return nullptr;
  }
  const auto getFunctions =
      reinterpret_cast<CK_C_GetFunctionList>(dlsym(opened, "C_GetFunctionList"));
  CK_FUNCTION_LIST* functions = nullptr;
  if (getFunctions == nullptr) {
    *outcome = {kLibraryNotLoaded, 0, "no PKCS#11 module: " + name};
    return nullptr;
  }
  const CK_RV result = getFunctions(&functions);
  if (result != CKR_OK || functions == nullptr) {
    *outcome = {kLibraryNotLoaded, result, "C_GetFunctionList"};
    return nullptr;
  }
  return std::shared_ptr<Module>(new Module(name, functions));
}

Module::Module(std::string name, CK_FUNCTION_LIST* functions)
    : m_name(std::move(name)), m_functions(functions) {}

// Modules that use OpenSSL find the host's settings there, as when the host calls them.
Module::Frame::Frame(Module* module)
    : m_ours(OSSL_LIB_CTX_set0_default(OSSL_LIB_CTX_get0_global_default())) {
  if (!module->m_locksItself) m_lock = std::unique_lock<std::mutex>(module->m_calls);
  Watch::CallBegins();
}

Module::Frame::~Frame() {
  OSSL_LIB_CTX_set0_default(static_cast<OSSL_LIB_CTX*>(m_ours));
}

CK_RV Module::InitializeWith(CK_FLAGS flags) {
  CK_C_INITIALIZE_ARGS arguments = {};
  arguments.flags = flags;
  return Call(&CK_FUNCTION_LIST::C_Initialize,
              static_cast<void*>(flags == 0 ? nullptr : &arguments));
}

CK_RV Module::InitializeLocking() {
  m_locksItself = false;
  CK_RV result = InitializeWith(CKF_OS_LOCKING_OK);
  if (result == CKR_OK) m_locksItself = true;
  if (result == CKR_CANT_LOCK) result = InitializeWith(0);
  m_ours = result == CKR_OK;
  if (result == CKR_CRYPTOKI_ALREADY_INITIALIZED) result = CKR_OK;
  return result;
}

Outcome Module::Initialize() {
  const std::lock_guard<std::mutex> lock(m_state);
  if (m_initialized) return kOk;
  const CK_RV result = InitializeLocking();
  m_initialized = result == CKR_OK;
  return CryptokiOutcome("C_Initialize", result);
}

// The call without a list is what makes modules look for new tokens. Tokens may come in between.
CK_RV Module::TryListSlots(std::vector<CK_SLOT_ID>* slots) {
  CK_RV result = CKR_BUFFER_TOO_SMALL;
  for (int attempt = 0; attempt < 3 && result == CKR_BUFFER_TOO_SMALL; ++attempt) {
    CK_ULONG count = 0;
    result =
        Call(&CK_FUNCTION_LIST::C_GetSlotList, CK_BBOOL{CK_TRUE}, CK_SLOT_ID_PTR{nullptr}, &count);
    if (result != CKR_OK) return result;
    slots->resize(count);
    if (count == 0) return CKR_OK;
    result = Call(&CK_FUNCTION_LIST::C_GetSlotList, CK_BBOOL{CK_TRUE}, slots->data(), &count);
    slots->resize(std::min<size_t>(count, slots->size()));
  }
  return result;
}

// A host that uses the module, too, may have finalised it.
Outcome Module::ListSlots(std::vector<CK_SLOT_ID>* slots) {
  CK_RV result = TryListSlots(slots);
  if (result == CKR_CRYPTOKI_NOT_INITIALIZED) {
    {
      const std::lock_guard<std::mutex> lock(m_state);
      m_initialized = false;
    }
    const Outcome outcome = Initialize();
    if (!outcome.ok()) return outcome;
    result = TryListSlots(slots);
  }
  return CryptokiOutcome("C_GetSlotList", result);
}

// Software tokens fail for a moment while another process writes them, cards after a suspend.
Outcome Module::ReadToken(CK_SLOT_ID slot, CK_TOKEN_INFO* info) {
  CK_RV result = CKR_OK;
  for (const int milliseconds : {0, 10, 30, 60}) {
    if (milliseconds > 0) std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    *info = {};
    result = Call(&CK_FUNCTION_LIST::C_GetTokenInfo, slot, info);
    if (result != CKR_GENERAL_ERROR && result != CKR_DEVICE_ERROR) break;
  }
  return CryptokiOutcome("C_GetTokenInfo", result);
}

bool Module::Restart(const std::function<bool()>& allowed) {
  const std::unique_lock<std::shared_mutex> alone(m_use, std::try_to_lock);
  if (!alone.owns_lock()) return false;
  const std::lock_guard<std::mutex> lock(m_state);
  if (!m_ours || !allowed()) return false;
  Call(&CK_FUNCTION_LIST::C_Finalize, static_cast<void*>(nullptr));
  m_initialized = InitializeLocking() == CKR_OK;
  return m_initialized;
}

}  // namespace velcrypto
