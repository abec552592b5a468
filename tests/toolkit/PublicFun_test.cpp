#include "PublicFun.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

#include "ArrayAllocations.h"

namespace {

const char* const UTF8 = "C.UTF-8";

// Pairs of the same text; those that are not ASCII need a UTF-8 locale.
const struct Pair {
  const char* narrow;
  const wchar_t* wide;
} PAIRS[] = {{"a", L"a"},
             {"hello world", L"hello world"},
             {"\xC2\x80\xDF\xBF", L"\u0080\u07ff"},
             {"\xE4\xB8\xAD\xE6\x96\x87", L"\u4e2d\u6587"},
             {"a\xF0\x9F\x98\x80z", L"a\U0001F600z"},
             {"\xEF\xBF\xBD", L"\uFFFD"},
             {"\xF4\x8F\xBF\xBF", L"\U0010FFFF"}};

// Not UTF-8, beginning well or not.
const char* const INVALID[] = {"\xFF",         "ab\xFF",           "\x80",
                               "\xC3",         "ab\xE4\xB8",       "\xC0\x80",
                               "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE4\xB8\xADz\xB8"};

bool IsAscii(const char* text) {
  for (; *text != 0; ++text)
    if (static_cast<unsigned char>(*text) > 127) return false;
  return true;
}

class PublicFun : public testing::Test {
 protected:
  void SetUp() override { ArrayAllocations::Reset(); }
  void TearDown() override {
    setlocale(LC_ALL, "C");
    ArrayAllocations::Reset();
  }
  static void ExpectNil(const CString& s) { EXPECT_EQ(s.m_pchData, _atltmpPchNil); }
  static void ExpectNil(const CStringA& s) { EXPECT_EQ(s.m_pchData, _atltmpPchNilA); }
};

TEST_F(PublicFun, ConvertsInBothDirections) {
  setlocale(LC_ALL, UTF8);
  for (const Pair& pair : PAIRS) {
    CString wide(L"old");
    CStringA narrow("old");
    EXPECT_EQ(CPublicFun::UTF8ToUnicode(pair.narrow, wide), 0);
    EXPECT_STREQ(wide, pair.wide);
    EXPECT_EQ(CPublicFun::UnicodeToUTF8(pair.wide, narrow), 0);
    EXPECT_STREQ(narrow, pair.narrow);
    EXPECT_EQ(wide.GetLength(), static_cast<int>(wcslen(pair.wide)));
    EXPECT_EQ(narrow.GetLength(), static_cast<int>(strlen(pair.narrow)));
    EXPECT_EQ(wide.GetAllocLength(), wide.GetLength());
    EXPECT_EQ(narrow.GetAllocLength(), narrow.GetLength());
  }
}

TEST_F(PublicFun, NullAndEmptyGiveTheEmptyTextAndZero) {
  for (const char* locale : {"C", UTF8}) {
    setlocale(LC_ALL, locale);
    for (const char* in : {static_cast<const char*>(nullptr), ""}) {
      CString wide(L"old");
      EXPECT_EQ(CPublicFun::UTF8ToUnicode(in, wide), 0);
      ExpectNil(wide);
      ExpectNil(CString(in));
    }
    for (const wchar_t* in : {static_cast<const wchar_t*>(nullptr), L""}) {
      CStringA narrow("old");
      EXPECT_EQ(CPublicFun::UnicodeToUTF8(in, narrow), 0);
      ExpectNil(narrow);
      ExpectNil(CStringA(in));
    }
  }
}

TEST_F(PublicFun, ConstructorsConvertLikeAssignment) {
  setlocale(LC_ALL, UTF8);
  for (const Pair& pair : PAIRS) {
    EXPECT_STREQ(CString(pair.narrow), pair.wide);
    EXPECT_STREQ(CStringA(pair.wide), pair.narrow);
    EXPECT_EQ(CString(pair.narrow).GetLength(), static_cast<int>(wcslen(pair.wide)));
  }
}

TEST_F(PublicFun, BlocksHoldTheCountedCharactersExactly) {
  setlocale(LC_ALL, UTF8);
  for (const Pair& pair : PAIRS) {
    const CString wide(pair.narrow);
    EXPECT_EQ(ArrayAllocations::lastSize, 64 + (wcslen(pair.wide) + 1) * sizeof(wchar_t));
    const CStringA narrow(pair.wide);
    EXPECT_EQ(ArrayAllocations::lastSize, 64 + strlen(pair.narrow) + 1);
  }
}

TEST_F(PublicFun, ABlockThatIsLargeEnoughIsKept) {
  setlocale(LC_ALL, UTF8);
  CString wide(L"abcdef");
  const wchar_t* const block = wide;
  wide = "\xE4\xB8\xAD";
  EXPECT_EQ(wide, block);
  EXPECT_STREQ(wide, L"\u4e2d");
  CStringA narrow("abcdef");
  const char* const narrowBlock = narrow;
  narrow = L"\u4e2d";
  EXPECT_EQ(narrow, narrowBlock);
  EXPECT_STREQ(narrow, "\xE4\xB8\xAD");
}

TEST_F(PublicFun, InvalidSequencesGiveTheEmptyText) {
  for (const char* locale : {"C", UTF8}) {
    setlocale(LC_ALL, locale);
    for (const char* text : INVALID) {
      ExpectNil(CString(text));
      CString assigned(L"old");
      assigned = text;
      ExpectNil(assigned);
    }
  }
}

TEST_F(PublicFun, WhatIsNoCharacterGivesTheEmptyText) {
  setlocale(LC_ALL, UTF8);
  for (const wchar_t bad : {wchar_t(0xD800), wchar_t(0xDC80), wchar_t(0xDFFF), wchar_t(-1)}) {
    const wchar_t text[] = {L'a', bad, 0};
    ExpectNil(CStringA(text));
    CStringA assigned("old");
    assigned = text;
    ExpectNil(assigned);
  }
}

// The locale counts, and outside ASCII the C locale counts nothing; a locale that is missing
// leaves the one before in force.
TEST_F(PublicFun, WithoutAUtf8LocaleOnlyAsciiConverts) {
  for (const char* locale : {"C", "POSIX", "xx_YY.missing"}) {
    setlocale(LC_ALL, "C");
    setlocale(LC_ALL, locale);
    for (const Pair& pair : PAIRS) {
      const CString wide(pair.narrow);
      const CStringA narrow(pair.wide);
      if (IsAscii(pair.narrow)) {
        EXPECT_STREQ(wide, pair.wide);
        EXPECT_STREQ(narrow, pair.narrow);
      } else {
        ExpectNil(wide);
        ExpectNil(narrow);
      }
    }
  }
}

// A locale that counts more or fewer characters than UTF-8 has: whatever comes out lies in the
// block that was counted.
TEST_F(PublicFun, LocalesOfOtherEncodingsNeverWriteOutsideTheBlock) {
  bool any = false;
  for (const char* locale : {"zh_CN.GB18030", "zh_CN.GBK", "de_DE.ISO-8859-1"}) {
    if (setlocale(LC_ALL, locale) == nullptr) continue;
    any = true;
    for (const char* text :
         {"\xD6\xD0\xCE\xC4", "a\xD6\xD0", "\xE4\xB8\xAD\xE6\x96\x87", "ascii"}) {
      const size_t count = mbstowcs(nullptr, text, 0);
      const CString constructed(text);
      CString assigned(L"x");
      assigned = text;
      EXPECT_LE(static_cast<size_t>(constructed.GetLength()), count == size_t(-1) ? 0 : count);
      EXPECT_STREQ(constructed, assigned);
    }
    for (const Pair& pair : PAIRS) {
      const size_t count = wcstombs(nullptr, pair.wide, 0);
      EXPECT_LE(static_cast<size_t>(CStringA(pair.wide).GetLength()),
                count == size_t(-1) ? 0 : count);
    }
  }
  if (!any) GTEST_SKIP() << "no locale of another encoding is installed";
}

TEST_F(PublicFun, ConvertersStayWithinLimitAndTerminator) {
  wchar_t wide[8];
  for (wchar_t& c : wide) c = L'#';
  EXPECT_GT(CString::tchar_mbstowcsz(wide, "abc", 3), 0);
  EXPECT_STREQ(wide, L"abc");
  EXPECT_EQ(wide[4], L'#');
  char narrow[8] = {'#', '#', '#', '#', '#', '#', '#', '#'};
  EXPECT_EQ(CStringA::char_wcstombsz(narrow, L"abc", 3), 3);
  EXPECT_STREQ(narrow, "abc");
  EXPECT_EQ(narrow[4], '#');
}

TEST_F(PublicFun, LongTextsSurviveTheRoundTrip) {
  setlocale(LC_ALL, UTF8);
  std::wstring text;
  for (int i = 0; i < 20000; ++i) text += L"a\u00e9\u4e2d\U0001F600"[i % 4];
  const CStringA narrow(text.c_str());
  EXPECT_EQ(narrow.GetLength(), 5000 * (1 + 2 + 3 + 4));
  EXPECT_TRUE(CString(narrow.m_pchData).m_pchData == text);
}

TEST_F(PublicFun, WithoutMemoryConversionGivesTheEmptyText) {
  const std::string text(300, 'x');
  const std::wstring wideText(300, L'x');
  ArrayAllocations::failFrom = 200;
  CString wide(L"old");
  wide = text.c_str();
  ExpectNil(wide);
  CStringA narrow("old");
  narrow = wideText.c_str();
  ExpectNil(narrow);
}

}  // namespace
