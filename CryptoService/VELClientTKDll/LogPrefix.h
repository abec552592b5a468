#pragma once
#include <sys/time.h>
#include <time.h>

#include "VELInterface.h"

// What stands between the level and the message of a log line, at most 259 characters.
typedef wchar_t LogPrefix[260];

// "[P process] [T thread] [date time:microseconds] [file-function(line)]: " of this thread and
// moment; an empty or null `function` is left out. False when the time cannot be read.
bool FormatLogPrefix(LogPrefix& out, LPCTSTR srcFile, LPCTSTR function, DWORD line);

// Now and its local time; false when they cannot be read.
bool ReadLogTime(timeval& now, tm& local);

// Around a fork, by the thread that forks: no other thread is then inside ReadLogTime, whose locks
// in the system library the child would find held for ever.
void HoldLogTime();
void ReleaseLogTime();
