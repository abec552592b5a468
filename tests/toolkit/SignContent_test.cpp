#include "SignContent.h"

#include <gtest/gtest.h>
#include <locale.h>

#include <string>
#include <vector>

namespace {

std::string BytesOf(const CSignContent& content) {
  return std::string(reinterpret_cast<const char*>(content.GetBytes()), content.GetSize());
}

struct Case {
  const char* text;
  BOOL isBase64;
  ULONG code;
  const char* bytes;
};

const Case kCases[] = {
    {"abc", FALSE, 0, "abc"}, {"YWJj", TRUE, 0, "abc"},       {"YW\r\nJj=", TRUE, 0, "abc"},
    {"YWI", TRUE, 0, "ab"},   {"====", TRUE, 0xE0000003, ""}, {"?", TRUE, 0xE0000003, ""},
    {"中", FALSE, 0, "\xE4"}, {"Y中W文Jj", TRUE, 0, "abc"},
};

TEST(SignContent, NarrowAndWideTextGiveTheSameBytes) {
  for (const Case& c : kCases) {
    CSignContent wide, narrow;
    EXPECT_EQ(wide.Take(CString(c.text), c.isBase64), c.code) << c.text;
    EXPECT_EQ(narrow.TakeNarrow(c.text, c.isBase64), c.code) << c.text;
    if (c.code != 0) continue;
    EXPECT_EQ(BytesOf(wide), c.bytes) << c.text;
    EXPECT_EQ(BytesOf(narrow), c.bytes) << c.text;
  }
}

TEST(SignContent, EveryNarrowAsciiTextDecodesAsItsWideForm) {
  unsigned state = 1;
  for (size_t length = 1; length < 200; ++length) {
    std::string text;
    for (size_t i = 0; i < length; ++i) {
      state = state * 1103515245 + 12345;
      text += static_cast<char>(1 + (state >> 16) % 127);
    }
    CSignContent wide, narrow;
    ASSERT_EQ(narrow.TakeNarrow(text.c_str(), TRUE), wide.Take(CString(text.c_str()), TRUE));
    ASSERT_EQ(BytesOf(narrow), BytesOf(wide)) << length;
  }
}

TEST(SignContent, NarrowTextThatIsEmptyOrCannotBeConvertedIsRefused) {
  for (const char* text : {"", "\xFF", "YWJj\xFF"}) {
    for (BOOL isBase64 : {FALSE, TRUE}) {
      CSignContent content;
      EXPECT_EQ(content.TakeNarrow(text, isBase64), 0xE000000B) << text;
    }
  }
}

TEST(EncodeText, ReusesABlockThatIsLargeEnough) {
  CString text;
  ASSERT_TRUE(EncodeText("foobar", 6, text));
  EXPECT_STREQ(static_cast<const wchar_t*>(text), L"Zm9vYmFy");
  const wchar_t* const block = text.GetBuffer();
  ASSERT_TRUE(EncodeText("foob", 4, text));
  EXPECT_STREQ(static_cast<const wchar_t*>(text), L"Zm9vYg==");
  EXPECT_EQ(text.GetBuffer(), block);
  ASSERT_TRUE(EncodeText("f", 1, text));
  EXPECT_STREQ(static_cast<const wchar_t*>(text), L"Zg==");
  EXPECT_EQ(text.GetLength(), 4);
}

TEST(EncodeText, NoBytesAreTheEmptyText) {
  CString text(L"old");
  ASSERT_TRUE(EncodeText(nullptr, 0, text));
  EXPECT_TRUE(text.IsEmpty());
}

TEST(EncodeText, ATextBeyondTheLengthsOfStringsIsRefusedAndTheOldOneStays) {
  CString text(L"old");
  EXPECT_FALSE(EncodeText("", size_t(1) << 32, text));
  EXPECT_STREQ(static_cast<const wchar_t*>(text), L"old");
}

}  // namespace

int main(int argc, char** argv) {
  setlocale(LC_ALL, "");
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
