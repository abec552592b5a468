// The lines and the file. What happens at the end of a process or of the library, and with many
// threads, is in DebugLogMgr_life_test.cpp.
#include "DebugLogMgr.h"

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <locale.h>
#include <math.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "LogHost.h"

namespace {
std::atomic<unsigned> g_slept(0);
}

// The manager waits a second for its writer; the tests need not.
extern "C" unsigned sleep(unsigned seconds) {
  g_slept += seconds;
  return 0;
}

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

const char kLog[] = "/tmp/PILog.txt";
const char kLevelFile[] = "/var/log.ini";

// By the clock that lines are dated from; that of time() is behind it.
time_t Now() {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  return now.tv_sec;
}

// One line through a manager of the test's own.
void Say(CDebugLogMgr& log, int level, LPCTSTR type, LPCTSTR file, LPCTSTR function, DWORD line,
         LPCTSTR format, ...) {
  va_list args;
  va_start(args, format);
  log.OutputArgs(type, level, file, function, line, format, args);
  va_end(args);
}

void Say(CDebugLogMgr& log, LPCTSTR text) {
  Say(log, 1, L"[INFO] ", L"a.cpp", L"f", 1, L"%ls", text);
}

std::string MessageOf(const std::string& line) {
  const size_t end = line.find("]: ");
  return end == std::string::npos ? "no message in " + line : line.substr(end + 3);
}

std::vector<std::string> Messages(const std::vector<std::string>& lines) {
  std::vector<std::string> messages;
  for (const std::string& line : lines) messages.push_back(MessageOf(line));
  return messages;
}

class DebugLogMgr : public testing::Test {
 protected:
  void SetUp() override {
    Clean();
    ASSERT_EQ(chdir("/tmp"), 0);
  }
  void TearDown() override {
    Clean();
    setlocale(LC_ALL, "C.UTF-8");
  }
  static void Clean() {
    for (const char* path : {kLog, kLevelFile, "/tmp/own.txt"}) remove(path);
    rmdir(kLog);
  }

  CDebugLogMgr& Log() {
    if (m_log == nullptr) m_log = std::make_unique<CDebugLogMgr>();
    return *m_log;
  }
  // Once every line has been taken by the writer.
  void EndLog() {
    Eventually([this] {
      if (m_log == nullptr) return true;
      const CVELCriticalGuard guard(m_log->m_csLogCache);
      return m_log->m_logCacheHead == nullptr;
    });
    m_log.reset();
  }

  std::string FileName() {
    const CVELCriticalGuard guard(Log().m_csLogCache);
    return std::string(CStringA(static_cast<const wchar_t*>(Log().m_strLogFileName)));
  }

  std::unique_ptr<CDebugLogMgr> m_log;
};

// Lines wait for a writer that is held by a full pipe, in the middle of a line.
class HeldWriter {
 public:
  explicit HeldWriter(CDebugLogMgr& log) {
    EXPECT_EQ(mkfifo("/tmp/own.txt", 0600), 0);
    m_pipe = open("/tmp/own.txt", O_RDWR | O_NONBLOCK | O_CLOEXEC);
    const int room = fcntl(m_pipe, F_SETPIPE_SZ, 4096);
    EXPECT_LT(room, 8000);
    log.SetLogFileName(L"/tmp/own.txt");
    Say(log, std::wstring(8000, L'x').c_str());
    int waiting = 0;
    EXPECT_TRUE(
        Eventually([&] { return ioctl(m_pipe, FIONREAD, &waiting) == 0 && waiting == room; }));
  }
  ~HeldWriter() { close(m_pipe); }

  template <typename Condition>
  bool GoOnUntil(Condition condition) {
    return Eventually([&] {
      char bytes[4096];
      while (read(m_pipe, bytes, sizeof(bytes)) > 0) continue;
      return condition();
    });
  }

 private:
  int m_pipe;
};

TEST_F(DebugLogMgr, StartsWithTheseValues) {
  CDebugLogMgr& log = Log();
  EXPECT_STREQ(log.m_strLogFileName, L"/tmp/PILog.txt");
  EXPECT_STREQ(log.m_strLogHeader, L"");
  EXPECT_EQ(log.m_bOutputLogToFile, 1);
  EXPECT_EQ(log.m_bWithFunctionName, 1);
  EXPECT_EQ(log.m_dwMaxFileSize, 0x200000u);
  EXPECT_EQ(log.m_dwTruncatePercent, 20u);
  EXPECT_EQ(log.m_hEvent, nullptr);
  EXPECT_EQ(log.m_bGlobalMode, 0);
  EXPECT_EQ(log.m_logCacheHead, nullptr);
  EXPECT_EQ(log.m_logCacheTail, nullptr);
  EXPECT_EQ(log.m_logLevel, 1);
  EXPECT_EQ(log.m_thread, 1);
  EXPECT_EQ(log.exit_flag, 0);
  EXPECT_FALSE(Exists(kLog));
}

TEST_F(DebugLogMgr, FieldsStandInThisOrder) {
  const CDebugLogMgr& log = Log();
  const std::vector<const void*> fields = {&log.m_strLogFileName,   &log.m_strLogHeader,
                                           &log.m_bOutputLogToFile, &log.m_bWithFunctionName,
                                           &log.m_dwMaxFileSize,    &log.m_dwTruncatePercent,
                                           &log.m_logFile,          &log.m_hEvent,
                                           &log.m_bGlobalMode,      &log.m_logCacheHead,
                                           &log.m_logCacheTail,     &log.m_logLevel,
                                           &log.m_thread,           &log.m_sem,
                                           &log.exit_flag,          &log.m_csLogCache};
  EXPECT_TRUE(std::is_sorted(fields.begin(), fields.end()));
  EXPECT_EQ(fields[0], reinterpret_cast<const char*>(&log) + sizeof(void*));
  static_assert(std::has_virtual_destructor_v<CDebugLogMgr>);
  static_assert(sizeof(log.m_dwMaxFileSize) == 8 && sizeof(log.m_bGlobalMode) == 4);
}

TEST_F(DebugLogMgr, LineNamesProcessThreadTimePlaceAndFunction) {
  const time_t before = Now();
  Say(Log(), 3, L"[ERROR] ", L"VelFile.cpp", L"OpenFile", 77, L"code %d", 5);
  const std::vector<std::string> lines = AwaitLines(kLog, 1);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_THAT(lines[0],
              MatchesRegex("\\[ERROR\\] \\[P[0-9]+\\] \\[T-?[0-9]+\\] \\[20[0-9][0-9]-[01][0-9]-"
                           "[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9]:[0-9]+\\] "
                           "\\[VelFile\\.cpp-OpenFile\\(77\\)\\]: code 5"));
  char ids[64];
  snprintf(ids, sizeof(ids), "[P%04d] [T%04d] [", getpid(), static_cast<int>(pthread_self()));
  EXPECT_THAT(lines[0], HasSubstr(ids));
  tm written = {};
  const size_t date = lines[0].find(ids) + std::string(ids).size();
  ASSERT_NE(strptime(lines[0].c_str() + date, "%Y-%m-%d %H:%M:%S", &written), nullptr);
  const time_t at = timegm(&written);
  EXPECT_GE(at, before);
  EXPECT_LE(at, Now());
}

TEST_F(DebugLogMgr, LineNumbersPrintAsIntegersOf32Bits) {
  const DWORD lines[] = {0, 9, 10, 2147483647, 2147483648, 4294967295, 4294967296};
  std::vector<std::string> expected;
  for (const DWORD line : lines) {
    Say(Log(), 1, L"", L"a", L"", line, L"");
    expected.push_back(" [a(" + std::to_string(static_cast<int>(line)) + ")]: ");
  }
  const std::vector<std::string> written = AwaitLines(kLog, 7);
  ASSERT_EQ(written.size(), 7u);
  for (size_t i = 0; i < 7; ++i) EXPECT_THAT(written[i], EndsWith(expected[i]));
}

TEST_F(DebugLogMgr, EmptyOrNullFunctionIsLeftOut) {
  Say(Log(), 1, L"[INFO] ", L"a.cpp", L"", 5, L"empty");
  Say(Log(), 1, L"[INFO] ", L"a.cpp", nullptr, 6, L"null");
  EXPECT_EQ(Log().m_bWithFunctionName, 0);
  Say(Log(), 1, L"[INFO] ", L"a.cpp", L"f", 7, L"named");
  EXPECT_EQ(Log().m_bWithFunctionName, 1);
  EXPECT_THAT(AwaitLines(kLog, 3),
              ElementsAre(EndsWith(" [a.cpp(5)]: empty"), EndsWith(" [a.cpp(6)]: null"),
                          EndsWith(" [a.cpp-f(7)]: named")));
}

TEST_F(DebugLogMgr, ChangedZoneIsThatOfTheNextLine) {
  Log();
  for (const char* zone : {"FAR-5", "UTC0"}) {
    setenv("TZ", zone, 1);
    Say(Log(), L"m");
  }
  setenv("TZ", "UTC", 1);
  time_t written[2] = {};
  const std::vector<std::string> lines = AwaitLines(kLog, 2);
  ASSERT_EQ(lines.size(), 2u);
  for (size_t i = 0; i < 2; ++i) {
    tm parts = {};
    const size_t date = lines[i].find("] [20");
    ASSERT_NE(date, std::string::npos);
    ASSERT_NE(strptime(&lines[i][date], "] [%Y-%m-%d %H:%M:%S", &parts), nullptr);
    written[i] = timegm(&parts);
  }
  EXPECT_NEAR(difftime(written[0], written[1]), 5 * 3600, 60);
}

TEST_F(DebugLogMgr, SecondsAreFollowedByMicroseconds) {
  Say(Log(), L"m");
  usleep(2000);  // one of the two is not in the first millisecond of its second
  Say(Log(), L"m");
  size_t longest = 0;
  for (const std::string& line : AwaitLines(kLog, 2)) {
    const size_t end = line.find("] [a.cpp");
    const std::string field = line.substr(line.rfind(':', end) + 1, end - line.rfind(':', end) - 1);
    EXPECT_GE(field.size(), 3u);
    EXPECT_LE(field.size(), 6u);
    longest = std::max(longest, field.size());
  }
  EXPECT_GE(longest, 4u);
}

TEST_F(DebugLogMgr, FileStartsWithItsMarkAndLinesEndWithTwoBreaks) {
  Say(Log(), L"one");
  AwaitLines(kLog, 1);
  Say(Log(), L"two");
  AwaitLines(kLog, 2);
  const std::string text = Slurp(kLog);
  EXPECT_THAT(text, StartsWith("\xFF\xFE[INFO] [P"));
  EXPECT_THAT(text, HasSubstr("one\r\n\r\n[INFO] [P"));
  EXPECT_THAT(text, EndsWith("two\r\n\r\n"));
  EXPECT_EQ(text.find("\xFF\xFE", 1), std::string::npos);
}

TEST_F(DebugLogMgr, NullTypeIsEmptyAndHeaderFollowsThePrefix) {
  Log().SetLogHeader(L"<header>");
  Say(Log(), 1, nullptr, L"a.cpp", L"f", 1, L"text");
  EXPECT_THAT(AwaitLines(kLog, 1), ElementsAre(testing::AllOf(
                                       StartsWith("[P"), EndsWith("[a.cpp-f(1)]: <header>text"))));
}

TEST_F(DebugLogMgr, WithoutSourceFileOrFormatNothingIsLogged) {
  Say(Log(), 3, L"[ERROR] ", nullptr, L"f", 1, L"x");
  Say(Log(), 3, L"[ERROR] ", L"a.cpp", L"f", 1, nullptr);
  Say(Log(), 3, L"[ERROR] ", L"", L"f", 1, L"empty file");
  EXPECT_THAT(AwaitLines(kLog, 1), ElementsAre(EndsWith(" [-f(1)]: empty file")));
}

TEST_F(DebugLogMgr, LevelFileSetsTheThreshold) {
  const struct {
    const char* file;
    std::vector<std::string> logged;
  } cases[] = {{"", {"1", "2", "3", "4"}},
               {"[loginfo]\nlogLevel=0\n", {"0", "1", "2", "3", "4"}},
               {"[loginfo]\nlogLevel=1\n", {"1", "2", "3", "4"}},
               {"[loginfo]\nlogLevel=2\n", {"2", "3", "4"}},
               {"[loginfo]\nlogLevel=3\n", {"3", "4"}},
               {"[loginfo]\nlogLevel=4\n", {"4"}},
               {"[other]\nlogLevel=4\n", {"1", "2", "3", "4"}},
               {"[loginfo]\nother=4\n", {"1", "2", "3", "4"}}};
  for (const auto& c : cases) {
    Clean();
    if (*c.file != '\0') Spill(kLevelFile, c.file);
    EXPECT_EQ(Log().GetLogLevel(), 0);
    for (int level = 0; level < 5; ++level) Say(Log(), level, L"", L"", L"", 0, L"%d", level);
    EXPECT_EQ(Messages(AwaitLines(kLog, c.logged.size())), c.logged) << c.file;
  }
}

TEST_F(DebugLogMgr, LevelIsReadAtConstruction) {
  Spill(kLevelFile, "[loginfo]\nlogLevel = 3\n");
  EXPECT_EQ(Log().m_logLevel, 3);
  Spill(kLevelFile, "[loginfo]\nlogLevel = 1\n");
  Say(Log(), 1, L"", L"", L"", 0, L"info");
  Say(Log(), 3, L"", L"", L"", 0, L"error");
  EXPECT_THAT(Messages(AwaitLines(kLog, 1)), ElementsAre("error"));
}

TEST_F(DebugLogMgr, MessageIsCutAt8191Characters) {
  for (const size_t length : {8190, 8191, 8192, 20000}) {
    Clean();
    Say(Log(), std::wstring(length, L'm').c_str());
    const std::string kept(std::min<size_t>(length, 8191), 'm');
    EXPECT_EQ(Messages(AwaitLines(kLog, 1)), std::vector<std::string>{kept}) << length;
  }
}

TEST_F(DebugLogMgr, MessageEndsBeforeATextThatIsNone) {
  Say(Log(), 1, L"", L"a.cpp", L"f", 1, L"before %hs after", "\xff\xff");
  Say(Log(), 1, L"", L"a.cpp", L"f", 1, L"next");
  const std::vector<std::string> messages = Messages(AwaitLines(kLog, 2));
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_THAT(messages[0], AnyOf("before ", "before"));
  EXPECT_EQ(messages[1], "next");
}

TEST_F(DebugLogMgr, PrefixIsCutAt259Characters) {
  Say(Log(), 1, L"T ", std::wstring(1000, L'p').c_str(), L"f", 1, L"message");
  const std::vector<std::string> lines = AwaitLines(kLog, 1);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].size(), 2 + 259 + 7u);
  EXPECT_THAT(lines[0], EndsWith("pppmessage"));
  Say(Log(), 1, L"T ", std::wstring(1000, L'p').c_str(), L"", 1, L"message");
  EXPECT_EQ(AwaitLines(kLog, 2).back().size(), 2 + 259 + 7u);
}

TEST_F(DebugLogMgr, WideTextIsWrittenInTheLocale) {
  Log();
  Say(Log(), L"\u4e2d\u6587");
  EXPECT_THAT(Messages(AwaitLines(kLog, 1)), ElementsAre("\xe4\xb8\xad\xe6\x96\x87"));
}

TEST_F(DebugLogMgr, LineThatTheLocaleCannotExpressIsEmpty) {
  Log();
  setlocale(LC_ALL, "C");
  Say(Log(), L"\u4e2d");
  ASSERT_TRUE(Eventually([] { return Slurp(kLog).size() >= 6; }));
  EXPECT_EQ(Slurp(kLog), "\xFF\xFE\r\n\r\n");
}

TEST_F(DebugLogMgr, LocaleIsTakenFromTheEnvironment) {
  setlocale(LC_ALL, "C");
  Log();
  EXPECT_STREQ(setlocale(LC_ALL, nullptr), "C.UTF-8");
}

TEST_F(DebugLogMgr, FolderOfTheFileIsCreatedForEveryLine) {
  Log().SetLogFileName(L"/tmp/made/below/log.txt");
  for (int round = 0; round < 2; ++round) {
    Say(Log(), L"x");
    EXPECT_EQ(AwaitLines("/tmp/made/below/log.txt", 1).size(), 1u) << round;
    remove("/tmp/made/below/log.txt");
    rmdir("/tmp/made/below");
    EXPECT_EQ(rmdir("/tmp/made"), 0);
  }
}

TEST_F(DebugLogMgr, FolderOfAFileThatStaysOpenIsCreatedForEveryLine) {
  Log().SetLogFileName(L"/tmp/made/log.txt");
  Log().EnableGlobalMode(1);
  Say(Log(), L"x");
  EXPECT_EQ(AwaitLines("/tmp/made/log.txt", 1).size(), 1u);
  remove("/tmp/made/log.txt");
  EXPECT_EQ(rmdir("/tmp/made"), 0);
  Say(Log(), L"y");
  EXPECT_EQ(rmdir("/tmp/made"), 0);
}

TEST_F(DebugLogMgr, FolderIsThereWhenTheCallReturnsThoughTheWriterIsHeld) {
  HeldWriter writer(Log());
  {
    const CVELCriticalGuard guard(Log().m_csLogCache);
    Log().m_strLogFileName = L"/tmp/made/below/log.txt";  // as the setter does
  }
  for (int line = 0; line < 10; ++line) {
    Say(Log(), L"x");
    EXPECT_EQ(rmdir("/tmp/made/below"), 0) << line;
    EXPECT_EQ(rmdir("/tmp/made"), 0) << line;
  }
  Say(Log(), L"last");
  EXPECT_TRUE(Exists("/tmp/made/below"));
  EXPECT_TRUE(writer.GoOnUntil([] {
    return LogLines("/tmp/made/below/log.txt").size() == 11 &&
           Messages(LogLines("/tmp/made/below/log.txt")).back() == "last";
  }));
  EndLog();
  EXPECT_EQ(remove("/tmp/made/below/log.txt"), 0);
  EXPECT_EQ(rmdir("/tmp/made/below"), 0);
  EXPECT_EQ(rmdir("/tmp/made"), 0);
}

TEST_F(DebugLogMgr, FolderRemovedWhileLinesWaitLosesALineAndChangesTheName) {
  HeldWriter writer(Log());
  Log().SetLogFileName(L"/tmp/made/log.txt");
  Say(Log(), L"lost");
  Say(Log(), L"kept");
  EXPECT_EQ(rmdir("/tmp/made"), 0);
  EXPECT_TRUE(writer.GoOnUntil([this] { return Slurp(FileName()).size() > 2; }));
  EXPECT_THAT(Messages(AwaitLines(FileName(), 1)), ElementsAre("kept"));
  EXPECT_THAT(FileName(), StartsWith(" /tmp/made/log.txt.20"));
  EXPECT_FALSE(Exists("/tmp/made"));
}

TEST_F(DebugLogMgr, EmptyNameBecomesTheDefault) {
  Log().SetLogFileName(L"");
  Say(Log(), L"x");
  EXPECT_STREQ(Log().m_strLogFileName, L"/tmp/PILog.txt");
  EXPECT_EQ(AwaitLines(kLog, 1).size(), 1u);
}

TEST_F(DebugLogMgr, RemovedFileStartsAnew) {
  Say(Log(), L"one");
  AwaitLines(kLog, 1);
  remove(kLog);
  Say(Log(), L"two");
  EXPECT_THAT(Messages(AwaitLines(kLog, 1)), ElementsAre("two"));
  EXPECT_THAT(Slurp(kLog), StartsWith("\xFF\xFE"));
}

TEST_F(DebugLogMgr, ExistingFileIsContinuedWithoutAMark) {
  Spill(kLog, "old\r\n\r\n");
  Say(Log(), L"new");
  AwaitLines(kLog, 2);
  EXPECT_THAT(Slurp(kLog), StartsWith("old\r\n\r\n[INFO] "));
}

TEST_F(DebugLogMgr, GlobalModeKeepsTheFileOpen) {
  Log().EnableGlobalMode(1);
  Say(Log(), L"one");
  AwaitLines(kLog, 1);
  ASSERT_EQ(rename(kLog, "/tmp/own.txt"), 0);
  Say(Log(), L"two");
  EXPECT_THAT(Messages(AwaitLines("/tmp/own.txt", 2)), ElementsAre("one", "two"));
  EXPECT_FALSE(Exists(kLog));
  EXPECT_NE(Log().m_logFile.GetFileID(), 0u);
}

TEST_F(DebugLogMgr, FileIsClosedBetweenLines) {
  Say(Log(), L"one");
  AwaitLines(kLog, 1);
  ASSERT_EQ(rename(kLog, "/tmp/own.txt"), 0);
  Say(Log(), L"two");
  EXPECT_THAT(Messages(AwaitLines(kLog, 1)), ElementsAre("two"));
  EXPECT_THAT(Messages(LogLines("/tmp/own.txt")), ElementsAre("one"));
}

TEST_F(DebugLogMgr, UnusableFileLosesALineAndChangesTheName) {
  ASSERT_EQ(mkdir(kLog, 0700), 0);
  Log();
  Say(Log(), L"lost");
  ASSERT_TRUE(Eventually([this] { return FileName() != kLog; }));
  EXPECT_THAT(FileName(),
              MatchesRegex(" /tmp/PILog\\.txt\\.20[0-9][0-9]\\.[01][0-9]\\.[0-3][0-9]\\."
                           "[0-2][0-9]\\.[0-5][0-9]\\.[0-6][0-9]\\.[0-9][0-9][0-9]+"));
  const std::string taken = FileName();
  Say(Log(), L"one");
  Say(Log(), L"two");
  EXPECT_THAT(Messages(AwaitLines(taken, 2)), ElementsAre("one", "two"));
  EXPECT_EQ(FileName(), taken);
  rmdir(kLog);
  Say(Log(), L"three");
  EXPECT_EQ(AwaitLines(taken, 3).size(), 3u);
  EXPECT_FALSE(Exists(kLog));
}

TEST_F(DebugLogMgr, LinesThatWaitGoToTheNewName) {
  HeldWriter writer(Log());
  ASSERT_EQ(mkdir(kLog, 0700), 0);
  Log().SetLogFileName(L"/tmp/PILog.txt");
  for (LPCTSTR text : {L"lost", L"one", L"two"}) Say(Log(), text);
  EXPECT_TRUE(writer.GoOnUntil([this] { return FileName() != kLog; }));
  EXPECT_THAT(Messages(AwaitLines(FileName(), 2)), ElementsAre("one", "two"));
  EXPECT_THAT(FileName(), StartsWith(" /tmp/PILog.txt.20"));
}

TEST_F(DebugLogMgr, UnwritableFileLosesALineAndChangesTheName) {
  mkdir("/tmp/frozen", 0700);
  if (mount("frozen", "/tmp/frozen", "tmpfs", 0, nullptr) != 0) GTEST_SKIP() << "no mount";
  Spill("/tmp/frozen/log.txt", "old");
  ASSERT_EQ(mount("frozen", "/tmp/frozen", "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr), 0);
  Log().SetLogFileName(L"/tmp/frozen/log.txt");
  Say(Log(), L"lost");
  ASSERT_TRUE(Eventually([this] { return FileName() != "/tmp/frozen/log.txt"; }));
  EXPECT_THAT(FileName(), StartsWith(" /tmp/frozen/log.txt.20"));
  Say(Log(), L"kept");
  EXPECT_THAT(Messages(AwaitLines(FileName(), 1)), ElementsAre("kept"));
  EXPECT_EQ(Slurp("/tmp/frozen/log.txt"), "old");
  EndLog();
  EXPECT_EQ(umount("/tmp/frozen"), 0);
}

TEST_F(DebugLogMgr, FileOnAFullDiskIsContinuedLater) {
  mkdir("/tmp/small", 0700);
  if (mount("small", "/tmp/small", "tmpfs", 0, "size=64k") != 0) GTEST_SKIP() << "no mount";
  Log().SetLogFileName(L"/tmp/small/log.txt");
  for (int line = 0; line < 40; ++line) Say(Log(), std::wstring(8000, L'x').c_str());
  Log().SetLogFileName(L"/tmp/own.txt");
  Say(Log(), L"elsewhere");
  EXPECT_TRUE(Eventually([] { return Exists("/tmp/own.txt"); }));
  EXPECT_LE(Slurp("/tmp/small/log.txt").size(), 65536u);
  EndLog();
  EXPECT_EQ(umount("/tmp/small"), 0);
}

// What is left of a file that passed the limit, reckoned byte by byte.
std::string Truncated(const std::string& file, unsigned percent) {
  const size_t n = file.size() - 2;
  const size_t cut = static_cast<size_t>(truncf(static_cast<float>(n) * (percent / 100.0f)));
  size_t kept = n - std::min(n, cut);
  if (kept % 2 == 1) ++kept;
  const size_t start = n > kept ? n - kept : 0;
  std::string result = "\xFF\xFE";
  for (size_t i = 0; i < kept; ++i) result += file[start + i];
  return result;
}

// The time in a line makes its length vary, so the lines that truncate are ones that the locale
// cannot express: they add their separator alone.
TEST_F(DebugLogMgr, TruncationKeepsTheRangeThatEndsTwoBytesEarly) {
  for (const DWORD percent : {1, 20, 33, 50, 99, 100, 250}) {
    for (const size_t size : {200, 201, 1000, 4097, 70001}) {
      std::string before = "\xFF\xFE";
      for (size_t i = 0; before.size() < size; ++i) before += static_cast<char>('a' + i % 26);
      Spill("/tmp/own.txt", before);
      Log().SetLogFileName(L"/tmp/own.txt");
      Log().EnableGlobalMode(0);
      Log().SetTruncate(size, 0);
      Say(Log(), L"line");
      ASSERT_TRUE(Eventually([&] {
        const std::string text = Slurp("/tmp/own.txt");
        return text.size() > size && text.compare(text.size() - 4, 4, "\r\n\r\n") == 0;
      }));
      const std::string whole = Slurp("/tmp/own.txt");
      const std::string grown = whole + "\r\n\r\n";
      Log().SetTruncate(whole.size(), percent);
      setlocale(LC_ALL, "C");
      Say(Log(), L"\u4e2d");
      const std::string expected = Truncated(grown, percent);
      EXPECT_TRUE(Eventually([&] { return Slurp("/tmp/own.txt") == expected; }))
          << percent << " percent of " << size;
      setlocale(LC_ALL, "C.UTF-8");
    }
  }
}

TEST_F(DebugLogMgr, TruncationStartsAboveTheLimit) {
  Log().SetLogFileName(L"/tmp/own.txt");
  setlocale(LC_ALL, "C");
  const std::string before = "\xFF\xFE" + std::string(994, 'x');
  const std::string grown = before + "\r\n\r\n";
  ASSERT_EQ(grown.size(), 1000u);
  const struct {
    DWORD limit;
    std::string expected;
  } cases[] = {{1001, grown}, {1000, grown}, {999, Truncated(grown, 20)}};
  for (const auto& c : cases) {
    Spill("/tmp/own.txt", before);
    Log().SetTruncate(c.limit, 20);
    Say(Log(), L"\u4e2d");
    EXPECT_TRUE(Eventually([&] { return Slurp("/tmp/own.txt") == c.expected; })) << c.limit;
    // Nothing more happens to it.
    Say(Log(), 0, L"", L"", L"", 0, L"below the level");
    EXPECT_EQ(Slurp("/tmp/own.txt"), c.expected) << c.limit;
  }
}

TEST_F(DebugLogMgr, FilePastTwoMebibytesKeepsFourFifths) {
  setlocale(LC_ALL, "C.UTF-8");
  Log();
  setlocale(LC_ALL, "C");
  std::string before = "\xFF\xFE";
  for (size_t i = 0; before.size() < 0x200000 + 96; ++i) before += static_cast<char>(i * 31 % 251);
  before.resize(0x200000 + 96);
  Spill(kLog, before);
  Say(Log(), L"\u4e2d");
  const std::string grown = before + "\r\n\r\n";
  // 2097250 bytes behind the mark, of which 419450 go: 1677800 stay.
  const std::string expected = "\xFF\xFE" + grown.substr(2097250 - 1677800, 1677800);
  EXPECT_TRUE(Eventually([&] { return Slurp(kLog) == expected; }));
}

TEST_F(DebugLogMgr, TruncationCutsThroughChineseText) {
  Log().SetLogFileName(L"/tmp/own.txt");
  for (size_t shift = 0; shift < 3; ++shift) {
    std::string before = "\xFF\xFE" + std::string(shift, 'x');
    while (before.size() < 996) before += "\xe4\xb8\xad";
    Spill("/tmp/own.txt", before);
    Log().SetTruncate(500, 20);
    setlocale(LC_ALL, "C");
    Say(Log(), L"\u4e2d");
    const std::string expected = Truncated(before + "\r\n\r\n", 20);
    EXPECT_TRUE(Eventually([&] { return Slurp("/tmp/own.txt") == expected; })) << shift;
    setlocale(LC_ALL, "C.UTF-8");
  }
}

TEST_F(DebugLogMgr, TruncationIsSwitchedOffByZeroPercent) {
  Log().SetTruncate(10, 0);
  for (int line = 0; line < 20; ++line) Say(Log(), L"x");
  EXPECT_EQ(AwaitLines(kLog, 20).size(), 20u);
}

TEST_F(DebugLogMgr, TinyLimitNeverReadsOutsideTheFile) {
  for (const DWORD percent : {1, 20, 99, 100}) {
    Clean();
    Log().SetTruncate(0, percent);
    for (int line = 0; line < 50; ++line) Say(Log(), L"x");
  }
  EndLog();
  EXPECT_THAT(Slurp(kLog), StartsWith("\xFF\xFE"));
}

TEST_F(DebugLogMgr, SettersSetTheFieldsOfTheirNames) {
  CDebugLogMgr& log = Log();
  log.SetLogFileName(L"/tmp/own.txt");
  log.SetLogHeader(L"h");
  log.SetTruncate(5, 6);
  log.EnableOutput(0);
  log.WithFunctionName(0);
  log.EnableGlobalMode(1);
  EXPECT_STREQ(log.m_strLogFileName, L"/tmp/own.txt");
  EXPECT_STREQ(log.m_strLogHeader, L"h");
  EXPECT_EQ(log.m_dwMaxFileSize, 5u);
  EXPECT_EQ(log.m_dwTruncatePercent, 6u);
  EXPECT_EQ(log.m_bOutputLogToFile, 0);
  EXPECT_EQ(log.m_bWithFunctionName, 0);
  EXPECT_EQ(log.m_bGlobalMode, 1);
}

TEST_F(DebugLogMgr, DisabledOutputIsNotConsulted) {
  Log().EnableOutput(0);
  Say(Log(), L"still written");
  EXPECT_THAT(Messages(AwaitLines(kLog, 1)), ElementsAre("still written"));
}

TEST_F(DebugLogMgr, HasOneWriterThread) {
  const NewThreads added;
  EXPECT_EQ(Log().CreateWriteLogThread(), 1);
  EXPECT_EQ(Log().CreateWriteLogThread(), 1);
  EXPECT_EQ(added.Count(), 1u);
  EndLog();
  EXPECT_TRUE(Eventually([&] { return added.Count() == 0; }));
}

TEST_F(DebugLogMgr, DestructionWaitsASecondAndClosesTheEvent) {
  Spill("/tmp/own.txt", "");
  const HANDLE event = VelCreateFile("/tmp/own.txt");
  LARGE_INTEGER size;
  ASSERT_TRUE(GetFileSizeEx(event, &size));
  Log().m_hEvent = event;
  g_slept = 0;
  EndLog();
  EXPECT_EQ(g_slept, 1u);
  EXPECT_FALSE(GetFileSizeEx(event, &size));
  Log().m_hEvent = INVALID_HANDLE_VALUE;
  EndLog();
}

}  // namespace
