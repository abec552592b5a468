#include "LogPrefix.h"

#include <pthread.h>
#include <stdlib.h>
#include <unistd.h>

#include "LogText.h"

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

// What a line shows of its second, kept for the lines of the same second and zone.
class ShownSecond {
 public:
  // Null when it cannot be told.
  const wchar_t* Text(time_t second) {
    ReadZone(second);
    if (second == m_second && timezone == m_zone && tzname[0] == m_zoneName) return m_text;
    tm local = {};
    if (localtime_r(&second, &local) == nullptr) return nullptr;
    Format(local);
    m_second = second;
    m_zone = timezone;
    m_zoneName = tzname[0];
    return m_text;
  }

 private:
  void Format(const tm& local) {
    LogText text(m_text);
    text.Number(local.tm_year + 1900, 4) << L"-";
    text.Number(local.tm_mon + 1, 2) << L"-";
    text.Number(local.tm_mday, 2) << L" ";
    text.Number(local.tm_hour, 2) << L":";
    text.Number(local.tm_min, 2) << L":";
    text.Number(local.tm_sec, 2) << L":";
    text.End();
  }

  time_t m_second = 0;
  long m_zone = 0;
  const char* m_zoneName = nullptr;
  wchar_t m_text[40] = {};
};

ShownSecond g_shownSecond;  // guarded by g_timeLock

bool WriteSecond(LogText& prefix, time_t second) {
  HoldLogTime();
  const wchar_t* const text = g_shownSecond.Text(second);
  if (text != nullptr) prefix << text;
  ReleaseLogTime();
  return text != nullptr;
}

}  // namespace

bool FormatLogPrefix(LogPrefix& out, LPCTSTR srcFile, LPCTSTR function, DWORD line) {
  timeval now = {};
  if (gettimeofday(&now, nullptr) != 0) return false;
  LogText prefix(out);
  prefix << L"[P";
  prefix.Number(getpid(), 4) << L"] [T";
  prefix.Number(static_cast<int>(pthread_self()), 4) << L"] [";
  if (!WriteSecond(prefix, now.tv_sec)) return false;
  // The microseconds as they are, so this field has three to six digits; those who read the log
  // reckon with it.
  prefix.Number(static_cast<int>(now.tv_usec), 3) << L"] [" << srcFile;
  if (function != nullptr && *function != L'\0') prefix << L"-" << function;
  prefix << L"(";
  prefix.Number(static_cast<int>(line), 1) << L")]: ";
  prefix.End();
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
