// SoftHSM, RSA of 2048 bits: signatures and listings through the library beside the bare calls of
// PKCS#11, in one process. Needs a quiet machine.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <p11-kit/pkcs11.h>
#include <stdlib.h>
#include <string.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "InTurns.h"
#include "KeyMaker.h"
#include "vctk.h"
#include "VELUsbKeyDll.h"

namespace {

using keymaker::Bytes;

const char kPin[] = "12345678";

void Must(bool good, const char* what) {
  if (good) return;
  fprintf(stderr, "%s failed\n", what);
  exit(1);
}

// Tokens of 1, 10 and 100 certificates with their public keys; the first has the private key.
class Hsm {
 public:
  Hsm() {
    keymaker::WriteFile(m_folder / "conf", [this] {
      const std::string text =
          "directories.tokendir = " + m_folder.path() + "\nlog.level = ERROR\n";
      return Bytes(text.begin(), text.end());
    }());
    setenv("SOFTHSM2_CONF", (m_folder / "conf").c_str(), 1);
    void* const module = dlopen(SOFTHSM_MODULE, RTLD_NOW);
    Must(module != nullptr, SOFTHSM_MODULE);
    reinterpret_cast<CK_C_GetFunctionList>(dlsym(module, "C_GetFunctionList"))(&p11);
    Must(p11->C_Initialize(nullptr) == CKR_OK, "C_Initialize");
    Fill(1);
  }

  // One more token.
  void Fill(int size);

  CK_SESSION_HANDLE Open(size_t token, CK_FLAGS flags = 0) const {
    CK_SESSION_HANDLE session = 0;
    Must(p11->C_OpenSession(slots[token], CKF_SERIAL_SESSION | flags, nullptr, nullptr, &session) ==
             CKR_OK,
         "C_OpenSession");
    return session;
  }
  void LogIn(CK_SESSION_HANDLE session) const {
    Must(p11->C_Login(session, CKU_USER, reinterpret_cast<CK_UTF8CHAR*>(const_cast<char*>(kPin)),
                      strlen(kPin)) == CKR_OK,
         "C_Login");
  }

  CK_FUNCTION_LIST* p11 = nullptr;
  std::vector<CK_SLOT_ID> slots;
  std::string serial;

 private:
  CK_SLOT_ID FreeSlot() const {
    CK_ULONG count = 64;
    CK_SLOT_ID all[64];
    CK_TOKEN_INFO info;
    p11->C_GetSlotList(CK_FALSE, nullptr, &count);
    count = 64;
    p11->C_GetSlotList(CK_FALSE, all, &count);
    for (CK_ULONG i = 0; i < count; ++i) {
      if (p11->C_GetTokenInfo(all[i], &info) == CKR_OK &&
          (info.flags & CKF_TOKEN_INITIALIZED) == 0) {
        return all[i];
      }
    }
    Must(false, "a free slot");
    return 0;
  }
  void Key(CK_SESSION_HANDLE session);
  void Certificate(CK_SESSION_HANDLE session, int number);

  keymaker::TemporaryFolder m_folder;
};

void Hsm::Fill(int size) {
  CK_UTF8CHAR label[32];
  memset(label, ' ', sizeof(label));
  const std::string name = "token" + std::to_string(size);
  memcpy(label, name.data(), name.size());
  auto* const pin = reinterpret_cast<CK_UTF8CHAR*>(const_cast<char*>(kPin));
  const CK_SLOT_ID slot = FreeSlot();
  Must(p11->C_InitToken(slot, pin, strlen(kPin), label) == CKR_OK, "C_InitToken");
  slots.push_back(slot);
  const CK_SESSION_HANDLE session = Open(slots.size() - 1, CKF_RW_SESSION);
  Must(p11->C_Login(session, CKU_SO, pin, strlen(kPin)) == CKR_OK, "C_Login");
  Must(p11->C_InitPIN(session, pin, strlen(kPin)) == CKR_OK, "C_InitPIN");
  p11->C_Logout(session);
  LogIn(session);
  Key(session);
  for (int i = 0; i < size; ++i) Certificate(session, size * 1000 + i);
  p11->C_CloseSession(session);
}

Bytes NumberOf(EVP_PKEY* key, const char* name) {
  BIGNUM* number = nullptr;
  Must(EVP_PKEY_get_bn_param(key, name, &number) == 1, name);
  Bytes bytes(static_cast<size_t>(BN_num_bytes(number)));
  BN_bn2bin(number, bytes.data());
  BN_free(number);
  return bytes;
}

void Hsm::Key(CK_SESSION_HANDLE session) {
  const keymaker::Identity made = keymaker::Make({});
  CK_OBJECT_CLASS kind = CKO_PRIVATE_KEY;
  CK_KEY_TYPE type = CKK_RSA;
  CK_BBOOL yes = CK_TRUE;
  unsigned char id[] = {1};
  std::vector<Bytes> numbers;
  for (const char* name : {"n", "e", "d", "rsa-factor1", "rsa-factor2", "rsa-exponent1",
                           "rsa-exponent2", "rsa-coefficient1"}) {
    numbers.push_back(NumberOf(made.key.get(), name));
  }
  std::vector<CK_ATTRIBUTE> values = {
      {CKA_CLASS, &kind, sizeof(kind)}, {CKA_KEY_TYPE, &type, sizeof(type)},
      {CKA_TOKEN, &yes, sizeof(yes)},   {CKA_PRIVATE, &yes, sizeof(yes)},
      {CKA_SIGN, &yes, sizeof(yes)},    {CKA_ID, id, sizeof(id)}};
  const CK_ATTRIBUTE_TYPE types[] = {CKA_MODULUS,    CKA_PUBLIC_EXPONENT, CKA_PRIVATE_EXPONENT,
                                     CKA_PRIME_1,    CKA_PRIME_2,         CKA_EXPONENT_1,
                                     CKA_EXPONENT_2, CKA_COEFFICIENT};
  for (size_t i = 0; i < numbers.size(); ++i) {
    values.push_back({types[i], numbers[i].data(), numbers[i].size()});
  }
  CK_OBJECT_HANDLE handle = 0;
  Must(p11->C_CreateObject(session, values.data(), values.size(), &handle) == CKR_OK,
       "C_CreateObject");
}

// All share the key that Make gives.
void Hsm::Certificate(CK_SESSION_HANDLE session, int number) {
  keymaker::Request request;
  request.serial = std::to_string(number);
  request.subject = {
      {"C", "CN"}, {"O", "测试机构有限公司"}, {"CN", "张三" + std::to_string(number)}};
  const keymaker::Identity made = keymaker::Make(request);
  if (serial.empty()) serial = made.SerialHex();
  Bytes der = made.Der();
  CK_OBJECT_CLASS kind = CKO_CERTIFICATE;
  CK_CERTIFICATE_TYPE type = CKC_X_509;
  CK_BBOOL yes = CK_TRUE, no = CK_FALSE;
  unsigned char id[] = {1};
  char subject[] = "subject";
  CK_ATTRIBUTE values[] = {
      {CKA_CLASS, &kind, sizeof(kind)},   {CKA_CERTIFICATE_TYPE, &type, sizeof(type)},
      {CKA_TOKEN, &yes, sizeof(yes)},     {CKA_PRIVATE, &no, sizeof(no)},
      {CKA_ID, id, sizeof(id)},           {CKA_SUBJECT, subject, sizeof(subject)},
      {CKA_VALUE, der.data(), der.size()}};
  CK_OBJECT_HANDLE handle = 0;
  Must(p11->C_CreateObject(session, values, std::size(values), &handle) == CKR_OK,
       "C_CreateObject");
}

Hsm& TheHsm() {
  static Hsm* const hsm = new Hsm;
  return *hsm;
}

const Bytes& DigestInfo() {
  static const Bytes info = [] {
    const unsigned char prefix[] = {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2B, 0x0E,
                                    0x03, 0x02, 0x1A, 0x05, 0x00, 0x04, 0x14};
    Bytes bytes(std::begin(prefix), std::end(prefix));
    unsigned char digest[20];
    EVP_Digest("abc", 3, digest, nullptr, EVP_sha1(), nullptr);
    bytes.insert(bytes.end(), digest, digest + 20);
    return bytes;
  }();
  return info;
}

Bytes FindAndSign(CK_SESSION_HANDLE session) {
  CK_FUNCTION_LIST* const p11 = TheHsm().p11;
  CK_OBJECT_CLASS kind = CKO_PRIVATE_KEY;
  unsigned char id[] = {1};
  CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &kind, sizeof(kind)}, {CKA_ID, id, sizeof(id)}};
  CK_OBJECT_HANDLE key = 0;
  CK_ULONG count = 0;
  p11->C_FindObjectsInit(session, wanted, 2);
  p11->C_FindObjects(session, &key, 1, &count);
  p11->C_FindObjectsFinal(session);
  CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
  Bytes signature(256);
  CK_ULONG size = signature.size();
  Must(p11->C_SignInit(session, &mechanism, key) == CKR_OK, "C_SignInit");
  Must(p11->C_Sign(session, const_cast<unsigned char*>(DigestInfo().data()), DigestInfo().size(),
                   signature.data(), &size) == CKR_OK,
       "C_Sign");
  return signature;
}

Bytes BareSignature() {
  const Hsm& hsm = TheHsm();
  const CK_SESSION_HANDLE session = hsm.Open(0);
  hsm.LogIn(session);
  Bytes signature = FindAndSign(session);
  hsm.p11->C_Logout(session);
  hsm.p11->C_CloseSession(session);
  return signature;
}

// The same attributes as the library reads.
size_t BareListing(CK_SESSION_HANDLE session) {
  CK_FUNCTION_LIST* const p11 = TheHsm().p11;
  CK_OBJECT_CLASS kind = CKO_CERTIFICATE;
  CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &kind, sizeof(kind)}};
  CK_OBJECT_HANDLE objects[256];
  CK_ULONG count = 0;
  p11->C_FindObjectsInit(session, wanted, 1);
  p11->C_FindObjects(session, objects, 256, &count);
  p11->C_FindObjectsFinal(session);
  static unsigned char value[8192], id[256], label[256];
  CK_ULONG category = 0;
  for (CK_ULONG i = 0; i < count; ++i) {
    CK_ATTRIBUTE values[] = {{CKA_VALUE, value, sizeof(value)},
                             {CKA_ID, id, sizeof(id)},
                             {CKA_LABEL, label, sizeof(label)},
                             {CKA_CERTIFICATE_CATEGORY, &category, sizeof(category)}};
    p11->C_GetAttributeValue(session, objects[i], values, 4);
  }
  return count;
}

// Elapsed time in turns. Processor time of all threads apart from it, one side after the other, for
// the library's listing thread stays awake for a moment after a listing.
template <typename Ours, typename Bare>
void InTurns(benchmark::State& state, Ours ours, Bare bare) {
  RunInTurns(
      state, 1, [&] { return SecondsOf(CLOCK_MONOTONIC, ours); },
      [&] { return SecondsOf(CLOCK_MONOTONIC, bare); });
  const auto processorTime = [&](auto& work) {
    return SecondsOf(CLOCK_PROCESS_CPUTIME_ID, [&] {
      for (int64_t i = 0; i < state.max_iterations; ++i) work();
    });
  };
  state.counters["cpu_ratio"] = processorTime(ours) / processorTime(bare);
}

std::string ModuleBase64() {
  const std::string name = SOFTHSM_MODULE;
  std::string text(4 * name.size(), '\0');
  const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&text[0]),
                                   reinterpret_cast<const unsigned char*>(name.data()),
                                   static_cast<int>(name.size()));
  text.resize(static_cast<size_t>(size));
  return text;
}

void P1SignWithPin(benchmark::State& state) {
  const Hsm& hsm = TheHsm();
  const std::string keys = "<authinfo><liblist><lib type=\"P11\" dllname=\"" + ModuleBase64() +
                           "\"/></liblist></authinfo>";
  const HANDLE handle = VCTK_Initialize(keys.c_str());
  Must(VCTK_P1SignWithPin(handle, hsm.serial.c_str(), kPin, "abc", 0) == 0, "P1SignWithPin");
  InTurns(
      state, [&] { VCTK_P1SignWithPin(handle, hsm.serial.c_str(), kPin, "abc", 0); },
      [] { benchmark::DoNotOptimize(BareSignature()); });
  VCTK_Finalize(handle);
}

template <typename T>
CSmartObjPtr<T> Create(const char* factory) {
  static void* const library = dlopen(VELCRYPTO_PATH, RTLD_NOW);
  return CSmartObjPtr<T>(reinterpret_cast<T* (*)()>(dlsym(library, factory))());
}

CSmartObjPtr<IVELDeviceManager> NewManager() {
  auto manager = Create<IVELDeviceManager>("CreateUsbKeyInstance_DeviceManager");
  tag_VEL_KEY_INFO_EX key;
  key.CryptoInterfaceType = VEL_CRYPTO_INTERFACE_TYPE_P11;
  strcpy(key.InterfaceLibName, SOFTHSM_MODULE);
  CSmartList<tag_VEL_KEY_INFO_EX> keys;
  keys.AddItem(key);
  manager->AddKeyEx(&keys, TRUE);
  manager->Initialize(nullptr);
  return manager;
}

void LoggedIn(benchmark::State& state) {
  const Hsm& hsm = TheHsm();
  auto manager = NewManager();
  CSmartList<tag_VEL_CERT_INFO> certificates;
  CSmartList<tag_VEL_CERT_FILTER_ITEM> filters;
  const std::wstring serial(hsm.serial.begin(), hsm.serial.end());
  filters.AddItem({VEL_CERT_FILTER_SUBJECT_SN, serial.c_str()});
  manager->GetCertList(&filters, &certificates);
  Must(manager->KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE_LOGIN, hsm.serial.c_str(),
                                         VEL_PIN_CODE_TYPE_USER, kPin, nullptr, nullptr) == 0,
       "LOGIN");
  BYTE data[] = {'a', 'b', 'c'};
  CSmartBuffer signature;
  const auto sign = [&] {
    Must(manager->P1Sign(&certificates[0], VEL_HASH_ALG_SHA1, data, 3, &signature) == 0, "P1Sign");
  };
  const CK_SESSION_HANDLE session = hsm.Open(0);
  sign();
  Must(FindAndSign(session) == Bytes(signature.GetBytes(), signature.GetBytes() + 256),
       "equal signatures");
  InTurns(state, sign, [&] { benchmark::DoNotOptimize(FindAndSign(session)); });
  hsm.p11->C_CloseSession(session);
}

// Tokens of 1, 10 and 100 certificates are plugged in one after the other; both sides read all.
// After a pause threads and processors sleep.
void ListAfter(benchmark::State& state, std::chrono::milliseconds pause) {
  Hsm& hsm = TheHsm();
  const int64_t certificates = state.range(0);
  if (certificates == 11 && hsm.slots.size() < 2) hsm.Fill(10);
  if (certificates == 111 && hsm.slots.size() < 3) hsm.Fill(100);
  auto manager = NewManager();
  std::vector<CK_SESSION_HANDLE> sessions;
  for (size_t i = 0; i < hsm.slots.size(); ++i) sessions.push_back(hsm.Open(i));
  const auto ours = [&] {
    CSmartList<tag_VEL_CERT_INFO> list;
    manager->GetCertList(nullptr, &list);
    Must(list.GetCount() == certificates, "all certificates");
  };
  const auto bare = [&] {
    size_t count = 0;
    for (const CK_SESSION_HANDLE session : sessions) count += BareListing(session);
    Must(count == static_cast<size_t>(certificates), "all certificates");
  };
  ours();
  if (pause.count() == 0) {
    InTurns(state, ours, bare);
  } else {
    const auto rested = [&](auto& work) {
      std::this_thread::sleep_for(pause);
      return SecondsOf(CLOCK_MONOTONIC, work);
    };
    RunInTurns(
        state, 1, [&] { return rested(ours); }, [&] { return rested(bare); });
  }
  for (const CK_SESSION_HANDLE session : sessions) hsm.p11->C_CloseSession(session);
}

void ListingAfterAPause(benchmark::State& state) {
  ListAfter(state, std::chrono::milliseconds(2));
}

void Listing(benchmark::State& state) {
  ListAfter(state, std::chrono::milliseconds(0));
}

BENCHMARK(P1SignWithPin)->Unit(benchmark::kMillisecond)->Iterations(200)->UseRealTime();
BENCHMARK(LoggedIn)->Unit(benchmark::kMillisecond)->Iterations(300)->UseRealTime();
BENCHMARK(ListingAfterAPause)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(300)
    ->UseRealTime();
BENCHMARK(Listing)
    ->Arg(1)
    ->Arg(11)
    ->Arg(111)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(100)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
