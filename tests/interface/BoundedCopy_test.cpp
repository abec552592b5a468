#include <errno.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <string>

#include "VELInterface.h"

namespace {

// The target is filled with 'x' before; `expected` is all of it afterwards.
struct Case {
  size_t targetSize;
  const char* source;
  size_t count;
  int result;
  std::string expected;
};

TEST(BoundedCopy, CountedCopyTerminatesOrLeavesTheEmptyText) {
  const Case cases[] = {
      {6, "abc", 3, 0, std::string("abc\0xx", 6)},
      {6, "abc", 2, 0, std::string("ab\0xxx", 6)},
      {6, "abc", 99, 0, std::string("abc\0xx", 6)},
      {6, "abc", 0, 0, std::string("\0xxxxx", 6)},
      {6, "", 5, 0, std::string("\0xxxxx", 6)},
      {4, "abc", 3, 0, std::string("abc\0xx", 6)},
      {3, "abc", 3, ERANGE, std::string("\0xxxxx", 6)},
      {3, "abc", SIZE_MAX, ERANGE, std::string("\0xxxxx", 6)},
      {3, "abc", 2, 0, std::string("ab\0xxx", 6)},
      {1, "abc", 0, 0, std::string("\0xxxxx", 6)},
      {6, nullptr, 3, EINVAL, std::string("\0xxxxx", 6)},
      {0, "abc", 3, EINVAL, "xxxxxx"},
  };
  for (const Case& c : cases) {
    std::string target(6, 'x');
    EXPECT_EQ(strncpy_s(target.data(), c.targetSize, c.source, c.count), c.result);
    EXPECT_EQ(target, c.expected) << c.targetSize << " " << c.count;
  }
  EXPECT_EQ(strncpy_s(nullptr, 5, "abc", 3), EINVAL);
}

TEST(BoundedCopy, WholeCopyTerminatesOrLeavesTheEmptyText) {
  const Case cases[] = {
      {6, "abc", 0, 0, std::string("abc\0xx", 6)},
      {4, "abc", 0, 0, std::string("abc\0xx", 6)},
      {3, "abc", 0, ERANGE, std::string("\0xxxxx", 6)},
      {1, "abc", 0, ERANGE, std::string("\0xxxxx", 6)},
      {1, "", 0, 0, std::string("\0xxxxx", 6)},
      {6, nullptr, 0, EINVAL, std::string("\0xxxxx", 6)},
      {0, "abc", 0, EINVAL, "xxxxxx"},
  };
  for (const Case& c : cases) {
    std::string target(6, 'x');
    EXPECT_EQ(strcpy_s(target.data(), c.targetSize, c.source), c.result);
    EXPECT_EQ(target, c.expected) << c.targetSize;

    std::wstring wideSource;
    if (c.source != nullptr) wideSource.assign(c.source, c.source + strlen(c.source));
    std::wstring wide(6, L'x');
    EXPECT_EQ(wcscpy_s(wide.data(), c.targetSize, c.source ? wideSource.c_str() : nullptr),
              c.result);
    EXPECT_EQ(wide, std::wstring(c.expected.begin(), c.expected.end())) << c.targetSize;
  }
  EXPECT_EQ(strcpy_s(nullptr, 5, "abc"), EINVAL);
  EXPECT_EQ(wcscpy_s(nullptr, 5, L"abc"), EINVAL);
}

TEST(BoundedCopy, AnUnterminatedSourceIsReadUpToTheCountOnly) {
  const std::string source = {'a', 'b', 'c'};
  char* const exact = new char[3];
  memcpy(exact, source.data(), 3);
  char target[4];
  EXPECT_EQ(strncpy_s(target, 4, exact, 3), 0);
  EXPECT_STREQ(target, "abc");
  delete[] exact;
}

TEST(BoundedCopy, BytesAreCopiedExactlyOrTheTargetIsZeroed) {
  const Case cases[] = {
      {6, "ab\0d", 4, 0, std::string("ab\0dxx", 6)},
      {4, "abcd", 4, 0, "abcdxx"},
      {3, "abcd", 4, ERANGE, std::string("\0\0\0xxx", 6)},
      {0, "abcd", 4, ERANGE, "xxxxxx"},
      {3, nullptr, 2, EINVAL, std::string("\0\0\0xxx", 6)},
      {3, nullptr, 0, 0, "xxxxxx"},
      {0, "abcd", 0, 0, "xxxxxx"},
  };
  for (const Case& c : cases) {
    std::string target(6, 'x');
    EXPECT_EQ(memcpy_s(target.data(), c.targetSize, c.source, c.count), c.result);
    EXPECT_EQ(target, c.expected) << c.targetSize << " " << c.count;
  }
  EXPECT_EQ(memcpy_s(nullptr, 4, "abcd", 4), EINVAL);
  EXPECT_EQ(memcpy_s(nullptr, 0, nullptr, 0), 0);
}

TEST(BoundedCopy, RangesMayOverlap) {
  char bytes[] = "abcdef";
  EXPECT_EQ(memcpy_s(bytes + 2, 4, bytes, 4), 0);
  EXPECT_STREQ(bytes, "ababcd");
  EXPECT_EQ(memcpy_s(bytes, 6, bytes + 2, 4), 0);
  EXPECT_STREQ(bytes, "abcdcd");
  wchar_t wide[] = L"abc\0.";
  EXPECT_EQ(wcscpy_s(wide + 1, 5, wide), 0);
  EXPECT_STREQ(wide, L"aabc");
}

}  // namespace
