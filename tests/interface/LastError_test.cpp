#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "VELInterface.h"

namespace {

TEST(LastError, IsZeroAtTheStartOfAThread) {
  CloseHandle(nullptr);
  EXPECT_EQ(GetLastError(), 6u);
  DWORD seen = 99;
  std::thread([&seen] { seen = GetLastError(); }).join();
  EXPECT_EQ(seen, 0u);
  EXPECT_EQ(GetLastError(), 6u);
}

TEST(LastError, BelongsToTheThreadThatFailed) {
  std::atomic<int> right{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&right, i] {
      for (int n = 0; n < 1000; ++n) {
        if (i % 2 == 0) {
          CloseHandle(nullptr);
        } else {
          PathFileExistsW(nullptr);
        }
        std::this_thread::yield();
        if (GetLastError() == (i % 2 == 0 ? 6u : 87u)) ++right;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(right, 4000);
}

TEST(LastError, ASuccessLeavesItAlone) {
  CloseHandle(nullptr);
  wchar_t wide[4];
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "a", -1, wide, 4), 2);
  EXPECT_TRUE(PathIsDirectoryW(L"/"));
  EXPECT_TRUE(HeapFree(GetProcessHeap(), 0, HeapAlloc(GetProcessHeap(), 0, 1)));
  GetTickCount();
  EXPECT_EQ(GetLastError(), 6u);
}

}  // namespace
