// One VCTK_P7SignStrEx of 100 MB given as base64, key store and RSA, beside OpenSSL's CMS_sign and
// CMS_final of the same bytes in memory plus the decoding of the same text. The peak of resident
// memory that each adds is reported as peak_MB.
#include <benchmark/benchmark.h>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "KeyMaker.h"
#include "vctk.h"

namespace {

const size_t kContentSize = 100u << 20;
const char kPin[] = "123456";

std::string Base64(const unsigned char* bytes, size_t size) {
  std::string text(4 * ((size + 2) / 3) + 1, '\0');
  text.resize(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes,
                              static_cast<int>(size)));
  return text;
}

struct Setting {
  keymaker::TemporaryFolder folder;
  keymaker::Identity identity;
  keymaker::Bytes content;
  std::string base64;

  Setting() : identity(keymaker::Make({})), content(kContentSize) {
    for (size_t i = 0; i < content.size(); ++i)
      content[i] = static_cast<unsigned char>(i * 131 >> 3);
    base64 = Base64(content.data(), content.size());
    keymaker::WriteFile(folder / "signer.p12", keymaker::Pkcs12(identity, kPin));
  }
  std::string KeyList() const {
    const auto* path = reinterpret_cast<const unsigned char*>(folder.path().data());
    return "<authinfo><liblist><lib type=\"CSP\" dllname=\"" + Base64(path, folder.path().size()) +
           "\"><algid val=\"SHA256\" sm2_hashalg=\"SM3\"/></lib></liblist></authinfo>";
  }
};

Setting& TheSetting() {
  static Setting setting;
  return setting;
}

// The peak of resident memory in KiB since the last reset.
long PeakKb() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::atol(line.c_str() + 6);
  }
  return 0;
}

long ResetPeak() {
  std::ofstream("/proc/self/clear_refs") << "5";
  return PeakKb();
}

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "P7Sign_bench: %s\n", what);
  std::exit(1);
}

HANDLE OpenSession(const Setting& setting) {
  const HANDLE handle = VCTK_Initialize(setting.KeyList().c_str());
  Require(handle != nullptr, "no session");
  Require(VCTK_SetCert(handle, setting.identity.SerialHex().c_str()) == 1, "no certificate");
  Require(VCTK_SetPinCode(handle, kPin) == 1, "no PIN");
  return handle;
}

void CheckOnce(HANDLE handle, const Setting& setting) {
  int length = 0;
  Require(VCTK_GetP7SignResult(handle, nullptr, &length) == 0, "no result");
  std::string base64(static_cast<size_t>(length), '\0');
  Require(VCTK_GetP7SignResult(handle, base64.data(), &length) == 0, "no result");
  std::vector<unsigned char> der(static_cast<size_t>(length));
  const int size =
      EVP_DecodeBlock(der.data(), reinterpret_cast<unsigned char*>(base64.data()), length);
  Require(size > static_cast<int>(setting.content.size()), "short result");
  const unsigned char* at = der.data();
  const std::unique_ptr<CMS_ContentInfo, void (*)(CMS_ContentInfo*)> cms(
      d2i_CMS_ContentInfo(nullptr, &at, size), CMS_ContentInfo_free);
  Require(cms != nullptr, "no PKCS#7");
  const int flags = CMS_NO_SIGNER_CERT_VERIFY | CMS_BINARY;
  Require(CMS_verify(cms.get(), nullptr, nullptr, nullptr, nullptr, flags) == 1, "bad signature");
}

struct Cost {
  double seconds = 0, processor = 0;
  long peak = 0;
};

double Now(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

template <typename Call>
Cost Measure(const Call& call) {
  Cost cost;
  const long before = ResetPeak();
  const double processor = Now(CLOCK_PROCESS_CPUTIME_ID), start = Now(CLOCK_MONOTONIC);
  call();
  cost.seconds = Now(CLOCK_MONOTONIC) - start;
  cost.processor = Now(CLOCK_PROCESS_CPUTIME_ID) - processor;
  cost.peak = PeakKb() - before;
  return cost;
}

// A process of its own for each measurement: what a host's first signature costs is paid but once.
template <typename Task>
void InFreshProcesses(benchmark::State& state, const Task& task) {
  TheSetting();
  double processor = 0;
  Cost cost;
  for (auto _ : state) {
    int ends[2];
    Require(pipe(ends) == 0, "no pipe");
    const pid_t child = fork();
    Require(child >= 0, "no process");
    if (child == 0) {
      cost = task();
      _exit(write(ends[1], &cost, sizeof cost) == sizeof cost ? 0 : 1);
    }
    close(ends[1]);
    Require(read(ends[0], &cost, sizeof cost) == sizeof cost, "the measurement died");
    close(ends[0]);
    waitpid(child, nullptr, 0);
    state.SetIterationTime(cost.seconds);
    processor += cost.processor;
  }
  state.counters["cpu_ms"] = processor * 1000 / static_cast<double>(state.iterations());
  state.counters["peak_MB"] = static_cast<double>(cost.peak) / 1024;
}

void Sign(HANDLE handle, const Setting& setting, bool detached) {
  const int code = VCTK_P7SignStrEx(handle, setting.base64.c_str(), 1, detached, 1);
  Require(code == 0, "not signed");
}

void Toolkit(benchmark::State& state) {
  const bool detached = state.range(0) != 0;
  const bool later = state.range(1) != 0;
  InFreshProcesses(state, [&] {
    const Setting& setting = TheSetting();
    const HANDLE handle = OpenSession(setting);
    if (later) Sign(handle, setting, detached);
    const Cost cost = Measure([&] { Sign(handle, setting, detached); });
    if (!detached) CheckOnce(handle, setting);
    VCTK_Finalize(handle);
    return cost;
  });
}

void SignByCms(const Setting& setting, bool detached) {
  const unsigned flags = CMS_BINARY | CMS_NOATTR | CMS_PARTIAL | (detached ? CMS_DETACHED : 0);
  std::vector<unsigned char> content(setting.base64.size());
  EVP_DecodeBlock(content.data(), reinterpret_cast<const unsigned char*>(setting.base64.data()),
                  static_cast<int>(setting.base64.size()));
  BIO* const bio = BIO_new_mem_buf(content.data(), static_cast<int>(setting.content.size()));
  CMS_ContentInfo* const cms =
      CMS_sign(setting.identity.certificate.get(), setting.identity.key.get(), nullptr, bio, flags);
  Require(cms != nullptr && CMS_final(cms, bio, nullptr, flags) == 1, "CMS");
  CMS_ContentInfo_free(cms);
  BIO_free(bio);
}

void OpenSslCms(benchmark::State& state) {
  const bool detached = state.range(0) != 0;
  const bool later = state.range(1) != 0;
  InFreshProcesses(state, [&] {
    const Setting& setting = TheSetting();
    if (later) SignByCms(setting, detached);
    return Measure([&] { SignByCms(setting, detached); });
  });
}

BENCHMARK(Toolkit)
    ->ArgNames({"detached", "later"})
    ->ArgsProduct({{0, 1}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(1)
    ->Repetitions(5);
BENCHMARK(OpenSslCms)
    ->ArgNames({"detached", "later"})
    ->ArgsProduct({{0, 1}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(1)
    ->Repetitions(5);

}  // namespace

BENCHMARK_MAIN();
