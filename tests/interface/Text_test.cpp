#include <gtest/gtest.h>
#include <iconv.h>
#include <limits.h>
#include <locale.h>
#include <stdint.h>

#include <array>
#include <string>
#include <vector>

#include "VELInterface.h"

namespace {

using Bytes = std::string;
using Wide = std::wstring;

constexpr wchar_t kGuard = 0x5A5A5A5A;

// Both conversions with every argument usual but the text, through a size query.
Wide ToWide(const Bytes& text) {
  const int length = static_cast<int>(text.size());
  const int count = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
  Wide wide(static_cast<size_t>(count), kGuard);
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text.data(), length, wide.data(), count), count);
  return wide;
}

Bytes ToNarrow(const Wide& text) {
  const int length = static_cast<int>(text.size());
  const int count =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  Bytes bytes(static_cast<size_t>(count), '\x5A');
  EXPECT_EQ(
      WideCharToMultiByte(CP_UTF8, 0, text.data(), length, bytes.data(), count, nullptr, nullptr),
      count);
  return bytes;
}

bool IsAccepted(const Bytes& text) {
  return MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(),
                             static_cast<int>(text.size()), nullptr, 0) != 0;
}

// The well-formed sequences of Unicode (section 3.9, table 3-7), a row of byte ranges each.
struct Range {
  int low, high;
};
const std::vector<std::vector<Range>> kWellFormed = {
    {{0x00, 0x7F}},
    {{0xC2, 0xDF}, {0x80, 0xBF}},
    {{0xE0, 0xE0}, {0xA0, 0xBF}, {0x80, 0xBF}},
    {{0xE1, 0xEC}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xED, 0xED}, {0x80, 0x9F}, {0x80, 0xBF}},
    {{0xEE, 0xEF}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xF0, 0xF0}, {0x90, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xF1, 0xF3}, {0x80, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xF4, 0xF4}, {0x80, 0x8F}, {0x80, 0xBF}, {0x80, 0xBF}},
};

// Slow and obvious: the row that matches most bytes decides.
Wide ReferenceDecode(const Bytes& text) {
  Wide wide;
  for (size_t at = 0; at < text.size();) {
    size_t longest = 0;
    bool complete = false;
    for (const std::vector<Range>& row : kWellFormed) {
      size_t matched = 0;
      while (matched < row.size() && at + matched < text.size()) {
        const int byte = static_cast<unsigned char>(text[at + matched]);
        if (byte < row[matched].low || byte > row[matched].high) break;
        ++matched;
      }
      if (matched > longest) longest = matched;
      if (matched == row.size()) complete = true;
    }
    uint32_t value = 0xFFFD;
    if (complete) {
      const uint32_t lead = static_cast<unsigned char>(text[at]);
      value = longest == 1   ? lead
              : longest == 2 ? lead - 0xC0
              : longest == 3 ? lead - 0xE0
                             : lead - 0xF0;
      for (size_t i = 1; i < longest; ++i) {
        value = value * 64 + (static_cast<unsigned char>(text[at + i]) - 0x80u);
      }
    }
    wide += static_cast<wchar_t>(value);
    at += longest == 0 ? 1 : longest;
  }
  return wide;
}

bool ReferenceAccepts(const Bytes& text) {
  iconv_t converter = iconv_open("UTF-32LE", "UTF-8");
  Bytes input = text;
  std::array<char, 256> output;
  char* in = input.data();
  char* out = output.data();
  size_t inLeft = input.size();
  size_t outLeft = output.size();
  const size_t result = iconv(converter, &in, &inLeft, &out, &outLeft);
  iconv_close(converter);
  return result != static_cast<size_t>(-1);
}

class TextInLocale : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (setlocale(LC_ALL, GetParam()) == nullptr) GTEST_SKIP() << "no locale " << GetParam();
  }
  void TearDown() override { setlocale(LC_ALL, "C"); }
};
INSTANTIATE_TEST_SUITE_P(Locales, TextInLocale,
                         testing::Values("C", "C.UTF-8", "zh_CN.GB18030", "tr_TR.UTF-8"),
                         [](const auto& locale) {
                           std::string name = locale.param;
                           for (char& c : name) c = isalnum(c) ? c : '_';
                           return name;
                         });

TEST_P(TextInLocale, BothCodePagesAreUtf8) {
  const Bytes bytes = "a\xC2\xA9\xE7\xAD\xBE\xE5\x90\x8D\xF0\x9F\x94\x91";
  const Wide wide = L"a\u00A9\u7B7E\u540D\U0001F511";
  for (UINT codePage : {CP_ACP, CP_UTF8}) {
    wchar_t target[16];
    ASSERT_EQ(MultiByteToWideChar(codePage, 0, bytes.c_str(), -1, target, 16), 6);
    EXPECT_EQ(Wide(target), wide);
    char narrow[32];
    ASSERT_EQ(WideCharToMultiByte(codePage, 0, wide.c_str(), -1, narrow, 32, nullptr, nullptr), 14);
    EXPECT_EQ(Bytes(narrow), bytes);
  }
}

TEST_P(TextInLocale, FoldsLettersAlike) {
  EXPECT_EQ(_wcsicmp(L"ID", L"id"), 0);
  EXPECT_EQ(_wcsicmp(L"\u00C9\u0416\u03A9", L"\u00E9\u0436\u03C9"), 0);
  EXPECT_NE(_wcsicmp(L"I", L"\u0131"), 0);
}

TEST(Text, EveryCharacterOfUnicodeRoundTripsAsIconvHasIt) {
  Wide all;
  for (uint32_t c = 0; c <= 0x10FFFF; ++c) {
    if (c < 0xD800 || c > 0xDFFF) all += static_cast<wchar_t>(c);
  }
  Bytes expected(all.size() * 4, '\0');
  iconv_t converter = iconv_open("UTF-8", "WCHAR_T");
  char* in = reinterpret_cast<char*>(all.data());
  char* out = expected.data();
  size_t inLeft = all.size() * sizeof(wchar_t);
  size_t outLeft = expected.size();
  ASSERT_EQ(iconv(converter, &in, &inLeft, &out, &outLeft), 0u);
  iconv_close(converter);
  expected.resize(expected.size() - outLeft);
  EXPECT_TRUE(ToNarrow(all) == expected);
  EXPECT_TRUE(ToWide(expected) == all);
  EXPECT_TRUE(IsAccepted(expected));
}

TEST(Text, OneReplacementForEachMaximalPart) {
  struct Case {
    const char* bytes;
    const wchar_t* wide;
  };
  // The first four are the examples of Unicode, tables 3-8 to 3-11.
  const Case cases[] = {
      {"\xC0\xAF\xE0\x80\xBF\xF0\x81\x82\x41",
       L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\u0041"},
      {"\xED\xA0\x80\xED\xBF\xBF\xED\xAF\x41",
       L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\u0041"},
      {"\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42",
       L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\u0041\uFFFD\uFFFD\u0042"},
      {"\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41", L"\uFFFD\uFFFD\uFFFD\uFFFD\u0041"},
      {"\xE7\xAD", L"\uFFFD"},
      {"\xF0\x9F\x94", L"\uFFFD"},
      {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"\xE7\xAD\xBE\xE7", L"\u7B7E\uFFFD"},
      {"a\xE7z", L"a\uFFFDz"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ToWide(c.bytes), c.wide) << testing::PrintToString(Bytes(c.bytes));
    EXPECT_FALSE(IsAccepted(c.bytes));
  }
}

TEST(Text, EveryShortSequenceDecodesAsTheReference) {
  const int edges[] = {0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC1, 0xC2, 0xDF,
                       0xE0, 0xE1, 0xEC, 0xED, 0xEE, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xFF};
  for (int a : edges) {
    for (int b : edges) {
      for (int c : edges) {
        for (int d : {0x41, 0x7F, 0x80, 0xBF, 0xC2, 0xE1, 0xF4, 0xFF}) {
          const Bytes text = {static_cast<char>(a), static_cast<char>(b), static_cast<char>(c),
                              static_cast<char>(d)};
          ASSERT_EQ(ToWide(text), ReferenceDecode(text)) << testing::PrintToString(text);
        }
      }
    }
  }
}

TEST(Text, StrictFlagRefusesExactlyWhatIconvRefuses) {
  for (int a = 0; a < 256; ++a) {
    for (int b : {0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xE1}) {
      for (const char* rest : {"", "\x80", "\xBF\xBF", "A"}) {
        const Bytes text = Bytes{static_cast<char>(a), static_cast<char>(b)} + rest;
        ASSERT_EQ(IsAccepted(text), ReferenceAccepts(text)) << testing::PrintToString(text);
      }
    }
  }
}

TEST(Text, BadSequencesAreFoundAtEveryPlaceOfABlock) {
  for (size_t length = 1; length <= 70; ++length) {
    for (size_t at = 0; at < length; ++at) {
      Bytes text(length, 'x');
      text[at] = '\xFF';
      ASSERT_EQ(ToWide(text), ReferenceDecode(text));
      ASSERT_FALSE(IsAccepted(text));
      Wide wide(length, L'x');
      wide[at] = static_cast<wchar_t>(0x80000041);  // negative where wchar_t is signed
      ASSERT_EQ(ToNarrow(wide), Bytes(at, 'x') + "\xEF\xBF\xBD" + Bytes(length - at - 1, 'x'));
    }
  }
}

TEST(Text, StrictFlagGivesZeroAndNoTranslation) {
  wchar_t target[8];
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, "a\xFFz", -1, target, 8), 0);
  EXPECT_EQ(GetLastError(), 1113u);
  const wchar_t surrogate[] = {L'a', static_cast<wchar_t>(0xD800), 0};
  const wchar_t tooLarge[] = {L'a', static_cast<wchar_t>(0x110000), 0};
  char narrow[8];
  for (const wchar_t* text : {surrogate, tooLarge}) {
    EXPECT_EQ(
        WideCharToMultiByte(CP_ACP, WC_ERR_INVALID_CHARS, text, -1, narrow, 8, nullptr, nullptr),
        0);
    EXPECT_EQ(GetLastError(), 1113u);
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, text, -1, narrow, 8, nullptr, nullptr), 5);
    EXPECT_STREQ(narrow, "a\xEF\xBF\xBD");
  }
}

TEST(Text, ReplacementCharacterInTheSourceIsNoError) {
  EXPECT_TRUE(IsAccepted("\xEF\xBF\xBD"));
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, L"\uFFFD", 1, nullptr, 0, nullptr,
                                nullptr),
            3);
}

TEST(Text, EmbeddedZerosOfAGivenLengthAreConverted) {
  EXPECT_EQ(ToWide(Bytes("a\0b\0", 4)), Wide(L"a\0b\0", 4));
  EXPECT_EQ(ToNarrow(Wide(L"a\0b\0", 4)), Bytes("a\0b\0", 4));
}

// Every limit from none to plenty, for texts of every kind of character and of whole blocks.
TEST(Text, EveryLimitWritesTheTextOrFailsAndNeverBeyondIt) {
  const Bytes unit = "ab\xC2\xA9\xE7\xAD\xBE\xF0\x9F\x94\x91";
  for (const Bytes& bytes : {Bytes(), Bytes("a"), unit, Bytes(40, 'x'), unit + Bytes(33, 'y')}) {
    const Wide wide = ReferenceDecode(bytes);
    const int count = static_cast<int>(wide.size());
    const int size = static_cast<int>(bytes.size());
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, bytes.c_str(), -1, nullptr, 0), count + 1);
    for (int limit = 1; limit <= count + 3; ++limit) {
      Wide target(static_cast<size_t>(count + 4), kGuard);
      const int written = MultiByteToWideChar(CP_ACP, 0, bytes.c_str(), -1, target.data(), limit);
      ASSERT_EQ(written, limit < count ? 0 : limit == count ? count : count + 1);
      if (limit < count) {
        ASSERT_EQ(GetLastError(), 122u);
      } else {
        ASSERT_EQ(target.substr(0, static_cast<size_t>(written)),
                  Wide(wide.c_str(), static_cast<size_t>(written)));
      }
      for (size_t i = static_cast<size_t>(limit); i < target.size(); ++i) {
        ASSERT_EQ(target[i], kGuard);
      }
    }
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, wide.c_str(), -1, nullptr, 0, nullptr, nullptr),
              size + 1);
    for (int limit = 1; limit <= size + 3; ++limit) {
      Bytes target(static_cast<size_t>(size + 4), '\x5A');
      const int written =
          WideCharToMultiByte(CP_ACP, 0, wide.c_str(), -1, target.data(), limit, nullptr, nullptr);
      ASSERT_EQ(written, limit < size ? 0 : limit == size ? size : size + 1);
      if (limit < size) {
        ASSERT_EQ(GetLastError(), 122u);
      } else {
        ASSERT_EQ(target.substr(0, static_cast<size_t>(written)),
                  Bytes(bytes.c_str(), static_cast<size_t>(written)));
      }
      for (size_t i = static_cast<size_t>(limit); i < target.size(); ++i) {
        ASSERT_EQ(target[i], '\x5A');
      }
    }
  }
}

TEST(Text, AGivenLengthNeedsRoomForAllOfIt) {
  wchar_t wide[4];
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abc", 4, wide, 3), 0);
  EXPECT_EQ(GetLastError(), 122u);
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abc", 4, wide, 4), 4);
  char narrow[4];
  EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, L"abc", 4, narrow, 3, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), 122u);
  EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, L"abc", 4, narrow, 4, nullptr, nullptr), 4);
}

TEST(Text, WrongArgumentsGiveInvalidParameter) {
  struct Case {
    const char* what;
    UINT codePage;
    DWORD flags;
    bool source;
    int sourceLength;
    bool target;
    int targetLength;
  };
  const Case cases[] = {
      {"other code page", 936, 0, true, -1, true, 8},
      {"unknown flag", CP_UTF8, 0x40, true, -1, true, 8},
      {"null source", CP_UTF8, 0, false, -1, true, 8},
      {"source length 0", CP_UTF8, 0, true, 0, true, 8},
      {"source length -2", CP_UTF8, 0, true, -2, true, 8},
      {"null target with a length", CP_UTF8, 0, true, -1, false, 8},
      {"negative target length", CP_UTF8, 0, true, -1, true, -1},
  };
  wchar_t wide[8];
  char narrow[8];
  for (const Case& c : cases) {
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "\xFF", -1, wide, 8);  // another error
    EXPECT_EQ(MultiByteToWideChar(c.codePage, c.flags, c.source ? "a" : nullptr, c.sourceLength,
                                  c.target ? wide : nullptr, c.targetLength),
              0)
        << c.what;
    EXPECT_EQ(GetLastError(), 87u) << c.what;
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "\xFF", -1, wide, 8);
    EXPECT_EQ(WideCharToMultiByte(c.codePage, c.flags, c.source ? L"a" : nullptr, c.sourceLength,
                                  c.target ? narrow : nullptr, c.targetLength, nullptr, nullptr),
              0)
        << c.what;
    EXPECT_EQ(GetLastError(), 87u) << c.what;
  }
}

TEST(Text, DefaultCharacterIsRefused) {
  char narrow[8];
  BOOL used = FALSE;
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"a", -1, narrow, 8, "?", nullptr), 0);
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"a", -1, narrow, 8, nullptr, &used), 0);
  EXPECT_EQ(GetLastError(), 87u);
}

TEST(Text, LengthsStopAtTheTerminatorAndNullIsZero) {
  EXPECT_EQ(lstrlenA("abc\0d"), 3);
  EXPECT_EQ(lstrlenA(""), 0);
  EXPECT_EQ(lstrlenA(nullptr), 0);
  EXPECT_EQ(lstrlenW(L"a\u7B7E\0d"), 2);
  EXPECT_EQ(lstrlenW(L""), 0);
  EXPECT_EQ(lstrlenW(nullptr), 0);
}

TEST(Text, ComparisonsOrderByCodePoint) {
  const wchar_t huge[] = {static_cast<wchar_t>(0x80000000), 0};
  struct Case {
    const wchar_t *left, *right;
    int exact, folded;
  };
  const Case cases[] = {
      {L"", L"", 0, 0},         {L"a", L"a", 0, 0},   {L"a", L"b", -1, -1},
      {L"a", L"ab", -1, -1},    {L"B", L"a", -1, 1},  {L"abC", L"ABc", 1, 0},
      {L"_", L"A", 1, -1},      {L"[", L"a", -1, -1}, {L"@", L"`", -1, -1},
      {L"\u7B7E", L"z", 1, 1},  {huge, L"z", 1, 1},   {nullptr, L"", -1, -1},
      {nullptr, nullptr, 0, 0}, {L"z", L"[", 1, 1},   {L"Z", L"{", -1, -1},
  };
  const auto sign = [](int value) { return (value > 0) - (value < 0); };
  for (const Case& c : cases) {
    EXPECT_EQ(sign(lstrcmpW(c.left, c.right)), c.exact) << testing::PrintToString(c.left);
    EXPECT_EQ(sign(lstrcmpW(c.right, c.left)), -c.exact);
    EXPECT_EQ(sign(_wcsicmp(c.left, c.right)), c.folded) << testing::PrintToString(c.left);
    EXPECT_EQ(sign(_wcsicmp(c.right, c.left)), -c.folded);
  }
}

}  // namespace
