#include "LogText.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <wchar.h>

#include <string>

TEST(LogText, NumbersAreThoseOfTheSystem) {
  for (const int value : {0, 7, -7, 42, 9999, 10000, -999, -1000, 123456, INT_MAX, INT_MIN}) {
    for (const int digits : {1, 2, 3, 4}) {
      wchar_t expected[32], room[32];
      swprintf(expected, 32, L"%0*d", digits, value);
      LogText text(room);
      text.Number(value, digits);
      EXPECT_TRUE(text.End());
      EXPECT_STREQ(room, expected);
    }
  }
}

TEST(LogText, CutsWhatDoesNotFitAndSaysSo) {
  wchar_t room[6];
  LogText fits(room);
  fits << L"abc" << L'd' << L"e" << L"";
  EXPECT_TRUE(fits.End());
  EXPECT_STREQ(room, L"abcde");
  LogText character(room);
  character << L"abcde" << L'f';
  EXPECT_FALSE(character.End());
  EXPECT_STREQ(room, L"abcde");
  LogText number(room);
  number << L"abc";
  number.Number(123, 1) << L"x";
  EXPECT_FALSE(number.End());
  EXPECT_STREQ(room, L"abc12");
}
