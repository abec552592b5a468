// What the session functions log. Each test logs in a process of its own, so that the file holds
// its lines alone. In the sandbox.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

#include "Host.h"
#include "LogFile.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class SessionLog : public testing::Test {
 protected:
  void SetUp() override {
    setlocale(LC_ALL, "C.UTF-8");
    Fake() = FakeDevice();
    unlink("/tmp/PILog.txt");
  }

  // The log file after the code ran in a process of its own and `last` was written.
  static std::string LogOf(const std::function<void()>& code, const std::string& last) {
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
      code();
      LogOnceItHas(last);
      fflush(stdout);
      _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    return LogOnceItHas(last);
  }

  static bool HasLine(const std::string& log, const std::string& place,
                      const std::string& message) {
    return HasLogLine(log, "ERROR", place, message);
  }
};

const char kPlace[] = "DllExport-VCTK_GetLastErrorMessage";

TEST_F(SessionLog, AMessageForNoHandleIsLogged) {
  const std::string log = LogOf([] { VCTK_GetLastErrorMessage(nullptr, nullptr, nullptr); },
                                "VCTK_GetLastErrorMessage [-1]");
  EXPECT_TRUE(HasLine(log, kPlace, "VCTK_GetLastErrorMessage [-1]")) << log;
}

TEST_F(SessionLog, ASuccessIsLoggedAsAnErrorAllTheSame) {
  const std::string log = LogOf(
      [] {
        const HANDLE handle = VCTK_Initialize(kHostKeyList);
        int length = 0;
        EXPECT_EQ(VCTK_GetLastErrorMessage(handle, nullptr, &length), 0);
        VCTK_Finalize(handle);
      },
      "VCTK_GetLastErrorMessage [0]");
  EXPECT_TRUE(HasLine(log, "[^]]*", "获取错误信息描述")) << log;
  EXPECT_TRUE(HasLine(log, kPlace, "VCTK_GetLastErrorMessage [0]")) << log;
  EXPECT_LT(log.find("获取错误信息描述"), log.find("VCTK_GetLastErrorMessage [0]"));
}

TEST_F(SessionLog, AShortBufferIsLoggedWithItsCode) {
  const std::string log = LogOf(
      [] {
        const HANDLE handle = VCTK_Initialize(kHostKeyList);
        char text[4];
        int length = 4;
        EXPECT_EQ(VCTK_GetLastErrorMessage(handle, text, &length), 4);
        VCTK_Finalize(handle);
      },
      "错误码[0x4]");
  EXPECT_TRUE(HasLine(log, kPlace, "错误码[0x4]")) << log;
}

TEST_F(SessionLog, NothingElseOfASessionIsLogged) {
  const std::string log = LogOf(
      [] {
        const HANDLE handle = VCTK_Initialize(kHostKeyList);
        int length = 0;
        int exists = 0;
        EXPECT_EQ(VCTK_Finalize(nullptr), -1);
        EXPECT_EQ(VCTK_GetLastError(nullptr), -1);
        EXPECT_EQ(VCTK_P1Sign(nullptr, "a", 0), -1);
        EXPECT_NE(VCTK_P1Sign(handle, "a", 0), 0);
        EXPECT_NE(VCTK_P7Sign(handle, "a", 0, 0, 0), 0);
        EXPECT_NE(VCTK_GetCertList(handle, "|", ";", nullptr, &length), 0);
        EXPECT_EQ(VCTK_CheckCertIsExist(handle, "a", &exists), 0);
        VCTK_Finalize(handle);
        VCTK_GetLastErrorMessage(nullptr, nullptr, nullptr);
      },
      "VCTK_GetLastErrorMessage [-1]");
  EXPECT_EQ(log.find("[ERROR]"), log.rfind("[ERROR]")) << log;
  EXPECT_THAT(log, Not(HasSubstr("[INFO]")));
}

TEST_F(SessionLog, WithTheLevelRaisedNothingIsLogged) {
  FILE* const settings = fopen("/var/log.ini", "w");
  ASSERT_NE(settings, nullptr);
  fputs("[loginfo]\nlogLevel=4\n", settings);
  fclose(settings);
  fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    VCTK_GetLastErrorMessage(nullptr, nullptr, nullptr);
    usleep(200000);
    _exit(access("/tmp/PILog.txt", F_OK) == 0 ? 1 : 0);
  }
  int status = 1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  unlink("/var/log.ini");
}

}  // namespace
