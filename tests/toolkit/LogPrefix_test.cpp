#include "LogPrefix.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

namespace {

// By the clock that the prefix is read from; that of time() is behind it.
time_t Now() {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  return now.tv_sec;
}

std::wstring Prefix() {
  LogPrefix prefix;
  return FormatLogPrefix(prefix, L"a.cpp", L"f", 1) ? prefix : L"";
}

// Of the prefix that was made between the two seconds.
bool ShowsLocalTime(const std::wstring& prefix, time_t from, time_t to) {
  for (time_t second = from; second <= to; ++second) {
    wchar_t text[64];
    wcsftime(text, 64, L"] [%Y-%m-%d %H:%M:%S:", localtime(&second));
    if (prefix.find(text) != std::wstring::npos) return true;
  }
  return false;
}

}  // namespace

TEST(LogPrefix, ShowsTheTimeZoneThatTheHostHasChosenLast) {
  for (const char* zone : {"UTC0", "CST-8", "EST5", "UTC0", "XYZ0"}) {
    setenv("TZ", zone, 1);
    const time_t before = Now();
    const std::wstring prefix = Prefix();
    EXPECT_TRUE(ShowsLocalTime(prefix, before, Now())) << zone;
  }
  unsetenv("TZ");
  tzset();
}

TEST(LogPrefix, ShowsTheNextSecond) {
  const time_t start = Now();
  for (time_t second = start; second == start;) {
    const timespec pause = {0, 50000000};
    nanosleep(&pause, nullptr);
    second = Now();
    const std::wstring prefix = Prefix();
    EXPECT_TRUE(ShowsLocalTime(prefix, second, Now()));
  }
}
