// The exported session functions. In the sandbox: messages are logged.
#include "Host.h"

namespace {

using SessionExports = Host;

std::string MessageOf(HANDLE handle) {
  char text[512] = {};
  int length = sizeof(text);
  EXPECT_EQ(VCTK_GetLastErrorMessage(handle, text, &length), 0);
  EXPECT_EQ(static_cast<size_t>(length), strlen(text));
  return text;
}

TEST_F(SessionExports, ARejectedKeyListGivesNullAndLeavesNothing) {
  for (const char* text : {static_cast<const char*>(nullptr), "", "<authinfo>", "<a/>"}) {
    EXPECT_EQ(VCTK_Initialize(text), nullptr);
  }
  EXPECT_EQ(Fake().liveObjects, 1);  // the queue of the fixture's handle
}

TEST_F(SessionExports, ARejectedKeyListUnloadsTheLibrary) {
  VCTK_Finalize(m_handle);
  EXPECT_EQ(VCTK_Initialize("<authinfo>"), nullptr);
  EXPECT_EQ(Fake().loads, 2);
  EXPECT_EQ(Fake().unloads, 2);
  m_handle = VCTK_Initialize(kHostKeyList);
}

TEST_F(SessionExports, NullHandlesAreMinusOneOrNothing) {
  int window = 0;
  char text[8] = "#";
  int length = 8;
  VCTK_SetParentWindow(nullptr, &window);
  EXPECT_EQ(VCTK_Finalize(nullptr), -1);
  EXPECT_EQ(VCTK_GetLastError(nullptr), -1);
  EXPECT_EQ(VCTK_GetLastErrorMessage(nullptr, text, &length), -1);
  EXPECT_EQ(VCTK_GetLastErrorMessage(nullptr, nullptr, nullptr), -1);
  EXPECT_STREQ(text, "#");
  EXPECT_EQ(length, 8);
}

TEST_F(SessionExports, FinalizingReleasesTheQueueAndTheLibrary) {
  EXPECT_EQ(Fake().liveObjects, 1);
  EXPECT_EQ(VCTK_Finalize(m_handle), 0);
  EXPECT_EQ(Fake().liveObjects, 0);
  EXPECT_EQ(Fake().unloads, 1);
  m_handle = VCTK_Initialize(kHostKeyList);
}

TEST_F(SessionExports, HandlesHaveErrorsOfTheirOwn) {
  const HANDLE other = VCTK_Initialize(kHostKeyList);
  ASSERT_NE(other, nullptr);
  EXPECT_NE(other, m_handle);
  EXPECT_EQ(VCTK_AddFilter(other, 13, "x"), Code(0xE0000003));
  EXPECT_EQ(VCTK_GetLastError(other), Code(0xE0000003));
  EXPECT_EQ(VCTK_GetLastError(m_handle), 0);
  EXPECT_EQ(VCTK_Finalize(other), 0);
  EXPECT_EQ(VCTK_ClearFilter(m_handle), 0);
}

TEST_F(SessionExports, TheLastErrorStaysUntilACallClearsIt) {
  EXPECT_EQ(VCTK_AddFilter(m_handle, 13, "x"), Code(0xE0000003));
  int length = 0;
  EXPECT_EQ(VCTK_GetSignVersion(m_handle, nullptr, &length), 0);
  EXPECT_EQ(VCTK_SetForcePinDialog(m_handle, 1), 0);
  EXPECT_EQ(VCTK_GetLastError(m_handle), Code(0xE0000003));
  VCTK_SetParentWindow(m_handle, &length);
  EXPECT_EQ(VCTK_GetLastError(m_handle), Code(0xE0000003));
  EXPECT_EQ(VCTK_ClearFilter(m_handle), 0);
  EXPECT_EQ(VCTK_GetLastError(m_handle), 0);
}

TEST_F(SessionExports, TheMessageIsThatOfTheLastError) {
  EXPECT_EQ(MessageOf(m_handle), "操作成功");
  VCTK_AddFilter(m_handle, 13, "x");
  EXPECT_EQ(MessageOf(m_handle), "无效的参数");
  EXPECT_EQ(VCTK_GetLastError(m_handle), Code(0xE0000003));
}

TEST_F(SessionExports, TheMessageOfAWrongPinTellsTheTries) {
  Fake().codes = {{"P1Sign", {0xE0000056}}};
  Fake().pinRetryTimes = 6;
  EXPECT_EQ(VCTK_P1Sign(m_handle, "abc", 0), Code(0xE0000056));
  EXPECT_EQ(MessageOf(m_handle), "您输入的PIN码错误，请重新输入,您还有6次机会");
}

TEST_F(SessionExports, AShortMessageBufferIsErrorFour) {
  char text[16] = "#";
  int length = 12;
  EXPECT_EQ(VCTK_GetLastErrorMessage(m_handle, text, &length), 4);
  EXPECT_EQ(length, 13);
  EXPECT_STREQ(text, "#");
  EXPECT_EQ(VCTK_GetLastError(m_handle), 4);
  EXPECT_EQ(MessageOf(m_handle), "未知错误，错误码：0x00000004");
}

TEST_F(SessionExports, TheMessageHasNoTerminator) {
  char text[16];
  memset(text, '#', sizeof(text));
  int length = 13;
  EXPECT_EQ(VCTK_GetLastErrorMessage(m_handle, text, &length), 0);
  EXPECT_EQ(length, 12);
  EXPECT_EQ(std::string(text, 16), "操作成功####");
  EXPECT_EQ(VCTK_GetLastErrorMessage(m_handle, nullptr, &length), 0);
  EXPECT_EQ(length, 13);
}

}  // namespace
