#include "OutputBuffer.h"
#include "Session.h"

namespace {

using testing::ElementsAre;

using CallQueue = Session;
using CallQueueBefore = NoSession;

TEST_F(CallQueue, FlagsArePassedOnUnchanged) {
  m_toolkit.m_LastError = 5;
  EXPECT_EQ(m_toolkit.CallQueueEnable(TRUE, FALSE), TRUE);
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
  EXPECT_EQ(m_toolkit.CallQueueEnable(0, 7), TRUE);
  EXPECT_THAT(Fake().TakeCalls(), ElementsAre("Enable(1, 0)", "Enable(0, 7)"));
}

TEST_F(CallQueue, FailuresArePassedOnUnchanged) {
  Fake().codes = {{"Enable", {0xE0000008}}, {"Clear", {0xE0000009}}};
  EXPECT_EQ(m_toolkit.CallQueueEnable(TRUE, TRUE), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000008u);
  EXPECT_EQ(m_toolkit.CallQueueClear(), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000009u);
}

TEST_F(CallQueue, TheTextIsCopiedAndTheLengthLeftAlone) {
  Fake().queue = "{\"op\":\"签名\"}";
  OutputRules rules;
  rules.tooSmall = 0xE0000004;
  rules.leavesLength = true;
  ExpectCopiedOut(
      [&](char* out, int* length) { return m_toolkit.CallQueueGet(out, length) != FALSE; },
      [&] { return m_toolkit.m_LastError; }, *Fake().queue, rules);
}

TEST_F(CallQueue, TheWholeBufferIsZeroFilled) {
  Fake().queue = "ab";
  std::vector<char> buffer(10, '#');
  int length = 9;
  EXPECT_EQ(m_toolkit.CallQueueGet(buffer.data(), &length), TRUE);
  EXPECT_EQ(std::string(buffer.begin(), buffer.end()), std::string("ab\0\0\0\0\0\0\0#", 10));
}

TEST_F(CallQueue, AnEmptyTextIsNotReady) {
  int length = 5;
  for (const std::optional<std::string>& text : {std::optional<std::string>(""), {}}) {
    Fake().queue = text;
    EXPECT_EQ(m_toolkit.CallQueueGet(nullptr, &length), FALSE);
    EXPECT_EQ(m_toolkit.m_LastError, 0xE0000084u);
    EXPECT_EQ(length, 5);
  }
}

TEST_F(CallQueue, AfterClearingNothingIsLeft) {
  Fake().queue = "ab";
  int length = 0;
  EXPECT_EQ(m_toolkit.CallQueueGet(nullptr, &length), TRUE);
  EXPECT_EQ(m_toolkit.CallQueueClear(), TRUE);
  EXPECT_EQ(m_toolkit.CallQueueGet(nullptr, &length), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000084u);
}

TEST_F(CallQueue, ATextThatGrowsBetweenTwoCallsFailsWithItsNewSize) {
  Fake().queue = "ab";
  int length = 0;
  EXPECT_EQ(m_toolkit.CallQueueGet(nullptr, &length), TRUE);
  Fake().queue = "abcdef";
  char buffer[16] = {};
  EXPECT_EQ(m_toolkit.CallQueueGet(buffer, &length), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000004u);
  EXPECT_EQ(length, 7);
}

TEST_F(CallQueueBefore, InitialisationThereIsNone) {
  char buffer[4];
  int length = 4;
  EXPECT_EQ(m_toolkit.CallQueueEnable(TRUE, TRUE), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE000000Bu);
  m_toolkit.m_LastError = 0;
  EXPECT_EQ(m_toolkit.CallQueueClear(), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE000000Bu);
  m_toolkit.m_LastError = 0;
  EXPECT_EQ(m_toolkit.CallQueueGet(buffer, &length), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE000000Bu);
  EXPECT_EQ(m_toolkit.CallQueueGet(buffer, nullptr), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE000000Bu);
}

}  // namespace
