// What a log line costs its caller and its writer, beside spdlog's asynchronous logger and beside
// the same file calls made by hand.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "DebugLogMgr.h"

namespace {

const int kBurst = 1000;

// In memory, so that the disk has no say.
std::string Folder() {
  static const std::string folder = [] {
    char name[] = "/dev/shm/DebugLogMgr_bench.XXXXXX";
    if (mkdtemp(name) == nullptr) abort();
    return std::string(name);
  }();
  return folder;
}

void Say(int number) {
  CDebugLogMgr::MacroHelper(L"[INFO] ", 1, L"VELClientTKImp.cpp", L"P1SignEx", __LINE__)(
      L"Leave,Errorcode:%d,%s", number, L"a text of the usual length");
}

bool Drained() {
  CDebugLogMgr& log = *CDebugLogMgr::GetInstance();
  const CVELCriticalGuard guard(log.m_csLogCache);
  return log.m_logCacheHead == nullptr;
}

void AwaitDrained() {
  while (!Drained()) std::this_thread::yield();
}

void UseOwnFile() {
  CDebugLogMgr& log = *CDebugLogMgr::GetInstance();
  const std::string path = Folder() + "/log.txt";
  log.SetLogFileName(std::wstring(path.begin(), path.end()).c_str());
  log.SetTruncate(0, 0);
}

std::shared_ptr<spdlog::logger> Spdlog() {
  static const std::shared_ptr<spdlog::logger> logger = [] {
    spdlog::init_thread_pool(1 << 16, 1);
    auto made = spdlog::basic_logger_mt<spdlog::async_factory>("bench", Folder() + "/spdlog.txt");
    made->set_pattern("[INFO] [P%P] [T%t] [%Y-%m-%d %H:%M:%S:%f] [%s-%!(%#)]: %v");
    made->flush_on(spdlog::level::info);
    return made;
  }();
  return logger;
}

void SaySpdlog(int number) {
  Spdlog()->log(spdlog::source_loc{"VELClientTKImp.cpp", __LINE__, "P1SignEx"}, spdlog::level::info,
                "Leave,Errorcode:{},{}", number, "a text of the usual length");
}

void BurstOfLines(benchmark::State& state) {
  UseOwnFile();
  for (auto _ : state) {
    for (int line = 0; line < kBurst; ++line) Say(line);
    state.PauseTiming();
    AwaitDrained();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kBurst);
}
BENCHMARK(BurstOfLines);

void BurstOfSpdlogLines(benchmark::State& state) {
  for (auto _ : state) {
    for (int line = 0; line < kBurst; ++line) SaySpdlog(line);
    state.PauseTiming();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kBurst);
}
BENCHMARK(BurstOfSpdlogLines);

// Lines that come one at a time find the writer asleep, and wake it.
template <void (*say)(int)>
void SingleLines(benchmark::State& state) {
  UseOwnFile();
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    say(1);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(took.count());
    std::this_thread::sleep_for(std::chrono::microseconds(300));
  }
}
BENCHMARK_TEMPLATE(SingleLines, Say)->UseManualTime()->Iterations(3000);
BENCHMARK_TEMPLATE(SingleLines, SaySpdlog)->UseManualTime()->Iterations(3000);

// The writer alone: from the first of many lines that are queued until the last is written.
void WriterOfLines(benchmark::State& state) {
  UseOwnFile();
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    for (int line = 0; line < kBurst; ++line) Say(line);
    AwaitDrained();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(took.count());
  }
  state.SetItemsProcessed(state.iterations() * kBurst);
}
BENCHMARK(WriterOfLines)->UseManualTime();

void WriteByHand(const std::string& path, const std::string& line) {
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  struct stat info;
  if (fstat(file, &info) != 0 || lseek(file, info.st_size, SEEK_SET) < 0 ||
      write(file, line.data(), line.size()) < 0 || write(file, "\r\n\r\n", 4) < 0 ||
      fdatasync(file) != 0 || fstat(file, &info) != 0) {
    abort();
  }
  close(file);
}

void WriterByHand(benchmark::State& state) {
  const std::string path = Folder() + "/hand.txt";
  const std::string line =
      "[INFO] [P123456] [T-123456789] [2026-01-01 00:00:00:123456] "
      "[VELClientTKImp.cpp-P1SignEx(100)]: Leave,Errorcode:123,a text of the usual length";
  for (auto _ : state) {
    for (int count = 0; count < kBurst; ++count) WriteByHand(path, line);
  }
  state.SetItemsProcessed(state.iterations() * kBurst);
}
BENCHMARK(WriterByHand)->UseRealTime();

bool LinesArrive() {
  UseOwnFile();
  for (int line = 0; line < 3; ++line) Say(line);
  AwaitDrained();
  usleep(100000);  // the last line was taken, but may be on its way
  std::ifstream file(Folder() + "/log.txt", std::ios::binary);
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  const std::string end = "Leave,Errorcode:2,a text of the usual length\r\n\r\n";
  return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (!LinesArrive()) {
    fprintf(stderr, "the lines did not reach the file\n");
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  for (const char* name : {"/log.txt", "/spdlog.txt", "/hand.txt"}) {
    remove((Folder() + name).c_str());
  }
  rmdir(Folder().c_str());
}
