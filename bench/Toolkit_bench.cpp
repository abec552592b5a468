// The toolkit's own cost of one unattended signature, with a device that answers at once: the whole
// call beside the same operations on the device alone. Each call is timed by itself; the counters
// are the median and the 99th percentile in microseconds. The log line that every call writes is
// part of it, so this appends to /tmp/PILog.txt.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "FakeDevice.h"
#include "vctk.h"
#include "VELUsbKeyDll.h"

namespace {

const char kKeyList[] =
    "<authinfo><liblist><lib type=\"SKF\" dllname=\"bGlic2tmLnNv\"><algid val=\"SHA256\" "
    "sm2_hashalg=\"SM3\"/></lib></liblist></authinfo>";

void Require(bool holds, const char* what) {
  if (holds) return;
  fprintf(stderr, "%s\n", what);
  exit(1);
}

// A certificate of 1.5 KB in base64, as SM2 identities have, and a signature of their size.
void PlugIn() {
  FakeCert cert;
  cert.serial = L"3A5F00000000000012";
  cert.subject = L"CN=张三,OU=Signers,O=Example,C=CN";
  cert.base64 = std::wstring(2048, L'M');
  cert.asymmAlg = VEL_ASYMM_ALG_SM2;
  Fake().certs = {cert};
  Fake().p1Signature = std::string(71, 's');
  Fake().recording = false;
}

// Loaded by its path, the library is found by the bare name that the toolkit opens.
void LoadDevice() {
  Require(dlopen(FAKE_DEVICE, RTLD_NOW) != nullptr, "the fake device library is missing");
}

template <typename Call>
void TimeEachCall(benchmark::State& state, Call call) {
  using Clock = std::chrono::steady_clock;
  std::vector<double> microseconds;
  microseconds.reserve(1 << 16);
  for (auto _ : state) {
    const Clock::time_point start = Clock::now();
    call();
    const std::chrono::duration<double> seconds = Clock::now() - start;
    state.SetIterationTime(seconds.count());
    microseconds.push_back(seconds.count() * 1e6);
  }
  std::sort(microseconds.begin(), microseconds.end());
  state.counters["median_us"] = microseconds[microseconds.size() / 2];
  state.counters["p99_us"] = microseconds[microseconds.size() * 99 / 100];
}

void CheckResult(HANDLE handle, const std::string& data) {
  Fake().recording = true;
  Require(VCTK_P1SignWithPin(handle, "3A5F00000000000012", "123456", data.c_str(), 0) == 0,
          "the signature fails");
  char json[4096];
  int length = sizeof(json);
  Require(VCTK_GetP1SignResultWithPin(handle, json, &length) == 0, "there is no result");
  Require(std::string(json).find("\"signalgid\":\"SM2\"") != std::string::npos, "a wrong result");
  const std::string signing = "P1Sign(3A5F00000000000012, 6, " + data + ")";
  Require(std::count(Fake().calls.begin(), Fake().calls.end(), signing) == 1, "other data signed");
  Fake().calls.clear();
  Fake().recording = false;
}

void SignOneKilobyteWithPin(benchmark::State& state) {
  const std::string data(1024, 'x');
  const HANDLE handle = VCTK_Initialize(kKeyList);
  Require(handle != nullptr, "no session");
  CheckResult(handle, data);
  TimeEachCall(
      state, [&] { VCTK_P1SignWithPin(handle, "3A5F00000000000012", "123456", data.c_str(), 0); });
  VCTK_Finalize(handle);
}
BENCHMARK(SignOneKilobyteWithPin)
    ->UseManualTime()
    ->Iterations(20000)
    ->Unit(benchmark::kMicrosecond);

void TheSameOperationsOnTheDeviceAlone(benchmark::State& state) {
  std::string data(1024, 'x');
  CVELUsbKey loader;
  Require(loader.LoadDll(L"libVELCrypto64.so") == 0, "no device library");
  CSmartList<tag_VEL_KEY_INFO_EX> keys;
  keys.AddItem(tag_VEL_KEY_INFO_EX());
  TimeEachCall(state, [&] {
    CSmartObjPtr<IVELDeviceManager> manager(loader.CreateDeviceManagerInstance());
    CSmartList<tag_VEL_CERT_FILTER_ITEM> filters;
    CSmartList<tag_VEL_CERT_INFO> certs;
    VEL_PIN_INFO info = {};
    CSmartBuffer signature;
    manager->AddKeyEx(&keys, TRUE);
    manager->Initialize(&loader);
    manager->GetCertList(&filters, &certs);
    manager->EnablePinStatusCheck(FALSE);
    manager->KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE_LOGIN, "3A5F00000000000012",
                                      VEL_PIN_CODE_TYPE_USER, "123456", nullptr, &info);
    manager->P1Sign(&certs.GetItem(0), VEL_HASH_ALG_SM3, reinterpret_cast<BYTE*>(data.data()),
                    data.size(), &signature);
    manager->KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE_LOGOUT, "3A5F00000000000012",
                                      VEL_PIN_CODE_TYPE_USER, nullptr, nullptr, &info);
  });
}
BENCHMARK(TheSameOperationsOnTheDeviceAlone)
    ->UseManualTime()
    ->Iterations(20000)
    ->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  setlocale(LC_ALL, "C.UTF-8");
  PlugIn();
  LoadDevice();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
