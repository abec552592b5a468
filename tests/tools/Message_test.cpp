#include <gmock/gmock.h>

#include "Vctk.h"

using ::testing::HasSubstr;
using ::testing::StartsWith;

using Message = Vctk;

TEST_F(Message, GivesCodeTextAndAdvice) {
  const Outcome outcome = Run({"message", "0xE0000057"});
  EXPECT_EQ(outcome.exitCode, kDone);
  EXPECT_EQ(outcome.out,
            "0xE0000057 您的KEY已被锁定，请联系系统管理员\n"
            "Ask the issuer of the key to unlock it.\n");
}

TEST_F(Message, TakesEverySpellingOfACode) {
  for (const char* code :
       {"0xE0000001", "0xe0000001", "3758096385", "-536870911", "034000000001"}) {
    EXPECT_THAT(Run({"message", code}).out, StartsWith("0xE0000001 操作失败\n")) << code;
  }
}

TEST_F(Message, OfZeroIsSuccess) {
  EXPECT_THAT(Run({"message", "0"}).out, StartsWith("0x00000000 操作成功\n"));
}

TEST_F(Message, OfAWrongPinLeavesTheTriesOpen) {
  EXPECT_THAT(Run({"message", "0xE0000056"}).out,
              StartsWith("0xE0000056 您输入的PIN码错误，请重新输入,您还有?次机会\n"));
}

TEST_F(Message, KeepsALeadingBlank) {
  EXPECT_THAT(Run({"message", "0xE000001D"}).out, StartsWith("0xE000001D  mutex对象未锁定\n"));
}

TEST_F(Message, OfTheToolkitsOwnCodesSaysWhatTheyMean) {
  const Outcome outcome = Run({"message", "4"});
  EXPECT_EQ(outcome.exitCode, kDone);
  EXPECT_THAT(outcome.out, StartsWith("0x00000004 未知错误，错误码：0x00000004\n"));
  EXPECT_THAT(outcome.out, HasSubstr("output buffer is too small"));
}

TEST_F(Message, OfAnUnknownCodeExitsWith1) {
  for (const char* code : {"0xE000007F", "12", "-1", "0xE0010009"}) {
    const Outcome outcome = Run({"message", code});
    EXPECT_EQ(outcome.exitCode, kFailed) << code;
    EXPECT_THAT(outcome.out, HasSubstr("未知错误，错误码：0x")) << code;
  }
}

TEST_F(Message, NeedsNoSession) {
  Invocation invocation = Command({"message", "0"});
  invocation.environment["LD_LIBRARY_PATH"] = std::string(getenv("FAKES")) + "/cannot_be_loaded";
  EXPECT_EQ(RunProgram(invocation).exitCode, kDone);
}
