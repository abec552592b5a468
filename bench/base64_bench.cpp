// The codec between bytes and wide text beside OpenSSL's with a loop that widens or narrows. The
// peer writes into buffers that are there already; the codec allocates its result each time.
#include "base64.h"

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

typedef std::vector<unsigned char> Bytes;

Bytes Input(size_t n) {
  std::mt19937 random(1);
  Bytes bytes(n);
  for (auto& byte : bytes) byte = static_cast<unsigned char>(random());
  return bytes;
}

struct Peer {
  explicit Peer(size_t n) : narrow(n / 3 * 4 + 8), wide(n / 3 * 4 + 8), bytes(n + 8) {}

  size_t Encode(const Bytes& in) {
    const int length = EVP_EncodeBlock(narrow.data(), in.data(), static_cast<int>(in.size()));
    const size_t count = static_cast<size_t>(length);
    for (size_t i = 0; i < count; ++i) wide[i] = narrow[i];
    benchmark::DoNotOptimize(wide.data());
    benchmark::ClobberMemory();
    return count;
  }

  // The bytes of the padding are counted too.
  size_t Decode(const std::wstring& text) {
    for (size_t i = 0; i < text.size(); ++i) narrow[i] = static_cast<unsigned char>(text[i]);
    const int length = EVP_DecodeBlock(bytes.data(), narrow.data(), static_cast<int>(text.size()));
    benchmark::ClobberMemory();
    return static_cast<size_t>(length);
  }

  Bytes narrow;
  std::vector<wchar_t> wide;
  Bytes bytes;
};

void Equal(bool equal) {
  if (equal) return;
  fprintf(stderr, "the codec and the peer differ\n");
  exit(1);
}

void CheckResults(size_t n) {
  const Bytes in = Input(n);
  Peer peer(n);
  CBase64 codec;
  const std::wstring text = codec.Encode(in.data(), in.size(), 0, 64);
  Equal(text == std::wstring(peer.wide.data(), peer.Encode(in)));
  unsigned long length = 0;
  const unsigned char* const bytes = codec.Decode(text.c_str(), &length);
  Equal(Bytes(bytes, bytes + length) == in);
  Equal(peer.Decode(text) >= n && std::equal(in.begin(), in.end(), peer.bytes.begin()));
}

void EncodeOurs(benchmark::State& state) {
  const Bytes in = Input(static_cast<size_t>(state.range(0)));
  CBase64 codec;
  for (auto _ : state) benchmark::DoNotOptimize(codec.Encode(in.data(), in.size(), 0, 64));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void EncodePeer(benchmark::State& state) {
  const Bytes in = Input(static_cast<size_t>(state.range(0)));
  Peer peer(in.size());
  for (auto _ : state) benchmark::DoNotOptimize(peer.Encode(in));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

std::wstring Text(benchmark::State& state, unsigned long flags) {
  const Bytes in = Input(static_cast<size_t>(state.range(0)));
  CBase64 codec;
  return codec.Encode(in.data(), in.size(), flags, 64);
}

void Decode(benchmark::State& state, unsigned long flags) {
  const std::wstring text = Text(state, flags);
  CBase64 codec;
  unsigned long length = 0;
  for (auto _ : state) benchmark::DoNotOptimize(codec.Decode(text.c_str(), &length));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
void DecodeOurs(benchmark::State& state) {
  Decode(state, 0);
}
void DecodeOursWithLines(benchmark::State& state) {
  Decode(state, CBase64::LINE_BREAKS);
}

void DecodePeer(benchmark::State& state) {
  const std::wstring text = Text(state, 0);
  Peer peer(static_cast<size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(peer.Decode(text));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

#define SIZES Arg(4096)->Arg(1 << 20)
BENCHMARK(EncodeOurs)->SIZES;
BENCHMARK(EncodePeer)->SIZES;
BENCHMARK(DecodeOurs)->SIZES;
BENCHMARK(DecodePeer)->SIZES;
BENCHMARK(DecodeOursWithLines)->SIZES;

}  // namespace

int main(int argc, char** argv) {
  for (const size_t n : {1, 2, 3, 4096, 1 << 20}) CheckResults(n);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
