#include "Session.h"

#include <sys/wait.h>

#include <cstdio>

#include "DebugLogMgr.h"
#include "LogFile.h"
#include "Traces.h"

bool HoldsInFreshProcess(const std::function<void()>& code) {
  fflush(stdout);
  EXPECT_TRUE(Eventually(OtherThreadsWait));
  const pid_t child = fork();
  if (child == 0) {
    code();
    fflush(stdout);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

size_t LogSizeOnceWritten() {
  static int count = 0;
  const std::wstring mark = L"[all written so far " + std::to_wstring(++count) + L"]";
  CDebugLogMgr::MacroHelper(L"[ERROR] ", 3, L"LogFile", L"", 1)(mark.c_str());
  LogOnceItHas(std::string(mark.begin(), mark.end()));
  return LogContent().size();
}
