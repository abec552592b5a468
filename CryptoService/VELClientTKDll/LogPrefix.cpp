#include "LogPrefix.h"

#include <pthread.h>
#include <stdlib.h>
#include <unistd.h>

#include <iterator>

namespace {

pthread_mutex_t g_timeLock = PTHREAD_MUTEX_INITIALIZER;
time_t g_zoneRead = -1;  // the second in which the zone was read; guarded by g_timeLock

// Hosts run for weeks, and their zone may change. Where the environment does not name it, its file
// is looked at, which is dear, so once a second.
void ReadZone(time_t now) {
  if (getenv("TZ") == nullptr && now == g_zoneRead) return;
  tzset();
  g_zoneRead = now;
}

// Fills an array with text and decimal numbers and cuts what does not fit. The formatter of the
// system library takes as long for a prefix as all the rest of a line does.
class PrefixWriter {
 public:
  explicit PrefixWriter(LogPrefix& out) : m_at(out), m_end(out + std::size(out) - 1) {
    *m_at = L'\0';
  }

  PrefixWriter& operator<<(const wchar_t* text) {
    while (*text != L'\0' && m_at < m_end) *m_at++ = *text++;
    *m_at = L'\0';
    return *this;
  }

  // As "%0*d" does: the sign counts as a digit.
  PrefixWriter& Number(int value, int digits) {
    wchar_t reversed[16];
    wchar_t* digit = reversed + 15;
    *digit = L'\0';
    const wchar_t* const enough = digit - digits + (value < 0 ? 1 : 0);
    unsigned rest = value < 0 ? 0u - static_cast<unsigned>(value) : static_cast<unsigned>(value);
    for (; rest != 0 || digit > enough; rest /= 10)
      *--digit = static_cast<wchar_t>(L'0' + rest % 10);
    if (value < 0) *--digit = L'-';
    return *this << digit;
  }

 private:
  wchar_t* m_at;
  wchar_t* const m_end;
};

}  // namespace

bool FormatLogPrefix(LogPrefix& out, LPCTSTR srcFile, LPCTSTR function, DWORD line) {
  timeval now = {};
  tm local = {};
  if (!ReadLogTime(now, local)) return false;
  PrefixWriter prefix(out);
  prefix << L"[P";
  prefix.Number(getpid(), 4) << L"] [T";
  prefix.Number(static_cast<int>(pthread_self()), 4) << L"] [";
  prefix.Number(local.tm_year + 1900, 4) << L"-";
  prefix.Number(local.tm_mon + 1, 2) << L"-";
  prefix.Number(local.tm_mday, 2) << L" ";
  prefix.Number(local.tm_hour, 2) << L":";
  prefix.Number(local.tm_min, 2) << L":";
  prefix.Number(local.tm_sec, 2) << L":";
  // The microseconds as they are, so this field has three to six digits; those who read the log
  // reckon with it.
  prefix.Number(static_cast<int>(now.tv_usec), 3) << L"] [" << srcFile;
  if (function != nullptr && *function != L'\0') prefix << L"-" << function;
  prefix << L"(";
  prefix.Number(static_cast<int>(line), 1) << L")]: ";
  return true;
}

bool ReadLogTime(timeval& now, tm& local) {
  HoldLogTime();
  bool read = gettimeofday(&now, nullptr) == 0;
  if (read) ReadZone(now.tv_sec);
  read = read && localtime_r(&now.tv_sec, &local) != nullptr;
  ReleaseLogTime();
  return read;
}

void HoldLogTime() {
  pthread_mutex_lock(&g_timeLock);
}

void ReleaseLogTime() {
  pthread_mutex_unlock(&g_timeLock);
}
