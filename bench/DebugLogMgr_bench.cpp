// What a log line costs its caller and its writer in processor time, beside spdlog's asynchronous
// logger and beside the same file calls made by hand.
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
#include "InTurns.h"

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
  while (!Drained()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  // The last line was taken, but may be on its way.
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
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

// Time of the caller's own thread; what the writer does meanwhile is not the caller's.
const clockid_t kCaller = CLOCK_THREAD_CPUTIME_ID;

double Burst(void (*say)(int)) {
  return SecondsOf(kCaller, [&] {
    for (int line = 0; line < kBurst; ++line) say(line);
  });
}

void BurstOfLines(benchmark::State& state) {
  UseOwnFile();
  RunInTurns(
      state, kBurst,
      [] {
        const double took = Burst(Say);
        AwaitDrained();
        return took;
      },
      [] {
        const double took = Burst(SaySpdlog);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return took;
      });
}
BENCHMARK(BurstOfLines)->Iterations(300);

// Lines that come one at a time find the writer asleep, and wake it.
double SingleLine(void (*say)(int)) {
  const double took = SecondsOf(kCaller, [&] { say(1); });
  std::this_thread::sleep_for(std::chrono::microseconds(300));
  return took;
}

void SingleLines(benchmark::State& state) {
  UseOwnFile();
  RunInTurns(
      state, 1, [] { return SingleLine(Say); }, [] { return SingleLine(SaySpdlog); });
}
BENCHMARK(SingleLines)->Iterations(3000);

// What all the other threads of the process, here the writer, use while `work` runs.
template <typename Work>
double SecondsOfOthers(Work work) {
  double own = 0;
  const double all = SecondsOf(CLOCK_PROCESS_CPUTIME_ID, [&] { own = SecondsOf(kCaller, work); });
  return all - own;
}

const wchar_t kLine[] =
    L"[INFO] [P123456] [T-123456789] [2026-01-01 00:00:00:123456] "
    L"[VELClientTKImp.cpp-P1SignEx(100)]: Leave,Errorcode:123,a text of the usual length";

// Lines as statements queue them, but all before the writer wakes up, so that nothing of the
// callers' side is in the time.
double WriteQueued() {
  CDebugLogMgr& log = *CDebugLogMgr::GetInstance();
  LogCacheList* head = nullptr;
  LogCacheList* tail = nullptr;
  for (int count = 0; count < kBurst; ++count) {
    LogCacheList* const node = new LogCacheList();
    node->strLog = kLine;
    (tail != nullptr ? tail->next : head) = node;
    tail = node;
  }
  {
    const CVELCriticalGuard guard(log.m_csLogCache);
    log.m_logCacheHead = head;
    log.m_logCacheTail = tail;
  }
  return SecondsOfOthers([&] {
    sem_post(&log.m_sem);
    AwaitDrained();
  });
}

// The same calls in the same order, the look for a folder and the conversion included.
void WriteByHand(const char* path) {
  struct stat info;
  if (stat(path, &info) == 0 && S_ISDIR(info.st_mode)) abort();
  const int file = open(path, O_RDWR | O_CLOEXEC);
  char line[sizeof(kLine)];
  const size_t length = wcstombs(line, kLine, sizeof(line));
  if (fstat(file, &info) != 0 || lseek(file, info.st_size, SEEK_SET) < 0 ||
      write(file, line, length) < 0 || write(file, "\r\n\r\n", 4) < 0 || fdatasync(file) != 0 ||
      fstat(file, &info) != 0) {
    abort();
  }
  close(file);
}

double WriteAllByHand() {
  static const std::string path = [] {
    const std::string name = Folder() + "/hand.txt";
    close(open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    return name;
  }();
  return SecondsOfOthers([] {
    std::thread([] {
      for (int count = 0; count < kBurst; ++count) WriteByHand(path.c_str());
    }).join();
  });
}

void Writer(benchmark::State& state) {
  UseOwnFile();
  RunInTurns(state, kBurst, WriteQueued, WriteAllByHand);
}
BENCHMARK(Writer)->Iterations(100);

bool LinesArrive() {
  UseOwnFile();
  for (int line = 0; line < 3; ++line) Say(line);
  AwaitDrained();
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
