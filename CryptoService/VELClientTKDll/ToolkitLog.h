#pragma once
// One statement a log line: VCTK_LOG_ERROR(L"Source", L"Function", L"format", values...).
#include "DebugLogMgr.h"

#define VCTK_LOG_INFO(source, function, ...) \
  CDebugLogMgr::MacroHelper(L"[INFO] ", 1, source, function, __LINE__)(__VA_ARGS__)
#define VCTK_LOG_ERROR(source, function, ...) \
  CDebugLogMgr::MacroHelper(L"[ERROR] ", 3, source, function, __LINE__)(__VA_ARGS__)
