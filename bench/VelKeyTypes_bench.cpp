// Filling and copying a list of 1,000 certificate records, beside the same texts in standard
// strings and a standard vector.
#include "VelKeyTypes.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr int CERTIFICATES = 1000;
constexpr int TEXTS = 17;

CVelStringW tag_VEL_CERT_INFO::*const MEMBERS[TEXTS] = {
    &tag_VEL_CERT_INFO::VELCertUniqueID, &tag_VEL_CERT_INFO::SubjectCN,
    &tag_VEL_CERT_INFO::SubjectDN,       &tag_VEL_CERT_INFO::IssuerCN,
    &tag_VEL_CERT_INFO::IssuerDN,        &tag_VEL_CERT_INFO::IssuerReverseDN,
    &tag_VEL_CERT_INFO::SerialNumber,    &tag_VEL_CERT_INFO::CertBase64,
    &tag_VEL_CERT_INFO::SubjectEmail,    &tag_VEL_CERT_INFO::InterfaceLibName,
    &tag_VEL_CERT_INFO::Version,         &tag_VEL_CERT_INFO::ApplicationName,
    &tag_VEL_CERT_INFO::ContainerName,   &tag_VEL_CERT_INFO::DeviceName,
    &tag_VEL_CERT_INFO::UserPin,         &tag_VEL_CERT_INFO::AdminPin,
    &tag_VEL_CERT_INFO::ProvName};

// Names of 20 to 60 characters, no PINs, a certificate of 1.5 KB in base64.
std::wstring TextOf(int member) {
  if (MEMBERS[member] == &tag_VEL_CERT_INFO::CertBase64) return std::wstring(2048, L'M');
  if (MEMBERS[member] == &tag_VEL_CERT_INFO::UserPin) return L"";
  if (MEMBERS[member] == &tag_VEL_CERT_INFO::AdminPin) return L"";
  return std::wstring(static_cast<size_t>(20 + member * 40 / TEXTS), L'n');
}

struct PeerRecord {
  std::wstring texts[TEXTS];
};

tag_VEL_CERT_INFO Record() {
  tag_VEL_CERT_INFO record;
  for (int i = 0; i < TEXTS; ++i) record.*MEMBERS[i] = TextOf(i).c_str();
  return record;
}

PeerRecord Peer() {
  PeerRecord record;
  for (int i = 0; i < TEXTS; ++i) record.texts[i] = TextOf(i);
  return record;
}

void FillList(benchmark::State& state) {
  const tag_VEL_CERT_INFO record = Record();
  for (auto _ : state) {
    CSmartList<tag_VEL_CERT_INFO> list;
    for (int i = 0; i < CERTIFICATES; ++i) list.AddItem(record);
    benchmark::DoNotOptimize(list.GetCount());
  }
}

void FillVectorOfPeers(benchmark::State& state) {
  const PeerRecord record = Peer();
  for (auto _ : state) {
    std::vector<PeerRecord> list;
    for (int i = 0; i < CERTIFICATES; ++i) list.push_back(record);
    benchmark::DoNotOptimize(list.data());
  }
}

void AssignList(benchmark::State& state) {
  CSmartList<tag_VEL_CERT_INFO> list, copy;
  for (int i = 0; i < CERTIFICATES; ++i) list.AddItem(Record());
  for (auto _ : state) {
    copy = list;
    benchmark::DoNotOptimize(copy.GetCount());
  }
}

void AssignVectorOfPeers(benchmark::State& state) {
  const std::vector<PeerRecord> list(CERTIFICATES, Peer());
  std::vector<PeerRecord> copy;
  for (auto _ : state) {
    copy.clear();
    for (const PeerRecord& record : list) copy.push_back(record);
    benchmark::DoNotOptimize(copy.data());
  }
}

BENCHMARK(FillList)->Unit(benchmark::kMicrosecond);
BENCHMARK(FillVectorOfPeers)->Unit(benchmark::kMicrosecond);
BENCHMARK(AssignList)->Unit(benchmark::kMicrosecond);
BENCHMARK(AssignVectorOfPeers)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  const tag_VEL_CERT_INFO copy(Record());
  for (int i = 0; i < TEXTS; ++i) {
    if (static_cast<const wchar_t*>(copy.*MEMBERS[i]) == Peer().texts[i]) continue;
    fprintf(stderr, "a copy differs from its record\n");
    return EXIT_FAILURE;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return EXIT_SUCCESS;
}
