#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <thread>
#include <vector>

#include "VELInterface.h"

namespace {

constexpr SIZE_T kLargest = 4096;
constexpr SIZE_T kNoSize = static_cast<SIZE_T>(-1);

bool AreAll(const void* block, SIZE_T from, SIZE_T to, unsigned char value) {
  const unsigned char* const bytes = static_cast<const unsigned char*>(block);
  for (SIZE_T i = from; i < to; ++i) {
    if (bytes[i] != value) return false;
  }
  return true;
}

// Freed blocks full of bytes, so that a block that is not zeroed shows it.
void SoilTheHeap() {
  std::vector<void*> blocks;
  for (SIZE_T size = 0; size <= kLargest; size += 16) {
    blocks.push_back(HeapAlloc(GetProcessHeap(), 0, size));
    memset(blocks.back(), 0xA5, size);
  }
  for (void* block : blocks) HeapFree(GetProcessHeap(), 0, block);
}

TEST(Heap, SizesFrom0To4096AreKeptToTheByteAndZeroed) {
  SoilTheHeap();
  for (SIZE_T size = 0; size <= kLargest; ++size) {
    void* const block = HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size);
    ASSERT_NE(block, nullptr);
    ASSERT_EQ(HeapSize(GetProcessHeap(), 0, block), size);
    ASSERT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0u);
    ASSERT_TRUE(AreAll(block, 0, size, 0)) << size;
    memset(block, 0xA5, size);
    ASSERT_EQ(HeapSize(GetProcessHeap(), 0, block), size);
    ASSERT_TRUE(HeapFree(GetProcessHeap(), 0, block));
  }
}

TEST(Heap, GrowingKeepsTheBytesAndZeroesTheAdded) {
  SoilTheHeap();
  for (SIZE_T size = 0; size <= kLargest; ++size) {
    void* block = HeapAlloc(GetProcessHeap(), 0, size);
    memset(block, 0x77, size);
    for (SIZE_T larger : {size + 1, size + 13, size * 2 + 100}) {
      const SIZE_T before = HeapSize(GetProcessHeap(), 0, block);
      block = HeapReAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, block, larger);
      ASSERT_NE(block, nullptr);
      ASSERT_EQ(HeapSize(GetProcessHeap(), 0, block), larger);
      ASSERT_TRUE(AreAll(block, before, larger, 0)) << size << " to " << larger;
    }
    ASSERT_TRUE(AreAll(block, 0, size, 0x77)) << size;
    ASSERT_TRUE(HeapFree(GetProcessHeap(), 0, block));
  }
}

TEST(Heap, ShrinkingKeepsTheBytesAndWhatIsGivenBackComesZeroedAgain) {
  for (SIZE_T size = 1; size <= kLargest; size += 7) {
    void* block = HeapAlloc(GetProcessHeap(), 0, size);
    memset(block, 0x77, size);
    const SIZE_T half = size / 2;
    block = HeapReAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, block, half);
    ASSERT_EQ(HeapSize(GetProcessHeap(), 0, block), half);
    block = HeapReAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, block, size);
    ASSERT_TRUE(AreAll(block, 0, half, 0x77)) << size;
    ASSERT_TRUE(AreAll(block, half, size, 0)) << size;
    ASSERT_TRUE(HeapFree(GetProcessHeap(), 0, block));
  }
}

TEST(Heap, ResizingToNothingLeavesABlockOfSize0) {
  void* block = HeapAlloc(GetProcessHeap(), 0, 10);
  block = HeapReAlloc(GetProcessHeap(), 0, block, 0);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(HeapSize(GetProcessHeap(), 0, block), 0u);
  EXPECT_TRUE(HeapFree(GetProcessHeap(), 0, block));
}

TEST(Heap, ExhaustedMemoryIsNullWithError8AndKeepsTheOldBlock) {
  void* const block = HeapAlloc(GetProcessHeap(), 0, 3);
  memcpy(block, "abc", 3);
  // Taken at run time, so that the compiler does not object.
  for (volatile SIZE_T size : {SIZE_MAX, SIZE_MAX - 15, SIZE_MAX - 16, SIZE_MAX / 2 + 1}) {
    HeapFree(nullptr, 0, nullptr);  // leaves another error
    EXPECT_EQ(HeapAlloc(GetProcessHeap(), 0, size), nullptr);
    EXPECT_EQ(GetLastError(), 8u);
    HeapFree(nullptr, 0, nullptr);
    EXPECT_EQ(HeapReAlloc(GetProcessHeap(), 0, block, size), nullptr);
    EXPECT_EQ(GetLastError(), 8u);
  }
  EXPECT_EQ(HeapSize(GetProcessHeap(), 0, block), 3u);
  EXPECT_EQ(memcmp(block, "abc", 3), 0);
  EXPECT_TRUE(HeapFree(GetProcessHeap(), 0, block));
}

TEST(Heap, AnotherHandleIsRefusedByAll) {
  void* const block = HeapAlloc(GetProcessHeap(), 0, 3);
  int other = 0;
  for (HANDLE heap : {HANDLE{nullptr}, HANDLE{&other}, INVALID_HANDLE_VALUE}) {
    const auto refused = [](bool failed) {
      const bool yes = failed && GetLastError() == 6;
      PathFileExistsW(nullptr);  // leaves another error
      return yes;
    };
    EXPECT_TRUE(refused(HeapAlloc(heap, 0, 3) == nullptr));
    EXPECT_TRUE(refused(HeapReAlloc(heap, 0, block, 5) == nullptr));
    EXPECT_TRUE(refused(HeapSize(heap, 0, block) == kNoSize));
    EXPECT_TRUE(refused(!HeapFree(heap, 0, block)));
  }
  EXPECT_TRUE(HeapFree(GetProcessHeap(), 0, block));
}

TEST(Heap, NullBlocks) {
  EXPECT_TRUE(HeapFree(GetProcessHeap(), 0, nullptr));
  EXPECT_EQ(HeapSize(GetProcessHeap(), 0, nullptr), kNoSize);
  EXPECT_EQ(GetLastError(), 87u);
  HeapFree(nullptr, 0, nullptr);
  EXPECT_EQ(HeapReAlloc(GetProcessHeap(), 0, nullptr, 5), nullptr);
  EXPECT_EQ(GetLastError(), 87u);
}

TEST(Heap, OneThreadMayFreeWhatAnotherTook) {
  EXPECT_NE(GetProcessHeap(), nullptr);
  std::vector<void*> blocks(1000);
  std::thread([&] {
    for (SIZE_T i = 0; i < blocks.size(); ++i) {
      blocks[i] = HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, i);
    }
  }).join();
  for (SIZE_T i = 0; i < blocks.size(); ++i) {
    ASSERT_EQ(HeapSize(GetProcessHeap(), 0, blocks[i]), i);
    ASSERT_TRUE(HeapFree(GetProcessHeap(), 0, blocks[i]));
  }
}

}  // namespace
