// A library with the debug log inside, to be loaded and unloaded.
#include "DebugLogMgr.h"

extern "C" __attribute__((visibility("default"))) void LogModuleSay(int lines) {
  for (int line = 0; line < lines; ++line) {
    CDebugLogMgr::MacroHelper(L"[INFO] ", 1, L"LogModule.cpp", L"Say", __LINE__)(
        L"%s %d", L"a line of the usual length, which fills a pipe after a thousand", line);
  }
}

// Linked in place of sleep: whoever relied on the second would be unloaded under its writer.
extern "C" unsigned __wrap_sleep(unsigned) {
  return 0;
}
