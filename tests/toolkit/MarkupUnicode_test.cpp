// UTF-8, UTF-16 and names of code pages.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "Markup.h"

namespace {

std::string UTF8(int code) {
  char bytes[4];
  int length;
  CMarkup::EncodeCharUTF8(code, bytes, length);
  return std::string(bytes, length);
}

// From the table of RFC 3629, bit by bit.
std::string ReferenceUTF8(unsigned int c) {
  const auto ch = [](unsigned int bits) { return static_cast<char>(bits); };
  if (c < 0x80) return {ch(c)};
  if (c < 0x800) return {ch(0xc0 + c / 64), ch(0x80 + c % 64)};
  if (c < 0x10000) return {ch(0xe0 + c / 4096), ch(0x80 + c / 64 % 64), ch(0x80 + c % 64)};
  return {ch(0xf0 + c / 262144), ch(0x80 + c / 4096 % 64), ch(0x80 + c / 64 % 64),
          ch(0x80 + c % 64)};
}

std::map<std::string, int> ReadEncodingNames() {
  std::ifstream file(ENCODING_NAMES);
  std::map<std::string, int> names;
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    int page;
    words >> page;
    for (std::string name; words >> name;) names[name] = page;
  }
  return names;
}

std::wstring Wide(const std::string& text) {
  return std::wstring(text.begin(), text.end());
}

}  // namespace

TEST(MarkupUnicode, EveryCharacterIsCodedInUTF8AndBack) {
  for (int code = 1; code <= 0x10ffff; ++code) {
    if (code == 0xd800) code = 0xe000;
    const std::string bytes = UTF8(code);
    ASSERT_EQ(bytes, ReferenceUTF8(code)) << code;
    const char* p = bytes.c_str();
    ASSERT_EQ(CMarkup::DecodeCharUTF8(p), code);
    ASSERT_EQ(p, bytes.c_str() + bytes.length());
    p = bytes.c_str();
    ASSERT_EQ(CMarkup::DecodeCharUTF8(p, bytes.c_str() + bytes.length()), code);
  }
}

TEST(MarkupUnicode, InvalidUTF8IsMinusOneAndStays) {
  for (const char* const bytes :
       {"\x80", "\xbf", "\xc0\x80", "\xc1\xbf", "\xe0\x80\x80", "\xe0\x9f\xbf", "\xed\xa0\x80",
        "\xed\xbf\xbf", "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xff", "\xfe",
        "\xc3", "\xc3(", "\xe4\xb8", "\xe4\xb8 ", "\xf0\x9f\x98", "\xf0\x9f\x98x"}) {
    const char* p = bytes;
    EXPECT_EQ(CMarkup::DecodeCharUTF8(p), -1) << std::string(bytes);
    EXPECT_EQ(p, bytes);
    EXPECT_EQ(CMarkup::DecodeCharUTF8(p, bytes + strlen(bytes)), -1);
  }
  const char* p = "\xe4\xb8\xad";
  EXPECT_EQ(CMarkup::DecodeCharUTF8(p, p + 2), -1);
  EXPECT_EQ(CMarkup::DecodeCharUTF8(p, p), -1);
}

TEST(MarkupUnicode, CodesThatAreNoCharacterAreWrittenAsQuestionMarks) {
  for (const int code : {-1, 0xd800, 0xdfff, 0x110000, 0x7fffffff}) {
    EXPECT_EQ(UTF8(code), "?") << code;
    unsigned short unit = 0;
    int length;
    CMarkup::EncodeCharUTF16(code, &unit, length);
    EXPECT_EQ(length, 1);
    EXPECT_EQ(unit, '?');
  }
}

TEST(MarkupUnicode, ANullOutputOnlyCounts) {
  int length;
  CMarkup::EncodeCharUTF8(0x4e2d, nullptr, length);
  EXPECT_EQ(length, 3);
  CMarkup::EncodeCharUTF16(0x1f600, nullptr, length);
  EXPECT_EQ(length, 2);
}

TEST(MarkupUnicode, EveryCharacterIsCodedInUTF16AndBack) {
  for (int code = 1; code <= 0x10ffff; ++code) {
    if (code == 0xd800) code = 0xe000;
    unsigned short units[2];
    int length;
    CMarkup::EncodeCharUTF16(code, units, length);
    ASSERT_EQ(length, code < 0x10000 ? 1 : 2);
    if (length == 2) {
      ASSERT_EQ(0x10000 + (units[0] - 0xd800) * 0x400 + (units[1] - 0xdc00), code);
    } else {
      ASSERT_EQ(units[0], code);
    }
    const unsigned short* p = units;
    ASSERT_EQ(CMarkup::DecodeCharUTF16(p, units + length), code);
    ASSERT_EQ(p, units + length);
  }
}

TEST(MarkupUnicode, LoneSurrogatesAreInvalid) {
  const unsigned short texts[][3] = {{0xd800, 'a', 0}, {0xdc00, 0xd800, 0}, {0xd800, 0, 0}};
  for (const auto& text : texts) {
    const unsigned short* p = text;
    EXPECT_EQ(CMarkup::DecodeCharUTF16(p), -1);
    EXPECT_EQ(p, text);
  }
  const unsigned short pair[] = {0xd83d, 0xde00};
  const unsigned short* p = pair;
  EXPECT_EQ(CMarkup::DecodeCharUTF16(p, pair + 1), -1);
}

TEST(MarkupUnicode, WholeTextsAreConverted) {
  const char utf8[] = "a\xc3\xa9\xe4\xb8\xad\xf0\x9f\x98\x80z";
  const unsigned short utf16[] = {'a', 0xe9, 0x4e2d, 0xd83d, 0xde00, 'z', 0};
  ASSERT_EQ(CMarkup::UTF8To16(nullptr, utf8, 11), 6);
  ASSERT_EQ(CMarkup::UTF8To16(nullptr, utf8), 6);
  unsigned short units[6];
  EXPECT_EQ(CMarkup::UTF8To16(units, utf8, 11), 6);
  EXPECT_EQ(memcmp(units, utf16, sizeof(units)), 0);
  ASSERT_EQ(CMarkup::UTF16To8(nullptr, utf16, 6), 11);
  ASSERT_EQ(CMarkup::UTF16To8(nullptr, utf16), 11);
  char bytes[11];
  EXPECT_EQ(CMarkup::UTF16To8(bytes, utf16, 6), 11);
  EXPECT_EQ(memcmp(bytes, utf8, sizeof(bytes)), 0);
  EXPECT_EQ(CMarkup::UTF8To16(nullptr, utf8, 2), 2);  // cut inside the second character
  EXPECT_EQ(CMarkup::UTF16To8(nullptr, utf16, 0), 0);
}

TEST(MarkupUnicode, DetectUTF8TellsValidFromInvalidAndCutOff) {
  struct {
    std::string text;
    bool valid;
    int sequences;
    bool atEnd;
  } const cases[] = {
      {"", true, 0, false},
      {"abc", true, 0, false},
      {"\xc3\xa9\xe4\xb8\xad x \xf0\x9f\x98\x80", true, 3, false},
      {"\xe4\xb8\xad\xe4\xb8", false, 2, true},
      {"\xe4", false, 1, true},
      {"\xf0\x9f\x98", false, 1, true},
      {"\xed\xa0", false, 1, false},
      {"\xe0\x80", false, 1, false},
      {"\xf4\x90", false, 1, false},
      {"\xe0", false, 1, true},
      {"\xed", false, 1, true},
      {"\xf4", false, 1, true},
      {"\xf0", false, 1, true},
      {"\xff", false, 1, false},
      {"\xd6\xd0\xce\xc4", false, 1, false},
      {"\xc3(", false, 1, false},
      {std::string("a\0\xff", 3), true, 0, false},
      {std::string("\xe4\xb8\0", 3), false, 1, false},
  };
  for (const auto& c : cases) {
    int sequences = -1;
    bool atEnd = !c.atEnd;
    const int length = static_cast<int>(c.text.length());
    EXPECT_EQ(CMarkup::DetectUTF8(c.text.data(), length, &sequences, &atEnd), c.valid) << c.text;
    EXPECT_EQ(sequences, c.sequences) << c.text;
    EXPECT_EQ(atEnd, c.atEnd) << c.text;
    EXPECT_EQ(CMarkup::DetectUTF8(c.text.data(), length), c.valid);
  }
}

TEST(MarkupUnicode, EncodingNamesHaveTheirCodePages) {
  struct {
    const wchar_t* name;
    int page;
  } const cases[] = {
      {nullptr, 0},
      {L"", 0},
      {L"UTF-32", 65005},
      {L"UTF-32LE", 65005},
      {L"UTF-32 rubbish", 65005},
      {L"utf-32", 65005},
      {L"ksc_5601", 949},
      {L"_iso-2022-jp", 50221},
      {L"l1", 28591},
      {L"ibm852", 852},
      {L"big5-hkscs", 950},
      {L"UTF-8", 65001},
      {L"gb2312", 936},
      {L"GBK", 936},
      {L"GB18030", 54936},
      {L"Windows-1252", 1252},
      {L"Shift_JIS", 932},
      {L"US-ASCII", 20127},
      {L"unknown", -1},
      {L"utf-", -1},
      {L"\x4e2d\x6587", -1},
      {L"gb", -1},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(CMarkup::GetEncodingCodePage(c.name), c.page) << (c.name ? c.name : L"null");
    EXPECT_EQ(CMarkup::x_GetEncodingCodePage(c.name), c.page);
  }
  EXPECT_EQ(CMarkup::GetEncodingCodePage(std::wstring(100, L'a')), -1);
  EXPECT_EQ(CMarkup::GetEncodingCodePage(std::wstring(100000, L'a')), -1);
  EXPECT_EQ(CMarkup::GetEncodingCodePage(L"UTF-32" + std::wstring(200, L'a')), 65005);
}

TEST(MarkupUnicode, TheTableOfEncodingNamesIsTheListInBuckets) {
  std::vector<std::wstring> buckets(155);
  for (const auto& [name, page] : ReadEncodingNames()) {
    int sum = 0;
    for (const char c : name) sum += c;
    char record[64];
    snprintf(record, sizeof(record), "%02zu%05d%s", name.length(), page, name.c_str());
    buckets[sum % 155] += Wide(record);
    EXPECT_EQ(CMarkup::GetEncodingCodePage(Wide(name)), page) << name;
  }
  ASSERT_EQ(std::size(EncodingNameTable), buckets.size());
  int filled = 0;
  for (int i = 0; i < 155; ++i) {
    ASSERT_EQ(EncodingNameTable[i] == nullptr, buckets[i].empty()) << i;
    if (EncodingNameTable[i] == nullptr) continue;
    EXPECT_EQ(EncodingNameTable[i], buckets[i]) << i;
    ++filled;
  }
  EXPECT_EQ(filled, 78);
}

TEST(MarkupUnicode, DeclaredEncodingsAreRead) {
  struct {
    const wchar_t* text;
    const wchar_t* encoding;
  } const cases[] = {
      {L"<?xml version=\"1.0\" encoding=\"GB18030\"?><a/>", L"GB18030"},
      {L"<?xml version='1.0' encoding='utf-8' standalone='yes' ?>", L"utf-8"},
      {L"\xfeff<?xml encoding=\"x\"?>", L"x"},
      {L" \n<?xml encoding = 'x'?>", L"x"},
      {L"<?xml version='1.0'?><a encoding='x'/>", L""},
      {L"<?xml encoding='x'", L""},
      {L"<?other encoding='x'?>", L""},
      {L"<a encoding='x'/>", L""},
      {L"", L""},
      {nullptr, L""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(CMarkup::GetDeclaredEncoding(c.text), c.encoding) << (c.text ? c.text : L"null");
  }
}

TEST(MarkupUnicode, EndiannessIsSwappedInPlace) {
  unsigned short units[] = {0x1234, 0x00ff, 0xff00};
  CMarkup::x_EndianSwapUTF16(units, 2);
  EXPECT_EQ(units[0], 0x3412);
  EXPECT_EQ(units[1], 0xff00);
  EXPECT_EQ(units[2], 0xff00);
}
