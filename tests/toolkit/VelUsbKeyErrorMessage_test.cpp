#include "VelUsbKeyErrorMessage.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "VELCstring.h"

namespace {

struct Message {
  ULONG code;
  const wchar_t* text;
};

// The whole table, one code a line.
const Message kTable[] = {
#include "ErrorMessages.inc"
};

std::wstring MessageOf(ULONG code, ULONG* result = nullptr) {
  CString message = L"left from before";
  const ULONG returned = CVELErrorMessage::GetErrorcodeMessage(code, message);
  if (result != nullptr) *result = returned;
  return static_cast<const wchar_t*>(message);
}

bool IsListed(ULONG code) {
  static const std::set<ULONG> listed = [] {
    std::set<ULONG> codes = {0xE0000056};
    for (const Message& message : kTable) codes.insert(message.code);
    return codes;
  }();
  return listed.count(code) != 0;
}

std::wstring Fallback(unsigned int code) {
  wchar_t text[64];
  swprintf(text, 64, L"未知错误，错误码：0x%.8X", code);
  return text;
}

class ErrorMessage : public testing::Test {
 protected:
  void TearDown() override { CVELErrorMessage::retrytimes = 0; }
};

TEST_F(ErrorMessage, EveryCodeOfTheTableHasItsTextAndGivesZero) {
  EXPECT_EQ(sizeof(kTable) / sizeof(kTable[0]), 176u);
  for (const Message& message : kTable) {
    ULONG result = 1;
    EXPECT_EQ(MessageOf(message.code, &result), message.text) << std::hex << message.code;
    EXPECT_EQ(result, 0u) << std::hex << message.code;
  }
}

TEST_F(ErrorMessage, SuccessIsZero) {
  EXPECT_EQ(MessageOf(0), L"操作成功");
}

TEST_F(ErrorMessage, TheTextOfAnUnlockedMutexKeepsItsLeadingBlank) {
  EXPECT_EQ(MessageOf(0xE000001D), L" mutex对象未锁定");
}

// Its own text is overwritten by the next one's; hosts know it so.
TEST_F(ErrorMessage, ATimeoutOfTheServiceStartReadsAsARemovedKey) {
  EXPECT_EQ(MessageOf(0xE0010008), L"USB Key已经被移除");
  EXPECT_EQ(MessageOf(0xE0010008), MessageOf(0xE0020001));
}

TEST_F(ErrorMessage, AWrongPinTellsTheTriesThatAreLeft) {
  for (const int tries : {3, 0, -1, 2147483647}) {
    CVELErrorMessage::retrytimes = tries;
    ULONG result = 1;
    EXPECT_EQ(MessageOf(0xE0000056, &result),
              L"您输入的PIN码错误，请重新输入,您还有" + std::to_wstring(tries) + L"次机会");
    EXPECT_EQ(result, 0u);
  }
}

TEST_F(ErrorMessage, AnUnknownCodeIsNamedInEightCapitalDigitsAndReturned) {
  for (const ULONG code :
       {1ul, 4ul, 11ul, 0xE000007Ful, 0xE0000091ul, 0xE0010009ul, 0xE0030004ul, 0xA00F0201ul,
        0xA00F0205ul, 0xA00F0F2Ful, 0xA00F0F33ul, 0xABCDul, 0xFFFFFFFFul}) {
    ULONG result = 0;
    EXPECT_EQ(MessageOf(code, &result), Fallback(static_cast<unsigned>(code)));
    EXPECT_EQ(result, code);
  }
  EXPECT_EQ(MessageOf(4), L"未知错误，错误码：0x00000004");
  EXPECT_EQ(MessageOf(0xFFFFFFFF), L"未知错误，错误码：0xFFFFFFFF");
}

TEST_F(ErrorMessage, TheLoadersFailureOfAllBitsIsUnknown) {
  const ULONG failed = ~0ul;
  ULONG result = 0;
  EXPECT_EQ(MessageOf(failed, &result), L"未知错误，错误码：0xFFFFFFFF");
  EXPECT_EQ(result, failed);
}

// Codes are compared whole: one more bit anywhere makes them unknown.
TEST_F(ErrorMessage, NoBitsAreMasked) {
  for (const Message& message : kTable) {
    const ULONG wider = message.code | 1ul << 32;
    ULONG result = 0;
    EXPECT_EQ(MessageOf(wider, &result), Fallback(static_cast<unsigned>(wider)));
    EXPECT_EQ(result, wider);
  }
}

TEST_F(ErrorMessage, NeighboursOfTheFamiliesAreUnknown) {
  for (const ULONG base :
       {0ul, 0xE0000000ul, 0xE0010000ul, 0xE0020000ul, 0xE0030000ul, 0xA00F0200ul, 0xA00F0F00ul}) {
    for (ULONG code = base; code < base + 0x200; ++code) {
      if (IsListed(code)) continue;
      EXPECT_EQ(MessageOf(code), Fallback(static_cast<unsigned>(code)));
    }
  }
}

}  // namespace
