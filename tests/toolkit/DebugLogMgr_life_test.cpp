// The debug log from its first statement to its end: hosts that end, fork and unload, and many
// threads at once.
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <locale.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "DebugLogMgr.h"
#include "LogHost.h"
#include "LogPrefix.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SANITIZED 1
#else
#define SANITIZED 0
#endif

namespace {
bool g_sleeps = false;
void (*g_inTheSecond)() = nullptr;
}  // namespace

// The end waits a second for the writer; most hosts here need not.
extern "C" unsigned sleep(unsigned seconds) {
  if (g_inTheSecond != nullptr) g_inTheSecond();
  if (g_sleeps) std::this_thread::sleep_for(std::chrono::seconds(seconds));
  return 0;
}

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

const char kLog[] = "/tmp/PILog.txt";
const char kLevelFile[] = "/var/log.ini";
const double kInTime = 60;  // seconds; a busy machine takes its time

#define INFO(...) \
  CDebugLogMgr::MacroHelper(L"[INFO] ", 1, L"host.cpp", L"Work", __LINE__)(__VA_ARGS__)
#define ERROR(...) \
  CDebugLogMgr::MacroHelper(L"[ERROR] ", 3, L"host.cpp", L"Work", __LINE__)(__VA_ARGS__)

std::string MessageOf(const std::string& line) {
  const size_t end = line.find("]: ");
  return end == std::string::npos ? "no message in " + line : line.substr(end + 3);
}

std::vector<std::string> Messages(const std::string& path = kLog) {
  std::vector<std::string> messages;
  for (const std::string& line : LogLines(path)) messages.push_back(MessageOf(line));
  return messages;
}

void AwaitMessages(size_t count) {
  AwaitLines(kLog, count);
}

// Between lines that have no end: lines come faster than they are written, and a test must not fill
// the memory while its other threads wait for a processor.
void LetTheWriterFollow() {
  Eventually([] {
    CDebugLogMgr& log = *CDebugLogMgr::GetInstance();
    const CVELCriticalGuard guard(log.m_csLogCache);
    int waiting = 0;
    for (const LogCacheList* line = log.m_logCacheHead; line != nullptr; line = line->next) {
      ++waiting;
    }
    return waiting < 100;
  });
}

class LogLife : public testing::Test {
 protected:
  void SetUp() override {
    Clean();
    ASSERT_EQ(chdir("/tmp"), 0);
    g_sleeps = false;
  }
  void TearDown() override { Clean(); }
  static void Clean() {
    for (const char* path : {kLog, kLevelFile}) remove(path);
  }
};

TEST_F(LogLife, HelperKeepsItsArgumentsAndEmptiesNulls) {
  const CDebugLogMgr::MacroHelper full(L"t", 7, L"s", L"f", 9);
  EXPECT_STREQ(full.m_strLogType, L"t");
  EXPECT_EQ(full.m_curLogLevel, 7);
  EXPECT_STREQ(full.m_strSrcFileName, L"s");
  EXPECT_STREQ(full.m_strSrcFunctionName, L"f");
  EXPECT_EQ(full.m_dwSrcLineNumber, 9u);
  const CDebugLogMgr::MacroHelper empty(nullptr, 0, nullptr, nullptr, 0);
  EXPECT_STREQ(empty.m_strLogType, L"");
  EXPECT_STREQ(empty.m_strSrcFileName, L"");
  EXPECT_STREQ(empty.m_strSrcFunctionName, L"");
}

TEST_F(LogLife, InfoAndErrorAppearWithoutALevelFile) {
  EXPECT_EQ(RunHost([] {
              INFO(L"one");
              ERROR(L"two");
              AwaitMessages(2);
            }),
            0);
  EXPECT_THAT(LogLines(kLog), ElementsAre(StartsWith("[INFO] [P"), StartsWith("[ERROR] [P")));
  EXPECT_THAT(Messages(), ElementsAre("one", "two"));
}

TEST_F(LogLife, LevelFileSilences) {
  Spill(kLevelFile, "[loginfo]\nlogLevel=3\n");
  RunHost([] {
    INFO(L"one");
    ERROR(L"two");
    AwaitMessages(1);
  });
  EXPECT_THAT(Messages(), ElementsAre("two"));
  Clean();
  Spill(kLevelFile, "[loginfo]\nlogLevel=4\n");
  RunHost([] {
    INFO(L"one");
    ERROR(L"two");
  });
  EXPECT_FALSE(Exists(kLog));
}

TEST_F(LogLife, PlainStringConversionsTakeWideTexts) {
  RunHost([] {
    INFO(L"%s-%s", L"\u4e2d", L"b");
    INFO(L"%ls|%hs|%S", L"wide", "narrow", L"upper");
    INFO(L"100%%s");
    INFO(L"%d %s %c", 7, L"x", L'y');
    INFO(L"");
    AwaitMessages(5);
  });
  // "%%s" is rewritten as well: nobody writes it, and the replacement knows no conversions.
  EXPECT_THAT(Messages(),
              ElementsAre("\xe4\xb8\xad-b", "wide|narrow|upper", "100%ls", "7 x y", ""));
}

TEST_F(LogLife, NullFormatLogsNothingAndNullPlacesAreEmpty) {
  RunHost([] {
    INFO(nullptr);
    CDebugLogMgr::MacroHelper(nullptr, 3, nullptr, nullptr, 5)(L"bare");
    AwaitMessages(1);
  });
  ASSERT_EQ(LogLines(kLog).size(), 1u);
  EXPECT_THAT(LogLines(kLog)[0], StartsWith("[P"));
  EXPECT_THAT(LogLines(kLog)[0], EndsWith("] [(5)]: bare"));
}

TEST_F(LogLife, EveryThreadsLinesAreWholeAndInOrder) {
  const int threads = 8;
  const int lines = 10000;
  EXPECT_EQ(RunHost([] {
              CDebugLogMgr::GetInstance()->SetTruncate(0, 0);
              std::vector<std::thread> loggers;
              for (int thread = 0; thread < threads; ++thread) {
                loggers.emplace_back([thread] {
                  for (int line = 0; line < lines; ++line) INFO(L"%d:%d:%s", thread, line, L"end");
                });
              }
              for (std::thread& logger : loggers) logger.join();
              Eventually([] {
                CDebugLogMgr& log = *CDebugLogMgr::GetInstance();
                const CVELCriticalGuard guard(log.m_csLogCache);
                return log.m_logCacheHead == nullptr;
              });
            }),
            0);
  std::map<int, int> next;
  size_t count = 0;
  for (const std::string& message : Messages()) {
    int thread = -1;
    int line = -1;
    char end[8] = {};
    ASSERT_EQ(sscanf(message.c_str(), "%d:%d:%3s", &thread, &line, end), 3) << message;
    ASSERT_EQ(line, next[thread]++) << "of thread " << thread;
    ASSERT_EQ(message, std::to_string(thread) + ":" + std::to_string(line) + ":end");
    ++count;
  }
  EXPECT_EQ(count, static_cast<size_t>(threads) * lines);
}

TEST_F(LogLife, LevelNameHeaderAndModeMayChangeWhileThreadsLog) {
  EXPECT_EQ(RunHost([] {
              CDebugLogMgr& log = *CDebugLogMgr::GetInstance();
              std::atomic<bool> done(false);
              std::vector<std::thread> loggers;
              for (int thread = 0; thread < 4; ++thread) {
                loggers.emplace_back([&] {
                  while (!done) {
                    INFO(L"x");
                    LetTheWriterFollow();
                  }
                });
              }
              for (int change = 0; change < 200; ++change) {
                Spill(kLevelFile, change % 2 == 0 ? "[loginfo]\nlogLevel=3\n" : "");
                log.GetLogLevel();
                log.SetLogFileName(change % 3 == 0 ? L"/tmp/PILog.txt" : L"/tmp/other.txt");
                log.SetLogHeader(change % 5 == 0 ? L"" : L"<h>");
                log.SetTruncate(10000, static_cast<DWORD>(change % 101));
                log.EnableGlobalMode(change % 2);
              }
              done = true;
              for (std::thread& logger : loggers) logger.join();
            }),
            0);
}

// How long exit() takes in a host that works like this; -1 when the host crashed.
double SecondsOfExit(const std::function<void()>& work) {
  static const char* const kResult = "/tmp/seconds";
  remove(kResult);
  const int code = RunHost([&] {
    static std::chrono::steady_clock::time_point start;
    // Registered before the log exists, so run when it is gone.
    atexit([] {
      const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
      Spill(kResult, std::to_string(took.count()));
    });
    work();
    start = std::chrono::steady_clock::now();
  });
  return code == 0 ? std::stod(Slurp(kResult)) : -1;
}

TEST_F(LogLife, ExitWithPendingLinesTakesTheSecond) {
  g_sleeps = true;
  const double seconds = SecondsOfExit([] {
    CDebugLogMgr::GetInstance()->SetTruncate(0, 0);
    for (int line = 0; line < 50000; ++line) INFO(L"%d", line);
  });
  EXPECT_GE(seconds, 1.0);
  EXPECT_LT(seconds, kInTime);
  const std::vector<std::string> messages = Messages();
  for (size_t i = 0; i < messages.size(); ++i) ASSERT_EQ(messages[i], std::to_string(i));
}

// A pipe without a reader stops the writer in the middle of its lines; the reader comes when the
// host is ending.
TEST_F(LogLife, WriterAtWorkGoesOnForTheSecond) {
  ASSERT_EQ(mkfifo(kLog, 0600), 0);
  static int reader;
  static size_t ends;
  EXPECT_EQ(RunHost([] {
              reader = open(kLog, O_RDWR | O_NONBLOCK);
              for (int line = 0; line < 100; ++line) INFO(L"%s", std::wstring(8000, L'x').c_str());
              int waiting = 0;
              if (!Eventually(
                      [&] { return ioctl(reader, FIONREAD, &waiting) == 0 && waiting > 50000; })) {
                _exit(2);
              }
              g_inTheSecond = [] {
                Eventually([] {
                  char bytes[65536];
                  const ssize_t count = read(reader, bytes, sizeof(bytes));
                  if (count > 0) ends += std::count(bytes, bytes + count, '\r');
                  return ends == 200;
                });
                _exit(ends == 200 ? 0 : 3);
              };
            }),
            0);
}

TEST_F(LogLife, HostThatNeverLoggedEndsAtOnce) {
  EXPECT_EQ(RunHost([] {
              g_inTheSecond = [] { _exit(3); };
              if (ThreadCount() > 1 + SANITIZED) _exit(1);
              if (strcmp(setlocale(LC_ALL, nullptr), "C") != 0) _exit(2);
            }),
            0);
  EXPECT_FALSE(Exists(kLog));
}

TEST_F(LogLife, ExitWithoutPendingLinesTakesTheSecond) {
  g_sleeps = true;
  const double seconds = SecondsOfExit([] {
    INFO(L"x");
    AwaitMessages(1);
  });
  EXPECT_GE(seconds, 1.0);
  EXPECT_LT(seconds, kInTime);
}

TEST_F(LogLife, ExitWhileOtherThreadsLogDoesNotCrash) {
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(RunHost([] {
                for (int thread = 0; thread < 6; ++thread) {
                  std::thread([] {
                    for (;;) {
                      INFO(L"%s", std::wstring(500, L'x').c_str());
                      std::this_thread::sleep_for(std::chrono::microseconds(20));
                    }
                  }).detach();
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
              }),
              0);
  }
}

TEST_F(LogLife, StatementsOfLaterDestructorsDoNothing) {
  EXPECT_EQ(RunHost([] {
              // Constructed before the log, so destroyed after it.
              static const struct Late {
                ~Late() {
                  INFO(L"late");
                  CDebugLogMgr::GetInstance();
                }
              } late;
              INFO(L"early");
              AwaitMessages(1);
            }),
            0);
  EXPECT_THAT(Messages(), ElementsAre("early"));
}

TEST_F(LogLife, WriterBlockedByAPipeHoldsUpNoExit) {
  g_sleeps = true;
  ASSERT_EQ(mkfifo(kLog, 0600), 0);
  const double seconds = SecondsOfExit([] {
    for (int line = 0; line < 100; ++line) INFO(L"%s", std::wstring(8000, L'x').c_str());
  });
  EXPECT_GE(seconds, 1.0);
  EXPECT_LT(seconds, kInTime);
}

TEST_F(LogLife, HostsSignalsAreNotDeliveredToTheWriter) {
  EXPECT_EQ(RunHost([] {
              INFO(L"x");
              AwaitMessages(1);
              sigset_t block;
              sigemptyset(&block);
              sigaddset(&block, SIGUSR1);
              pthread_sigmask(SIG_BLOCK, &block, nullptr);
              kill(getpid(), SIGUSR1);  // ends the process unless every thread blocks it
              int taken = 0;
              sigwait(&block, &taken);
              _exit(taken == SIGUSR1 ? 0 : 1);
            }),
            0);
}

TEST_F(LogLife, ForkedChildHasAWriterOfItsOwn) {
#if SANITIZED
  GTEST_SKIP() << "the sanitizers do not survive a fork among threads";
#endif
  EXPECT_EQ(RunHost([] {
              std::atomic<bool> done(false);
              CDebugLogMgr::GetInstance()->SetTruncate(0, 0);
              std::thread other([&] {
                while (!done) {
                  INFO(L"parent");
                  LetTheWriterFollow();
                }
              });
              for (int child = 0; child < 5; ++child) {
                const pid_t pid = fork();
                if (pid == 0) {
                  CDebugLogMgr::GetInstance()->SetLogFileName(L"/tmp/child.txt");
                  remove("/tmp/child.txt");
                  INFO(L"child %d", child);
                  const bool written = AwaitLines("/tmp/child.txt", 1).size() == 1;
                  _exit(written && MessageOf(LogLines("/tmp/child.txt")[0]) ==
                                       "child " + std::to_string(child)
                            ? 0
                            : 1);
                }
                int status = 0;
                waitpid(pid, &status, 0);
                if (status != 0) _exit(1);
              }
              done = true;
              other.join();
            }),
            0);
  for (const std::string& message : Messages()) ASSERT_EQ(message, "parent");
}

// The system library's lock of the time zone is not freed in a child.
TEST_F(LogLife, ForkedChildFindsNoTimeLockHeld) {
#if SANITIZED
  GTEST_SKIP() << "the sanitizers do not survive a fork among threads";
#endif
  EXPECT_EQ(RunHost([] {
              CDebugLogMgr::GetInstance();
              std::atomic<bool> done(false);
              LogPrefix prefix;
              std::thread other([&] {
                LogPrefix mine;
                while (!done) FormatLogPrefix(mine, L"a.cpp", L"f", 1);
              });
              for (int child = 0; child < 500; ++child) {
                const pid_t pid = fork();
                if (pid == 0) {
                  alarm(100);
                  _exit(FormatLogPrefix(prefix, L"a.cpp", L"f", 1) ? 0 : 1);
                }
                int status = 0;
                waitpid(pid, &status, 0);
                if (status != 0) _exit(1);
              }
              done = true;
              other.join();
            }),
            0);
}

TEST_F(LogLife, ForkedChildThatDoesNotLogEndsAtOnce) {
#if SANITIZED
  GTEST_SKIP() << "the sanitizers do not survive a fork among threads";
#endif
  EXPECT_EQ(RunHost([] {
              INFO(L"parent");
              AwaitMessages(1);
              const int child = RunHost([] { g_inTheSecond = [] { _exit(3); }; });
              if (child != 0) _exit(child);
            }),
            0);
}

// With those that the thread sanitizer adds to the first one.
size_t ThreadsOfNow() {
  std::string task;
  std::thread([&] { task = "/proc/self/task/" + std::to_string(gettid()); }).join();
  Eventually([&] { return !Exists(task); });
  return ThreadCount();
}

// The module holds the log behind one function, as the toolkit does, and is built without the
// second that the end waits: what is left is what really waits for the writer.
TEST_F(LogLife, HundredLoadsAndUnloadsLeaveNoThread) {
  EXPECT_EQ(RunHost([] {
              const size_t threads = ThreadsOfNow();
              for (int cycle = 0; cycle < 100; ++cycle) {
                void* const module = dlopen(LOG_MODULE, RTLD_NOW | RTLD_LOCAL);
                if (module == nullptr) _exit(2);
                const auto say = reinterpret_cast<void (*)(int)>(dlsym(module, "LogModuleSay"));
                std::thread other([&] { say(20); });
                say(20);
                other.join();
                dlclose(module);
                if (dlopen(LOG_MODULE, RTLD_NOW | RTLD_NOLOAD) != nullptr) _exit(3);
                if (!Eventually([&] { return ThreadCount() <= threads; })) _exit(4);
              }
              _exit(0);
            }),
            0);
}

TEST_F(LogLife, UnloadingWithABlockedWriterLeavesNoThread) {
  ASSERT_EQ(mkfifo(kLog, 0600), 0);
  EXPECT_EQ(RunHost([] {
              const size_t threads = ThreadsOfNow();
              void* const module = dlopen(LOG_MODULE, RTLD_NOW | RTLD_LOCAL);
              if (module == nullptr) _exit(2);
              reinterpret_cast<void (*)(int)>(dlsym(module, "LogModuleSay"))(2000);
              dlclose(module);
              _exit(Eventually([&] { return ThreadCount() <= threads; }) ? 0 : 4);
            }),
            0);
}

}  // namespace
