#include "CVELCritical.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

TEST(VELCritical, OneThreadAtATime) {
  CVELCritical critical;
  long count = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 10000; ++i) {
        critical.EnterVELCritical();
        ++count;
        critical.LeaveVELCritical();
      }
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(count, 40000);
}

TEST(VELCritical, IsAPlainMutex) {
  CVELCritical critical;
  critical.EnterVELCritical();
  // Tried from another thread: a second entry by the same one is not to be relied upon.
  std::thread([&] { EXPECT_NE(pthread_mutex_trylock(&critical.m_csMain), 0); }).join();
  critical.LeaveVELCritical();
  EXPECT_EQ(pthread_mutex_trylock(&critical.m_csMain), 0);
  EXPECT_NE(pthread_mutex_trylock(&critical.m_csMain), 0);  // not recursive
  critical.LeaveVELCritical();
}

TEST(VELCritical, GuardLeavesAtTheEndOfItsBlock) {
  CVELCritical critical;
  {
    const CVELCriticalGuard guard(critical);
    EXPECT_NE(pthread_mutex_trylock(&critical.m_csMain), 0);
  }
  EXPECT_EQ(pthread_mutex_trylock(&critical.m_csMain), 0);
  critical.LeaveVELCritical();
}

TEST(VELCritical, IsATableAndAMutex) {
  EXPECT_EQ(sizeof(CVELCritical), sizeof(void*) + sizeof(pthread_mutex_t));
  delete new CVELCritical;
}

}  // namespace
