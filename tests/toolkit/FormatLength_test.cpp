#include "FormatLength.h"

#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <string>

#include "VELCstring.h"

namespace {

template <class String>
using TextOf = std::basic_string<typename String::Char>;

template <class String>
TextOf<String> Widen(const std::string& ascii) {
  return {ascii.begin(), ascii.end()};
}

// How many characters the estimate gives a format, and what is printed into an empty string.
template <class String>
long long EstimateOf(const typename String::Char* format, ...) {
  va_list args;
  va_start(args, format);
  const long long total = FormatLength<String>(format, args).Total();
  va_end(args);
  return total;
}

template <class String>
TextOf<String> Printed(const typename String::Char* format, ...) {
  String s;
  va_list args;
  va_start(args, format);
  EXPECT_TRUE(s.FormatV(format, args));
  va_end(args);
  EXPECT_EQ(TextOf<String>(s.m_pchData).size(), static_cast<size_t>(s.GetLength()));
  EXPECT_EQ(s.GetAllocLength(), s.GetLength());
  return s.m_pchData;
}

template <class String>
class FormatEstimate : public testing::Test {
 protected:
  void SetUp() override { setlocale(LC_ALL, "C.UTF-8"); }
  void TearDown() override { setlocale(LC_ALL, "C"); }
};
typedef testing::Types<CString, CStringA> Kinds;
TYPED_TEST_SUITE(FormatEstimate, Kinds, );

// Both kinds of string go through the same cases. F("...") is a format of the kind.
#define TEST_BOTH(name)                               \
  template <class String>                             \
  void name(TextOf<String> (*F)(const std::string&)); \
  TYPED_TEST(FormatEstimate, name) {                  \
    name<TypeParam>(Widen<TypeParam>);                \
  }                                                   \
  template <class String>                             \
  void name([[maybe_unused]] TextOf<String> (*F)(const std::string&))

#define ESTIMATE(format, ...) EstimateOf<String>(F(format).c_str(), __VA_ARGS__)
#define PRINTED(format, ...) Printed<String>(F(format).c_str(), __VA_ARGS__)

TEST_BOTH(OrdinaryCharactersAndThePercentSignCountOne) {
  EXPECT_EQ(ESTIMATE("", 0), 0);
  EXPECT_EQ(ESTIMATE("abc", 0), 3);
  EXPECT_EQ(ESTIMATE("a%%b", 0), 3);
  EXPECT_EQ(ESTIMATE("%%%%", 0), 2);
  EXPECT_EQ(ESTIMATE("ab%", 0), 2);
  EXPECT_EQ(ESTIMATE("ab%-5", 0), 2);
  EXPECT_EQ(ESTIMATE("ab%.", 0), 2);
  EXPECT_EQ(ESTIMATE("ab%l", 0), 2);
  EXPECT_EQ(ESTIMATE("%#", 0), 2);
}

TEST_BOTH(IntegersTakeThirtyTwoOrTheirWidthAndPrecision) {
  for (const char* type : {"d", "i", "o", "u", "x", "X"}) {
    const std::string t = type;
    EXPECT_EQ(ESTIMATE("%" + t, 1), 32);
    EXPECT_EQ(ESTIMATE("%h" + t, 1), 32);
    EXPECT_EQ(ESTIMATE("%l" + t, 1L), 32);
    EXPECT_EQ(ESTIMATE("%I64" + t, 1LL), 32);
    EXPECT_EQ(ESTIMATE("%20.12" + t, 1), 32);
    EXPECT_EQ(ESTIMATE("%20.13" + t, 1), 33);
    EXPECT_EQ(ESTIMATE("%50" + t, 1), 50);
    EXPECT_EQ(ESTIMATE("%-+0 50" + t, 1), 50);
    EXPECT_EQ(ESTIMATE("%#" + t, 1), 34);
    EXPECT_EQ(ESTIMATE("%##50" + t, 1), 54);
    EXPECT_EQ(ESTIMATE("%*.*" + t, 30, 20, 1), 50);
    EXPECT_EQ(ESTIMATE("%*.*" + t, -30, -20, 1), 32);  // negative ones count as absent
    EXPECT_EQ(ESTIMATE("%*.*" + t, -30, 40, 1), 40);
  }
  EXPECT_EQ(ESTIMATE("%p", static_cast<void*>(nullptr)), 32);
}

TEST_BOTH(CharactersTakeTwo) {
  for (const char* type : {"c", "C", "lc", "hc", "lC", "hC"}) {
    const std::string t = type;
    EXPECT_EQ(ESTIMATE("%" + t, 'x'), 2);
    EXPECT_EQ(ESTIMATE("%5" + t, 'x'), 5);
    EXPECT_EQ(ESTIMATE("%5.1" + t, 'x'), 1);
    EXPECT_EQ(ESTIMATE("%c%*" + t, 'x', 7, 'x'), 9);
  }
}

TEST_BOTH(TextsTakeTheirLengthWithinWidthAndPrecision) {
  const auto own = F("abcdef");
  const auto none = F("");
  EXPECT_EQ(ESTIMATE("%s", own.c_str()), 6);
  EXPECT_EQ(ESTIMATE("%s", none.c_str()), 1);
  EXPECT_EQ(ESTIMATE("%s", static_cast<void*>(nullptr)), 6);
  EXPECT_EQ(ESTIMATE("%9s", own.c_str()), 9);
  EXPECT_EQ(ESTIMATE("%-9s", own.c_str()), 9);
  EXPECT_EQ(ESTIMATE("%2s", own.c_str()), 6);
  EXPECT_EQ(ESTIMATE("%.2s", own.c_str()), 2);
  EXPECT_EQ(ESTIMATE("%.9s", own.c_str()), 6);
  EXPECT_EQ(ESTIMATE("%9.2s", own.c_str()), 2);  // the precision bounds the width as well
  EXPECT_EQ(ESTIMATE("%.s", own.c_str()), 0);
  EXPECT_EQ(ESTIMATE("%.0s", own.c_str()), 0);
  EXPECT_EQ(ESTIMATE("%*.*s", 8, 7, own.c_str()), 7);
  EXPECT_EQ(ESTIMATE("%*.*s", -8, -7, own.c_str()), 6);
  EXPECT_EQ(ESTIMATE("%20s", static_cast<void*>(nullptr)), 20);
  for (const char* narrow : {"%hs", "%hS"}) {
    EXPECT_EQ(ESTIMATE(narrow, "abc"), 3);
    EXPECT_EQ(ESTIMATE(narrow, "\xE4\xB8\xAD"), 3);
    EXPECT_EQ(ESTIMATE(narrow, ""), 1);
  }
  for (const char* wide : {"%ls", "%lS"}) {
    EXPECT_EQ(ESTIMATE(wide, L"abc\u4e2d"), 4);
    EXPECT_EQ(ESTIMATE(wide, L""), 1);
    EXPECT_EQ(ESTIMATE(wide, static_cast<void*>(nullptr)), 6);
  }
  for (const char* skipped : {"%Fs", "%Ls", "%Ns"}) EXPECT_EQ(ESTIMATE(skipped, own.c_str()), 6);
}

TEST(FormatEstimateOfLargeS, TakesTheOtherKind) {
  EXPECT_EQ(EstimateOf<CString>(L"%S", "abcdef"), 6);
  EXPECT_EQ(EstimateOf<CStringA>("%S", L"abcdef"), 6);
}

TEST_BOTH(FloatingAndUnknownTypesTakeNothing) {
  for (const char* type : {"e", "E", "f", "g", "G"}) {
    const std::string t = type;
    EXPECT_EQ(ESTIMATE("%" + t, 1.5), 0);
    EXPECT_EQ(ESTIMATE("%20.10" + t, 1.5), 0);
    EXPECT_EQ(ESTIMATE("%#" + t, 1.5), 2);
    EXPECT_EQ(ESTIMATE("%" + t + "%d", 1.5, 1), 32);
  }
  EXPECT_EQ(ESTIMATE("%y", 0), 0);
  EXPECT_EQ(ESTIMATE("%yz", 0), 1);
}

TEST_BOTH(ArgumentsAreConsumedInOrder) {
  int written = 0;
  const auto own = F("abcdef");
  EXPECT_EQ(ESTIMATE("%d%s%c%hs%ls%p%n%s", 1, own.c_str(), 'x', "ab", L"abc", &written, &written,
                     own.c_str()),
            32 + 6 + 2 + 2 + 3 + 32 + 0 + 6);
  EXPECT_EQ(ESTIMATE("%ld%I64x%u%s", 1L, 2LL, 3u, own.c_str()), 102);
}

TEST_BOTH(HugeWidthsDoNotWrap) {
  EXPECT_EQ(ESTIMATE("%2147483647d%2147483647d", 1, 1), 2ll * INT_MAX);
  EXPECT_EQ(ESTIMATE("%99999999999999999999d", 1), INT_MAX);
  EXPECT_EQ(ESTIMATE("%2147483647.2147483647d", 1), 2ll * INT_MAX);
  String s;
  EXPECT_FALSE(s.Format(F("%2147483647d%2147483647d").c_str(), 1, 1));
  EXPECT_TRUE(s.IsEmpty());
}

TEST_BOTH(PrintsLikePrintfWithinTheEstimate) {
  EXPECT_EQ(PRINTED("", 0), F(""));
  EXPECT_EQ(PRINTED("%d|%5d|%-5d|%05d|%x|%#x|%o|%u", 1, 2, 3, 4, 255, 255, 8, 9u),
            F("1|    2|3    |00004|ff|0xff|10|9"));
  EXPECT_EQ(PRINTED("%ld %hd %c%%", LONG_MIN, 7, 'x'), F("-9223372036854775808 7 x%"));
  EXPECT_EQ(PRINTED("%hhd", 77), F("7"));  // the second h is an unknown type, the d a character
  EXPECT_EQ(PRINTED("<%10ls|%.2ls>", L"wide", L"wide"), F("<      wide|wi>"));
}

TEST_BOTH(FloatingValuesAreCutUnlessOtherItemsLeaveRoom) {
  EXPECT_EQ(PRINTED("%f", 1.5), F(""));
  EXPECT_EQ(PRINTED("ab%f", 1.5), F("ab"));
  EXPECT_EQ(PRINTED("%fab", 1.5), F("1."));
  EXPECT_EQ(PRINTED("%d %f", 1, 1.5), F("1 1.500000"));
  String s(F("abcdef").c_str());  // the room of the old text counts
  EXPECT_TRUE(s.Format(F("%f").c_str(), 1.5));
  EXPECT_EQ(TextOf<String>(s.m_pchData), F("1.5000"));
}

TEST_BOTH(ReplacesTheOldText) {
  String s(F("a longer text than the new one").c_str());
  EXPECT_TRUE(s.Format(F("%d").c_str(), 12));
  EXPECT_EQ(TextOf<String>(s.m_pchData), F("12"));
  EXPECT_EQ(s.GetLength(), 2);
  EXPECT_EQ(s.GetAllocLength(), 2);
  EXPECT_TRUE(s.Format(F("").c_str()));
  EXPECT_TRUE(s.IsEmpty());
}

TEST_BOTH(NullFormatFailsAndKeepsTheText) {
  String s(F("abc").c_str());
  EXPECT_FALSE(s.Format(nullptr));
  EXPECT_EQ(TextOf<String>(s.m_pchData), F("abc"));
}

TEST_BOTH(ArgumentsAndFormatMayLieInTheString) {
  String s(F("abc").c_str());
  EXPECT_TRUE(s.Format(F("%s%s!").c_str(), s.m_pchData, s.m_pchData + 1));
  EXPECT_EQ(TextOf<String>(s.m_pchData), F("abcbc!"));
  EXPECT_TRUE(s.Format(F("%.1s%s").c_str(), s.m_pchData + 5, s.m_pchData + 4));
  EXPECT_EQ(TextOf<String>(s.m_pchData), F("!c!"));
  String format(F("%d%d").c_str());
  EXPECT_TRUE(format.Format(format.m_pchData, 1, 2));
  EXPECT_EQ(TextOf<String>(format.m_pchData), F("12"));
}

TEST(WideFormat, PlainConversionTakesAWideText) {
  CString s;
  EXPECT_TRUE(s.Format(L"%s-%s", L"ab", L"c\u4e2d"));
  EXPECT_STREQ(s, L"ab-c\u4e2d");
  EXPECT_TRUE(s.Format(L"%ls", L"wide"));
  EXPECT_STREQ(s, L"wide");
}

TEST(WideFormat, NarrowPrefixTakesANarrowText) {
  setlocale(LC_ALL, "C.UTF-8");
  CString s;
  EXPECT_TRUE(s.Format(L"%hs|%d", "narrow \xE4\xB8\xAD", 1));
  EXPECT_STREQ(s, L"narrow \u4e2d|1");
  setlocale(LC_ALL, "C");
}

TEST(WideFormat, EveryPercentSignBeforeAnSIsRewritten) {
  CString s;
  EXPECT_TRUE(s.Format(L"100%%s"));
  EXPECT_STREQ(s, L"100%ls");
}

TEST(WideFormat, NullTextPrintsAsNull) {
  CString s;
  EXPECT_TRUE(s.Format(L"%s", static_cast<wchar_t*>(nullptr)));
  EXPECT_STREQ(s, L"(null)");
}

TEST(NarrowFormat, RewritesNothing) {
  CStringA s;
  EXPECT_TRUE(s.Format("%s-%%s-%ls", "ab", L"cd"));
  EXPECT_STREQ(s, "ab-%s-cd");
}

TEST(WideFormat, TextThatTheLocaleCannotConvertEndsThere) {
  setlocale(LC_ALL, "C");
  CString s(L"old text");
  EXPECT_TRUE(s.Format(L"%hs", "\xFF\xFE"));
  EXPECT_STREQ(s, L"");
}

}  // namespace
