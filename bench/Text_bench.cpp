// The text conversions beside the system library's, 1 MB of ASCII, of Chinese and of a mixture as
// certificate names have it. The system library needs a UTF-8 locale and knows nothing of bad
// sequences; the results are compared once before the clock starts.
#include <benchmark/benchmark.h>
#include <locale.h>
#include <stdlib.h>

#include <string>

#include "VELInterface.h"

namespace {

constexpr size_t kSize = 1 << 20;

const char* const kUnits[] = {
    "The quick brown fox jumps over the lazy dog, 0123456789. ",
    "\xE7\xAD\xBE\xE5\x90\x8D\xE8\xAF\x81\xE4\xB9\xA6\xE5\xB7\xB2\xE8\xBF\x87\xE6\x9C\x9F",
    "CN=\xE5\xBC\xA0\xE4\xB8\x89 1010, OU=\xE8\xB4\xA2\xE5\x8A\xA1\xE5\xA4\x84, O=Example Ltd, "
    "C=CN; ",
};

std::string Narrow(int kind) {
  std::string text;
  while (text.size() < kSize) text += kUnits[kind];
  return text;
}

std::wstring Wide(const std::string& narrow) {
  std::wstring wide(narrow.size(), 0);
  wide.resize(mbstowcs(wide.data(), narrow.c_str(), wide.size() + 1));
  return wide;
}

void Finish(benchmark::State& state, size_t bytes) {
  static const char* const kNames[] = {"ASCII", "Chinese", "mixed"};
  state.SetLabel(kNames[state.range(0)]);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

void OurToWide(benchmark::State& state) {
  const std::string narrow = Narrow(static_cast<int>(state.range(0)));
  const std::wstring expected = Wide(narrow);
  std::wstring target(expected.size(), 0);
  const int room = static_cast<int>(target.size()) + 1;
  if (MultiByteToWideChar(CP_ACP, 0, narrow.c_str(), -1, target.data(), room) != room ||
      target != expected) {
    state.SkipWithError("differs from mbstowcs");
    return;
  }
  for (auto _ : state) {
    MultiByteToWideChar(CP_ACP, 0, narrow.c_str(), -1, target.data(), room);
    benchmark::ClobberMemory();
  }
  Finish(state, narrow.size());
}

void SystemToWide(benchmark::State& state) {
  const std::string narrow = Narrow(static_cast<int>(state.range(0)));
  std::wstring target(Wide(narrow).size(), 0);
  for (auto _ : state) {
    mbstowcs(target.data(), narrow.c_str(), target.size() + 1);
    benchmark::ClobberMemory();
  }
  Finish(state, narrow.size());
}

void OurToNarrow(benchmark::State& state) {
  const std::string expected = Narrow(static_cast<int>(state.range(0)));
  const std::wstring wide = Wide(expected);
  std::string target(expected.size(), 0);
  const int room = static_cast<int>(target.size()) + 1;
  if (WideCharToMultiByte(CP_ACP, 0, wide.c_str(), -1, target.data(), room, nullptr, nullptr) !=
          room ||
      target != expected) {
    state.SkipWithError("differs from wcstombs");
    return;
  }
  for (auto _ : state) {
    WideCharToMultiByte(CP_ACP, 0, wide.c_str(), -1, target.data(), room, nullptr, nullptr);
    benchmark::ClobberMemory();
  }
  Finish(state, expected.size());
}

void SystemToNarrow(benchmark::State& state) {
  std::string target = Narrow(static_cast<int>(state.range(0)));
  const std::wstring wide = Wide(target);
  for (auto _ : state) {
    wcstombs(target.data(), wide.c_str(), target.size() + 1);
    benchmark::ClobberMemory();
  }
  Finish(state, target.size());
}

void OurCount(benchmark::State& state) {
  const std::string narrow = Narrow(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(MultiByteToWideChar(CP_ACP, 0, narrow.c_str(), -1, nullptr, 0));
  }
  Finish(state, narrow.size());
}

void SystemCount(benchmark::State& state) {
  const std::string narrow = Narrow(static_cast<int>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(mbstowcs(nullptr, narrow.c_str(), 0));
  Finish(state, narrow.size());
}

// Before the benchmarks run: without a UTF-8 locale the peer converts nothing.
const bool g_hasLocale = [] {
  if (setlocale(LC_ALL, "C.UTF-8") != nullptr) return true;
  abort();
}();

}  // namespace

BENCHMARK(OurToWide)->DenseRange(0, 2);
BENCHMARK(SystemToWide)->DenseRange(0, 2);
BENCHMARK(OurToNarrow)->DenseRange(0, 2);
BENCHMARK(SystemToNarrow)->DenseRange(0, 2);
BENCHMARK(OurCount)->DenseRange(0, 2);
BENCHMARK(SystemCount)->DenseRange(0, 2);
BENCHMARK_MAIN();
