// The texts that the program was built with are all of the toolkit's, and no others.
#include <gtest/gtest.h>

#include <locale.h>
#include <stdlib.h>

#include <map>
#include <string>

#include "MessageTable.h"

namespace {

struct Message {
  unsigned long code;
  const wchar_t* text;
};

// Every code but that of the wrong PIN, whose text has a number in it.
const Message kListed[] = {
#include "../toolkit/ErrorMessages.inc"
};

std::string Utf8Of(const wchar_t* text) {
  std::string result(wcstombs(nullptr, text, 0), '\0');
  wcstombs(&result[0], text, result.size() + 1);
  return result;
}

}  // namespace

TEST(MessageTable, HoldsTheTextsOfTheToolkitAndNoOthers) {
  setlocale(LC_ALL, "C.UTF-8");
  std::map<unsigned long, std::string> expected = {
      {0xE0000056, "您输入的PIN码错误，请重新输入,您还有?次机会"}};
  for (const Message& each : kListed) expected[each.code] = Utf8Of(each.text);
  std::map<unsigned long, std::string> actual;
  for (size_t i = 0; i < vctk::kMessageTableSize; ++i) {
    actual[vctk::kMessageTable[i].code] = vctk::kMessageTable[i].text;
  }
  EXPECT_EQ(actual, expected);
}

TEST(MessageTable, IsInOrder) {
  for (size_t i = 1; i < vctk::kMessageTableSize; ++i) {
    EXPECT_LT(vctk::kMessageTable[i - 1].code, vctk::kMessageTable[i].code);
  }
}
