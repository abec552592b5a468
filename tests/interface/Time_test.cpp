#include <gtest/gtest.h>
#include <time.h>

#include <fstream>

#include "VELInterface.h"

namespace {

TEST(Time, TicksAreTheMillisecondsThatTheSystemIsUp) {
  double before = 0, after = 0;
  std::ifstream("/proc/uptime") >> before;
  const DWORD ticks = GetTickCount();
  std::ifstream("/proc/uptime") >> after;
  EXPECT_GE(static_cast<double>(ticks), before * 1000 - 20);
  EXPECT_LE(static_cast<double>(ticks), after * 1000 + 20);
}

TEST(Time, TicksFollowAWaitAndNeverGoBack) {
  const DWORD start = GetTickCount();
  const timespec wait = {0, 30 * 1000000};
  nanosleep(&wait, nullptr);
  const DWORD end = GetTickCount();
  EXPECT_GE(end - start, 29u);
  EXPECT_LT(end - start, 20000u);
  DWORD last = end;
  for (int i = 0; i < 100000; ++i) {
    const DWORD now = GetTickCount();
    ASSERT_GE(now, last);
    last = now;
  }
}

}  // namespace
