// The key store beside OpenSSL used directly: listing a folder of 1,000 PKCS#12 files, and signing
// 100 MB as PKCS#7.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <dlfcn.h>
#include <openssl/cms.h>
#include <openssl/pkcs12.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "KeyMaker.h"
#include "VELUsbKeyDll.h"

namespace {

const int kFiles = 1000;
const char kPin[] = "12345678";

struct Store {
  Store() {
    for (int i = 0; i < kFiles; ++i) {
      keymaker::Request request;
      request.kind = i % 4 == 3 ? keymaker::Kind::kSm2 : keymaker::Kind::kRsa;
      request.serial = std::to_string(100000 + i);
      request.subject = {{"C", "CN"},
                         {"O", "测试机构有限公司"},
                         {"OU", "业务部"},
                         {"CN", "张三" + std::to_string(i)}};
      request.keyUsage = "critical,digitalSignature,nonRepudiation";
      keymaker::WriteFile(folder / (request.serial + ".p12"),
                          keymaker::Pkcs12(keymaker::Make(request), kPin));
    }
    keymaker::Request request;
    signer = keymaker::Make(request);
    keymaker::WriteFile(single / "signer.p12", keymaker::Pkcs12(signer, kPin));
  }

  keymaker::TemporaryFolder folder, single;
  keymaker::Identity signer;
};

Store& TheStore() {
  static Store store;
  return store;
}

template <typename T>
CSmartObjPtr<T> Create(const char* factory) {
  static void* const library = dlopen(VELCRYPTO_PATH, RTLD_NOW);
  return CSmartObjPtr<T>(reinterpret_cast<T* (*)()>(dlsym(library, factory))());
}

CSmartObjPtr<IVELDeviceManager> NewManager(const std::string& folder) {
  auto manager = Create<IVELDeviceManager>("CreateUsbKeyInstance_DeviceManager");
  tag_VEL_KEY_INFO_EX key;
  folder.copy(key.InterfaceLibName, sizeof(key.InterfaceLibName) - 1);
  CSmartList<tag_VEL_KEY_INFO_EX> keys;
  keys.AddItem(key);
  manager->AddKeyEx(&keys, TRUE);
  manager->Initialize(nullptr);
  return manager;
}

long List(const std::string& folder) {
  CSmartObjPtr<IVELDeviceManager> manager = NewManager(folder);
  CSmartList<tag_VEL_CERT_INFO> certificates;
  manager->GetCertList(nullptr, &certificates);
  return certificates.GetCount();
}

// The certificates in the file, read without the PIN.
int ReadDirectly(const std::string& path) {
  const keymaker::Bytes file = keymaker::ReadFile(path);
  const unsigned char* at = file.data();
  PKCS12* const parsed = d2i_PKCS12(nullptr, &at, static_cast<long>(file.size()));
  STACK_OF(PKCS7)* const safes = PKCS12_unpack_authsafes(parsed);
  int found = 0;
  for (int i = 0; i < sk_PKCS7_num(safes); ++i) {
    STACK_OF(PKCS12_SAFEBAG)* const bags = PKCS12_unpack_p7data(sk_PKCS7_value(safes, i));
    for (int j = 0; j < sk_PKCS12_SAFEBAG_num(bags); ++j) {
      const PKCS12_SAFEBAG* const bag = sk_PKCS12_SAFEBAG_value(bags, j);
      if (PKCS12_SAFEBAG_get_nid(bag) != NID_certBag) continue;
      X509* const certificate = PKCS12_SAFEBAG_get1_cert(bag);
      found += certificate != nullptr && X509_get0_pubkey(certificate) != nullptr;
      X509_free(certificate);
    }
    sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free);
  }
  sk_PKCS7_pop_free(safes, PKCS7_free);
  PKCS12_free(parsed);
  return found;
}

long ListDirectly(const std::string& folder) {
  long found = 0;
  DIR* const stream = opendir(folder.c_str());
  while (const dirent* entry = readdir(stream)) {
    if (entry->d_name[0] != '.') found += ReadDirectly(folder + "/" + entry->d_name);
  }
  closedir(stream);
  return found;
}

void Check(benchmark::State& state, long count) {
  if (count != kFiles) state.SkipWithError("not all certificates were listed");
}

// What was listed is remembered by the name of the folder's family, so another spelling of the
// same folder starts with nothing.
void FirstListing(benchmark::State& state) {
  static std::string folder = TheStore().folder.path();
  for (auto _ : state) {
    folder += "/";
    Check(state, List(folder));
  }
}

void SecondListing(benchmark::State& state) {
  const std::string folder = TheStore().folder.path();
  List(folder);
  for (auto _ : state) Check(state, List(folder));
}

void OpenSslListing(benchmark::State& state) {
  const std::string folder = TheStore().folder.path();
  for (auto _ : state) Check(state, ListDirectly(folder));
}

BENCHMARK(OpenSslListing)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(FirstListing)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(SecondListing)->Unit(benchmark::kMillisecond)->UseRealTime();

const keymaker::Bytes& Content() {
  static const keymaker::Bytes content(100 << 20, 'x');
  return content;
}

keymaker::Bytes CmsOf(const keymaker::Bytes& data) {
  Store& store = TheStore();
  BIO* const in = BIO_new_mem_buf(data.data(), static_cast<int>(data.size()));
  const unsigned flags = CMS_BINARY | CMS_NOATTR;
  CMS_ContentInfo* const cms = CMS_sign(store.signer.certificate.get(), store.signer.key.get(),
                                        nullptr, in, flags | CMS_PARTIAL);
  CMS_final(cms, in, nullptr, flags);
  keymaker::Bytes der(static_cast<size_t>(i2d_CMS_ContentInfo(cms, nullptr)));
  unsigned char* at = der.data();
  i2d_CMS_ContentInfo(cms, &at);
  CMS_ContentInfo_free(cms);
  BIO_free(in);
  return der;
}

void OpenSslCms100MB(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(CmsOf(Content()));
}

void P7Sign100MB(benchmark::State& state) {
  CSmartObjPtr<IVELDeviceManager> manager = NewManager(TheStore().single.path());
  CSmartList<tag_VEL_CERT_INFO> certificates;
  manager->GetCertList(nullptr, &certificates);
  manager->KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE_LOGIN, "01", VEL_PIN_CODE_TYPE_USER,
                                    kPin, nullptr, nullptr);
  keymaker::Bytes data = Content();
  for (auto _ : state) {
    CSmartBuffer result;
    if (manager->P7Sign(&certificates[0], VEL_HASH_ALG_SHA256, FALSE, TRUE, data.data(),
                        data.size(), &result) != 0 ||
        result.GetSize() <= data.size()) {
      state.SkipWithError("no signature");
    }
  }
}

BENCHMARK(OpenSslCms100MB)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(P7Sign100MB)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
