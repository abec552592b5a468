// One VCTK_P7SignStrEx of 100 MB given as base64, key store and RSA, beside OpenSSL's CMS_sign and
// CMS_final of the same bytes in memory plus the decoding of the same text. The peak of resident
// memory that each adds is reported as peak_MB.
#include <benchmark/benchmark.h>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
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

void Toolkit(benchmark::State& state) {
  const Setting& setting = TheSetting();
  const HANDLE handle = OpenSession(setting);
  const bool detached = state.range(0) != 0;
  long added = 0;
  for (auto _ : state) {
    const long before = ResetPeak();
    Require(VCTK_P7SignStrEx(handle, setting.base64.c_str(), 1, detached, 1) == 0, "not signed");
    added = PeakKb() - before;
  }
  if (!detached) CheckOnce(handle, setting);
  state.counters["peak_MB"] = static_cast<double>(added) / 1024;
  VCTK_Finalize(handle);
}

void OpenSslCms(benchmark::State& state) {
  const Setting& setting = TheSetting();
  const unsigned flags =
      CMS_BINARY | CMS_NOATTR | CMS_PARTIAL | (state.range(0) != 0 ? CMS_DETACHED : 0);
  long added = 0;
  for (auto _ : state) {
    const long before = ResetPeak();
    std::vector<unsigned char> content(setting.base64.size());
    EVP_DecodeBlock(content.data(), reinterpret_cast<const unsigned char*>(setting.base64.data()),
                    static_cast<int>(setting.base64.size()));
    BIO* const bio = BIO_new_mem_buf(content.data(), static_cast<int>(setting.content.size()));
    CMS_ContentInfo* const cms = CMS_sign(setting.identity.certificate.get(),
                                          setting.identity.key.get(), nullptr, bio, flags);
    Require(cms != nullptr && CMS_final(cms, bio, nullptr, flags) == 1, "CMS");
    added = PeakKb() - before;
    CMS_ContentInfo_free(cms);
    BIO_free(bio);
  }
  state.counters["peak_MB"] = static_cast<double>(added) / 1024;
}

BENCHMARK(Toolkit)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(OpenSslCms)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
