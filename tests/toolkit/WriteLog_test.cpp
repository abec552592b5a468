#include "WriteLog.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <locale.h>
#include <pthread.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

const char kLog[] = "/tmp/PILog.txt";
const char kMarker[] = "/tmp/testPipe";
const char kTrace[] = "/tmp/pipe.log";

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

void Spill(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string OwnPrefix() {
  return "[" + std::to_string(getpid()) + " " +
         std::to_string(static_cast<unsigned>(pthread_self())) + "d]";
}

class WriteLog : public testing::Test {
 protected:
  void SetUp() override {
    setlocale(LC_ALL, "C.UTF-8");
    Clean();
  }
  void TearDown() override {
    setlocale(LC_ALL, "C.UTF-8");
    Clean();
  }
  static void Clean() {
    remove(kLog);
    remove(kMarker);
    remove(kTrace);
  }
};

TEST_F(WriteLog, LineHasDateProcessThreadLevelAndMessage) {
  pv_log(3, L"code %d", 42);
  const std::string line = Slurp(kLog);
  EXPECT_THAT(line, MatchesRegex("\\[[0-3][0-9]/[A-Z][a-z][a-z]/20[0-9][0-9]:[0-2][0-9]:[0-5][0-9]:"
                                 "[0-6][0-9] UTC\\] \\[[0-9]+ [0-9]+d\\]\\[ERRO\\]code 42\n"));
  EXPECT_THAT(line, HasSubstr("] " + OwnPrefix() + "[ERRO]"));
}

TEST_F(WriteLog, DateIsNow) {
  const time_t before = time(nullptr);
  pv_log(0, L"x");
  const time_t after = time(nullptr);
  tm parsed = {};
  ASSERT_NE(strptime(Slurp(kLog).c_str(), "[%d/%b/%Y:%H:%M:%S", &parsed), nullptr);
  const time_t written = timegm(&parsed);
  EXPECT_GE(written, before);
  EXPECT_LE(written, after);
}

TEST_F(WriteLog, ChangedZoneIsThatOfTheNextLine) {
  Spill(kMarker, "");
  for (const char* zone : {"FAR-5", "UTC0"}) {
    setenv("TZ", zone, 1);
    pv_log(0, L"x");
    pv_logEx("x");
  }
  setenv("TZ", "UTC", 1);
  const std::string dates = Slurp(kLog), trace = Slurp(kTrace);
  tm first = {}, second = {};
  ASSERT_NE(strptime(dates.c_str(), "[%d/%b/%Y:%H:%M:%S FAR]", &first), nullptr);
  ASSERT_NE(strptime(dates.c_str() + dates.find('\n') + 1, "[%d/%b/%Y:%H:%M:%S UTC]", &second),
            nullptr);
  EXPECT_NEAR(difftime(timegm(&first), timegm(&second)), 5 * 3600, 60);
  const auto traced = [&](size_t at, tm& out) {
    const size_t date = trace.find("] [20", at);
    return date != std::string::npos && strptime(&trace[date], "] [%Y-%m-%d %H:%M:%S", &out);
  };
  ASSERT_TRUE(traced(0, first) && traced(trace.find('\n'), second)) << trace;
  EXPECT_NEAR(difftime(timegm(&first), timegm(&second)), 5 * 3600, 60);
}

TEST_F(WriteLog, LevelsHaveTheseNames) {
  const struct {
    int level;
    const char* name;
  } cases[] = {{0, "[INFO]"}, {1, "[DEBU]"}, {2, "[WARN]"},  {3, "[ERRO]"},
               {4, "[INFO]"}, {7, "[INFO]"}, {-1, "[INFO]"}, {-2147483647 - 1, "[INFO]"}};
  for (const auto& c : cases) {
    remove(kLog);
    pv_log(c.level, L"m");
    EXPECT_THAT(Slurp(kLog), EndsWith(std::string(c.name) + "m\n")) << c.level;
  }
}

TEST_F(WriteLog, LinesAreAppended) {
  Spill(kLog, "before\n");
  pv_log(0, L"one");
  pv_log(0, L"two");
  EXPECT_THAT(Slurp(kLog), StartsWith("before\n["));
  EXPECT_THAT(Slurp(kLog), MatchesRegex("before\n.*one\n.*two\n"));
}

TEST_F(WriteLog, WideTextIsWrittenInTheLocale) {
  pv_log(1, L"%ls", L"\u4e2d\u6587");
  EXPECT_THAT(Slurp(kLog), EndsWith("[DEBU]\xe4\xb8\xad\xe6\x96\x87\n"));
}

TEST_F(WriteLog, MessageThatTheLocaleCannotExpressLeavesThePrefixAlone) {
  setlocale(LC_ALL, "C");
  pv_log(3, L"x%ls", L"\u4e2d");
  EXPECT_THAT(Slurp(kLog), EndsWith("] " + OwnPrefix()));
}

TEST_F(WriteLog, MessageIsCutAt4095Characters) {
  pv_log(0, L"%ls", std::wstring(4095, L'a').c_str());
  EXPECT_THAT(Slurp(kLog), EndsWith("[INFO]" + std::string(4095, 'a') + "\n"));
  for (const size_t length : {4096, 4097, 20000}) {
    remove(kLog);
    pv_log(0, L"%ls", std::wstring(length, L'b').c_str());
    EXPECT_THAT(Slurp(kLog), EndsWith("[INFO]" + std::string(4095, 'b') + "\n")) << length;
  }
}

TEST_F(WriteLog, CutMessageOfLongCharactersIsWhole) {
  pv_log(0, L"%ls", std::wstring(5000, L'\u4e2d').c_str());
  const std::string text = Slurp(kLog);
  const size_t start = text.find("[INFO]") + 6;
  EXPECT_EQ(text.size() - start, 4095u * 3 + 1);
}

TEST_F(WriteLog, FileThatCannotBeOpenedIsSaidOnStandardOutput) {
  ASSERT_EQ(mkdir(kLog, 0700), 0);
  testing::internal::CaptureStdout();
  EXPECT_EQ(pv_init_log(), nullptr);
  pv_log(0, L"lost");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "system error: error to open log file[/tmp/PILog.txt].\n"
            "system error: error to open log file[/tmp/PILog.txt].\n");
}

TEST_F(WriteLog, InitGivesAStreamThatAppends) {
  Spill(kLog, "abc");
  FILE* const file = pv_init_log();
  ASSERT_NE(file, nullptr);
  fputs("def", file);
  pv_uninit(file);
  pv_uninit(nullptr);
  EXPECT_EQ(Slurp(kLog), "abcdef");
}

TEST_F(WriteLog, ErrnoStays) {
  Spill(kMarker, "");
  errno = 77;
  pv_log(0, L"x");
  pv_logEx("x");
  remove(kMarker);
  pv_logEx("x");
  EXPECT_EQ(errno, 77);
}

TEST_F(WriteLog, TraceNeedsItsMarker) {
  pv_logEx("nothing");
  EXPECT_NE(access(kTrace, F_OK), 0);
  Spill(kMarker, "");
  pv_logEx("something");
  EXPECT_EQ(access(kTrace, F_OK), 0);
}

TEST_F(WriteLog, TraceLineHasProcessThreadTimeAndMessage) {
  Spill(kMarker, "");
  pv_logEx("port =%d %s", 8766, "end");
  const std::string line = Slurp(kTrace);
  EXPECT_THAT(line,
              MatchesRegex("\\[P[0-9]+\\] \\[T-?[0-9]+\\] \\[20[0-9][0-9]-[01][0-9]-[0-3][0-9] "
                           "[0-2][0-9]:[0-5][0-9]:[0-6][0-9]:[0-9]+\\]: port =8766 end\n"));
  char start[64];
  snprintf(start, sizeof(start), "[P%04d] [T%04d] [", getpid(), static_cast<int>(pthread_self()));
  EXPECT_THAT(line, StartsWith(start));
}

TEST_F(WriteLog, TraceShowsMicroseconds) {
  Spill(kMarker, "");
  size_t longest = 0;
  for (int line = 0; line < 50 && longest < 4; ++line) {
    remove(kTrace);
    usleep(100);  // past the first millisecond of a second
    pv_logEx("m");
    const std::string text = Slurp(kTrace);
    const size_t end = text.find("]: m");
    longest = end - text.rfind(':', end - 1) - 1;
  }
  EXPECT_GE(longest, 4u);
}

TEST_F(WriteLog, TraceMessageIsCutAtItsBuffer) {
  Spill(kMarker, "");
  for (const size_t length : {1022, 1023, 1024, 1025, 100000}) {
    remove(kTrace);
    pv_logEx("%s", std::string(length, 'm').c_str());
    const std::string kept(length < 1023 ? length : 1023, 'm');
    EXPECT_THAT(Slurp(kTrace), EndsWith("]: " + kept + "\n")) << length;
  }
}

TEST_F(WriteLog, TraceIsAppended) {
  Spill(kMarker, "");
  pv_logEx("one");
  pv_logEx("two");
  EXPECT_THAT(Slurp(kTrace), MatchesRegex("[^\n]*one\n[^\n]*two\n"));
}

TEST_F(WriteLog, TraceThatCannotBeOpenedIsSilent) {
  Spill(kMarker, "");
  ASSERT_EQ(mkdir(kTrace, 0700), 0);
  testing::internal::CaptureStdout();
  pv_logEx("lost");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(WriteLog, ConcurrentCallsLoseNothing) {
  Spill(kMarker, "");
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([] {
      for (int line = 0; line < 100; ++line) {
        pv_log(0, L"line");
        pv_logEx("line");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const char* path : {kLog, kTrace}) {
    std::ifstream in(path);
    int lines = 0;
    for (std::string line; std::getline(in, line);) lines += line.find("line") != std::string::npos;
    EXPECT_EQ(lines, 400) << path;
  }
}

class FileContent : public testing::Test {
 protected:
  std::string Of(const std::string& content) {
    Spill("/tmp/content", content);
    return GetFileContent("/tmp/content");
  }
  void TearDown() override { remove("/tmp/content"); }
};

TEST_F(FileContent, OneTrailingLineFeedIsDropped) {
  EXPECT_EQ(Of("a"), "a");
  EXPECT_EQ(Of("a\n"), "a");
  EXPECT_EQ(Of("a\n\n"), "a\n");
  EXPECT_EQ(Of("a\r\n"), "a\r");
  EXPECT_EQ(Of("\n"), "");
  EXPECT_EQ(Of("\na"), "\na");
  EXPECT_EQ(Of(""), "");
}

TEST_F(FileContent, IsTakenByteForByte) {
  std::string bytes;
  for (int i = 0; i < 100000; ++i) bytes += static_cast<char>(i * 7);
  EXPECT_EQ(Of(bytes + "\n"), bytes);
}

TEST_F(FileContent, IsEmptyForWhatCannotBeRead) {
  EXPECT_EQ(GetFileContent("/tmp/missing"), "");
  EXPECT_EQ(GetFileContent("/tmp"), "");
  EXPECT_EQ(GetFileContent(""), "");
  EXPECT_EQ(GetFileContent("/proc/self/mem"), "");
}

}  // namespace
