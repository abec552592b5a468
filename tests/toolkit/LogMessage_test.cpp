#include "LogMessage.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <wchar.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

std::wstring Message(LPCTSTR format, ...) {
  LogMessage message;
  va_list args;
  va_start(args, format);
  const bool done = message.Format(format, args);
  va_end(args);
  return done ? message.Text() : L"no memory";
}

std::wstring OfTheSystem(LPCTSTR format, ...) {
  std::vector<wchar_t> room(100000);
  va_list args;
  va_start(args, format);
  vswprintf(room.data(), room.size(), format, args);
  va_end(args);
  return room.data();
}

}  // namespace

TEST(LogMessage, IsThatOfTheSystem) {
  const wchar_t* const none = nullptr;
  for (const int number : {0, 1, -1, 1000, INT_MAX, INT_MIN}) {
    for (const wchar_t* format : {L"%d", L"a%db%d", L"%d%%", L"%5d|%-5d|", L"%x %d", L"%hd", L"%c",
                                  L"%i %u", L"100%%", L"", L"%%d", L"%d\u4e2d"}) {
      EXPECT_EQ(Message(format, number, number), OfTheSystem(format, number, number)) << format;
    }
  }
  for (const wchar_t* text : {L"", L"x", L"%d", L"\u4e2d\U0001f600", none}) {
    for (const wchar_t* format : {L"%ls", L"<%ls>", L"%ls%ls", L"%.2ls|%5ls", L"%ls%%", L"%S"}) {
      EXPECT_EQ(Message(format, text, text), OfTheSystem(format, text, text)) << format;
    }
  }
  EXPECT_EQ(Message(L"%ls:%d,%hs", L"a", 5, "b"), L"a:5,b");
}

TEST(LogMessage, OfEveryLengthIsWholeUpTo8191Characters) {
  for (const size_t length : {0, 1, 254, 255, 256, 257, 1000, 8190, 8191, 8192, 20000}) {
    const std::wstring text(length, L't');
    const std::wstring kept = text.substr(0, 8191);
    EXPECT_EQ(Message(L"%ls", text.c_str()), kept) << length;
    EXPECT_EQ(Message(text.c_str()), kept) << length;
    EXPECT_EQ(Message(L"%ls%x", text.c_str(), 5), (text + L"5").substr(0, 8191)) << length;
  }
}

// Against the obvious replacement.
TEST(LogMessage, EveryPlainTextConversionBecomesAWideOne) {
  for (const wchar_t* piece : {L"%s", L"%%s", L"%ls", L"%", L"s", L"%%", L"%s%s%s"}) {
    for (size_t ahead = 0; ahead < 300; ++ahead) {
      const std::wstring format = std::wstring(ahead, L'a') + piece + L"b%s";
      std::wstring expected = format;
      for (size_t at = 0; (at = expected.find(L"%s", at)) != std::wstring::npos; ++at) {
        expected.insert(at + 1, L"l");
      }
      EXPECT_EQ(std::wstring(WideTextFormat(format.c_str()).Text()), expected);
    }
  }
  EXPECT_STREQ(WideTextFormat(L"").Text(), L"");
}
