// What differs between the processors, and what the same records and headers make of it.
#include <gtest/gtest.h>
#include <pthread.h>

#include <limits>

#include "CVELCritical.h"
#include "VELCstring.h"

namespace {

constexpr bool kSignedChar = std::numeric_limits<char>::is_signed;
constexpr bool kSignedWide = std::numeric_limits<wchar_t>::is_signed;

#if defined(__aarch64__)
static_assert(sizeof(pthread_mutex_t) == 48 && !kSignedChar && !kSignedWide);
static_assert(sizeof(CVELCritical) == 56);
#elif defined(__x86_64__)
static_assert(sizeof(pthread_mutex_t) == 40 && kSignedChar && kSignedWide);
static_assert(sizeof(CVELCritical) == 48);
#else
#error "say here what this processor's types are"
#endif
static_assert(sizeof(wchar_t) == 4 && sizeof(long) == 8 && sizeof(void*) == 8);

// The smaller mutex leaves a gap, so that a text lies equally far behind its header everywhere.
TEST(Processor, TheTextOfAStringFollowsItsHeaderAfter64Bytes) {
  const CString wide(L"ab");
  const CStringA narrow("ab");
  EXPECT_EQ(reinterpret_cast<char*>(wide.GetBuffer()) - reinterpret_cast<char*>(wide.GetData()),
            64);
  EXPECT_EQ(narrow.GetBuffer() - reinterpret_cast<char*>(narrow.GetData()), 64);
}

// The bytes of UTF-8 text are above 127: a plain char that holds one is negative on one processor
// and not on the other.
TEST(Processor, BytesOfUtf8TextAreAboveAsciiOnBoth) {
  EXPECT_GT(CStringA("\xE4\xB8\xAD").Compare("z"), 0);
  EXPECT_LT(CStringA("z").Compare("\xE4\xB8\xAD"), 0);
  EXPECT_EQ(CStringA::tchar_cstrisdigit('\xE4'), 0);
  EXPECT_EQ(CStringA::tchar_cstrtoi("7\xB2"), 7);
}

}  // namespace
