#include "MarkupEncoding.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "Markup.h"

namespace {

std::string Convert(MarkupCStr from, const std::string& bytes, MarkupCStr to, int* lost = nullptr,
                    int* count = nullptr) {
  TextEncoding text(from, bytes.data(), static_cast<int>(bytes.length()));
  const int needed = text.PerformConversion(nullptr, to);
  if (count != nullptr) *count = needed;
  if (needed < 0) return "failed";
  std::string out(static_cast<size_t>(needed) * TextEncoding::UnitSize(to), '\x55');
  EXPECT_EQ(text.PerformConversion(out.empty() ? nullptr : &out[0], to), needed);
  EXPECT_EQ(text.m_nToCount, needed);
  if (lost != nullptr) *lost = text.m_nFailedChars;
  return out;
}

bool IsPrivate(const std::string& utf8) {
  const char* p = utf8.c_str();
  const int code = CMarkup::DecodeCharUTF8(p);
  return code >= 0xe000 && code <= 0xf8ff;
}

}  // namespace

TEST(MarkupEncoding, MarksHaveTheirRows) {
  EXPECT_STREQ(BomTable[0].pszBom, "\xef\xbb\xbf");
  EXPECT_EQ(BomTable[0].nBomLen, 3);
  EXPECT_STREQ(BomTable[0].pszBomEnc, L"UTF-8");
  EXPECT_EQ(BomTable[0].nBomFlag, MDF_UTF8PREAMBLE);
  EXPECT_STREQ(BomTable[1].pszBom, "\xff\xfe");
  EXPECT_EQ(BomTable[1].nBomLen, 2);
  EXPECT_STREQ(BomTable[1].pszBomEnc, L"UTF-16LE");
  EXPECT_EQ(BomTable[1].nBomFlag, MDF_UTF16LEFILE);
  EXPECT_STREQ(BomTable[2].pszBom, "\xfe\xff");
  EXPECT_EQ(BomTable[2].nBomLen, 2);
  EXPECT_STREQ(BomTable[2].pszBomEnc, L"UTF-16BE");
  EXPECT_EQ(BomTable[2].nBomFlag, MDF_UTF16BEFILE);
  EXPECT_EQ(BomTable[3].pszBom, nullptr);
  EXPECT_EQ(BomTable[3].nBomLen, 0);
}

TEST(MarkupEncoding, NamesGoToTheConverterInCapitals) {
  EXPECT_EQ(TextEncoding::IConvName(L"gb18030"), "GB18030");
  EXPECT_EQ(TextEncoding::IConvName(L"Shift_jis"), "SHIFT_JIS");
  EXPECT_EQ(TextEncoding::IConvName(L"utf-16"), "UTF-16BE");
  EXPECT_EQ(TextEncoding::IConvName(L"UTF-16"), "UTF-16BE");
  EXPECT_EQ(TextEncoding::IConvName(L"UTF-16LE"), "UTF-16LE");
  EXPECT_EQ(TextEncoding::IConvName(L""), "");
  EXPECT_EQ(TextEncoding::IConvName(nullptr), "");
  EXPECT_EQ(TextEncoding::IConvName(L"\x4e2d"), "");
  EXPECT_EQ(TextEncoding::IConvName(std::wstring(100, L'a')), "");
}

TEST(MarkupEncoding, TextsAreConverted) {
  EXPECT_EQ(Convert(L"GBK", "\xd6\xd0\xce\xc4", L"UTF-8"), "\xe4\xb8\xad\xe6\x96\x87");
  EXPECT_EQ(Convert(L"utf-8", "\xe4\xb8\xad\xe6\x96\x87", L"gb18030"), "\xd6\xd0\xce\xc4");
  EXPECT_EQ(Convert(L"iso-8859-1", "\xe9", L"UTF-8"), "\xc3\xa9");
  int count;
  EXPECT_EQ(Convert(L"UTF-8", "a\xe4\xb8\xad", L"UTF-16", nullptr, &count),
            std::string("\0a\x4e\x2d", 4));
  EXPECT_EQ(count, 2);
  EXPECT_EQ(Convert(L"UTF-8", "a\xe4\xb8\xad", L"UTF-32LE", nullptr, &count),
            std::string("a\0\0\0\x2d\x4e\0\0", 8));
  EXPECT_EQ(count, 2);
  EXPECT_EQ(Convert(L"UTF-8", "", L"GBK", nullptr, &count), "");
  EXPECT_EQ(count, 0);
}

TEST(MarkupEncoding, LongTextsAreConvertedWhole) {
  std::string wide;
  std::string narrow;
  for (int i = 0; i < 10000; ++i) {
    narrow += "\xe4\xb8\xad";
    wide += std::string("\x2d\x4e\0\0", 4);
  }
  EXPECT_EQ(Convert(L"UTF-8", narrow, L"UTF-32LE"), wide);
  EXPECT_EQ(Convert(L"UTF-32LE", wide, L"UTF-8"), narrow);
}

TEST(MarkupEncoding, LostCharactersAreCountedNotFatal) {
  int lost;
  EXPECT_EQ(Convert(L"UTF-8",
                    "a\xff\xfe"
                    "b",
                    L"UTF-8", &lost),
            "a??b");
  EXPECT_EQ(lost, 2);
  EXPECT_EQ(Convert(L"UTF-8",
                    "a\xe4\xb8\xad\xf0\x9f\x98\x80"
                    "b",
                    L"ISO-8859-1", &lost),
            "a??b");
  EXPECT_EQ(lost, 2);
  EXPECT_EQ(Convert(L"UTF-8", "a\xe4\xb8", L"UTF-8", &lost), "a");
  EXPECT_EQ(lost, 1);
  EXPECT_EQ(Convert(L"UTF-16BE", std::string("\xd8\0\0a", 4), L"UTF-8", &lost), "?a");
  EXPECT_EQ(lost, 1);
  EXPECT_EQ(Convert(L"UTF-8", "\xe4\xb8\xad", L"US-ASCII", &lost), "?");
  EXPECT_EQ(lost, 1);
  EXPECT_EQ(Convert(L"UTF-8", "\xe4\xb8\xad", L"UTF-8", &lost), "\xe4\xb8\xad");
  EXPECT_EQ(lost, 0);
}

TEST(MarkupEncoding, AShiftStateIsLeftAtTheEnd) {
  const std::string jis = Convert(L"UTF-8", "\xe6\x97\xa5", L"ISO-2022-JP");
  EXPECT_EQ(jis, "\x1b$BF|\x1b(B");
  EXPECT_EQ(Convert(L"ISO-2022-JP", jis, L"UTF-8"), "\xe6\x97\xa5");
}

TEST(MarkupEncoding, AnUnknownEncodingIsNegative) {
  TextEncoding text(L"UTF-8", "a", 1);
  EXPECT_LT(text.PerformConversion(nullptr, L"no-such-encoding"), 0);
  EXPECT_LT(text.PerformConversion(nullptr, L"\x4e2d"), 0);
  TextEncoding source(L"no-such-encoding", "a", 1);
  EXPECT_LT(source.PerformConversion(nullptr, L"UTF-8"), 0);
  EXPECT_FALSE(TextEncoding::IsKnown(L"no-such-encoding"));
  EXPECT_TRUE(TextEncoding::IsKnown(L"gbk"));
}

TEST(MarkupEncoding, RaggedEndsAreFound) {
  struct {
    const wchar_t* encoding;
    std::string bytes;
    int whole;
  } const cases[] = {
      {L"UTF-8", "ab\xe4\xb8", 2},
      {L"UTF-8", "ab\xe4\xb8\xad", 5},
      {L"UTF-8", "\xff\xe4", 1},
      {L"GBK", "a\xd6\xd0\xce", 3},
      {L"GB18030", "a\x81\x30\x81", 1},
      {L"UTF-16LE", std::string("a\0b", 3), 2},
      {L"UTF-16LE", std::string("a\0\x3d\xd8", 4), 2},
      {L"ISO-8859-1", "\xff", 1},
  };
  for (const auto& c : cases) {
    const int length = static_cast<int>(c.bytes.length());
    TextEncoding text(c.encoding, c.bytes.data(), length);
    int whole = length;
    EXPECT_EQ(text.FindRaggedEnd(whole), c.whole != length) << c.encoding;
    EXPECT_EQ(whole, c.whole) << c.encoding;
  }
}

// The names of one code page are one encoding to the system library, as far as it knows them.
TEST(MarkupEncoding, NamesOfOneCodePageDecodeAlike) {
  std::ifstream file(ENCODING_NAMES);
  int compared = 0;
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    std::string page, first;
    words >> page;
    for (std::string name; words >> name;) {
      const std::wstring wide(name.begin(), name.end());
      if (!TextEncoding::IsKnown(wide) || TextEncoding::UnitSize(wide) != 1) continue;
      if (first.empty()) first = name;
      const std::wstring wideFirst(first.begin(), first.end());
      for (int c = 0xa0; c < 0x100; ++c) {
        const std::string bytes = {static_cast<char>(c), static_cast<char>(0xa1)};
        int lost, lostFirst;
        const std::string text = Convert(wide, bytes, L"UTF-8", &lost);
        const std::string textFirst = Convert(wideFirst, bytes, L"UTF-8", &lostFirst);
        // Some fill holes of the others with characters of their private area.
        if (lost != 0 || lostFirst != 0 || IsPrivate(text) || IsPrivate(textFirst)) continue;
        ++compared;
        EXPECT_EQ(text, textFirst) << name << " and " << first << " at " << c;
      }
    }
  }
  EXPECT_GT(compared, 1000);
}
