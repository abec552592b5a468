// Strings that become empty on several threads share one empty text and do not disturb each other;
// the thread sanitizer watches.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "VELCstring.h"

namespace {

template <class String, typename C>
void UseEmptyStrings(const C* text, long* sum) {
  for (int i = 0; i < 2000; ++i) {
    String s;
    String copy(s);
    s = text;
    *sum += s.GetLength();
    s.Empty();
    s.ReleaseBuffer(-1);
    copy += s;
    s = copy;
    *sum += s.GetLength() + s.GetAllocLength() + *s.GetBuffer(0) + copy.Compare(s) + s.m_pchData[0];
    s.Format(text + String::SafeStrlen(text));
    *sum += static_cast<long>(std::basic_string<C>(s.m_pchData).size());
  }
}

TEST(VELCstringThreads, DistinctStringsShareTheEmptyTextInPeace) {
  long sums[8] = {};
  std::vector<std::thread> threads;
  for (long& sum : sums)
    threads.emplace_back([&sum] {
      UseEmptyStrings<CString>(L"ab", &sum);
      UseEmptyStrings<CStringA>("ab", &sum);
    });
  for (auto& thread : threads) thread.join();
  for (const long sum : sums) EXPECT_EQ(sum, 2 * 2 * 2000);
}

}  // namespace
