// The toolkit object by itself: construction, the last error, conversions, results.
#include "OutputBuffer.h"
#include "Session.h"
#include "vctk.h"
#include "VelUsbKeyErrorMessage.h"

namespace {

using ToolkitObject = NoSession;
using ToolkitSession = Session;

TEST_F(ToolkitObject, StartsWithTheValuesOfAFreshSession) {
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
  EXPECT_EQ(m_toolkit.m_hParent, nullptr);
  EXPECT_TRUE(m_toolkit.m_P1SignResultBase64.IsEmpty());
  EXPECT_TRUE(m_toolkit.m_P7SignResultBase64.IsEmpty());
  EXPECT_EQ(m_toolkit.m_pVelUsbKey, nullptr);
  EXPECT_EQ(m_toolkit.m_KeyInfoList.GetCount(), 0);
  EXPECT_EQ(m_toolkit.m_CertFilterList.GetCount(), 0);
  EXPECT_EQ(m_toolkit.m_SelectCertList.GetCount(), 0);
  EXPECT_TRUE(m_toolkit.m_soCallQueue == nullptr);
  EXPECT_EQ(m_toolkit.m_bChooseSingleCert, FALSE);
  EXPECT_EQ(m_toolkit.m_bSetDigestAlg, FALSE);
  EXPECT_STREQ(m_toolkit.m_strDigestHash, L"SHA1");
  EXPECT_TRUE(m_toolkit.m_strCertList.IsEmpty());
  EXPECT_EQ(m_toolkit.m_bForcePinDialog, FALSE);
  EXPECT_TRUE(m_toolkit.m_csPinSignResult.IsEmpty());
  EXPECT_TRUE(m_toolkit.m_szUserPinCode.IsEmpty());
}

TEST_F(ToolkitObject, FieldsLieInTheirOrder) {
  const CVELClientTKImp& t = m_toolkit;
  const std::vector<const void*> fields = {
      &t.m_LastError,          &t.m_hParent,         &t.m_P1SignResultBase64,
      &t.m_P7SignResultBase64, &t.m_pVelUsbKey,      &t.m_KeyInfoList,
      &t.m_CertFilterList,     &t.m_SelectCertList,  std::addressof(t.m_soCallQueue),
      &t.m_bChooseSingleCert,  &t.m_bSetDigestAlg,   &t.m_strDigestHash,
      &t.m_strCertList,        &t.m_bForcePinDialog, &t.m_csPinSignResult,
      &t.m_szUserPinCode,      &t.RetryTimes};
  EXPECT_EQ(fields[0], static_cast<const void*>(&m_toolkit));
  EXPECT_TRUE(std::is_sorted(fields.begin(), fields.end()));
  EXPECT_FALSE(std::is_polymorphic<CVELClientTKImp>::value);
}

TEST_F(ToolkitObject, FinalizingTwiceIsHarmless) {
  EXPECT_TRUE(m_toolkit.Finalize());
  EXPECT_TRUE(m_toolkit.Finalize());
}

TEST_F(ToolkitSession, FinalizingDropsTheQueueBeforeItClosesTheLibrary) {
  EXPECT_EQ(Fake().liveObjects, 1);
  EXPECT_EQ(Fake().unloads, 0);
  EXPECT_TRUE(m_toolkit.Finalize());
  EXPECT_EQ(Fake().liveObjects, 0);
  EXPECT_EQ(Fake().unloads, 1);
  EXPECT_TRUE(m_toolkit.m_soCallQueue == nullptr);
  EXPECT_EQ(m_toolkit.m_pVelUsbKey, nullptr);
  EXPECT_TRUE(m_toolkit.Finalize());
}

TEST_F(ToolkitObject, AHandleWithoutALibraryIsFinalizedLikeAnyOther) {
  EXPECT_EQ(VCTK_Finalize(new CVELClientTKImp), 0);
}

TEST_F(ToolkitObject, TheLastErrorIsReadWithoutChangingIt) {
  m_toolkit.m_LastError = 0xE0000061;
  EXPECT_EQ(m_toolkit.GetLastError(), 0xE0000061u);
  EXPECT_EQ(m_toolkit.GetLastError(), 0xE0000061u);
}

TEST_F(ToolkitObject, KeepsTheParentWindow) {
  int window = 0;
  m_toolkit.SetParentWindow(&window);
  EXPECT_EQ(m_toolkit.m_hParent, &window);
  m_toolkit.SetParentWindow(nullptr);
  EXPECT_EQ(m_toolkit.m_hParent, nullptr);
}

TEST_F(ToolkitObject, NoAddressBelongsToAModule) {
  EXPECT_EQ(m_toolkit.ModuleFromAddress(&m_toolkit), nullptr);
  EXPECT_EQ(m_toolkit.ModuleFromAddress(nullptr), nullptr);
}

TEST_F(ToolkitObject, TextsAreConvertedBetweenUtf8AndWide) {
  EXPECT_STREQ(m_toolkit.GetUnicodeStringEx("张三 \xF0\x9F\x94\x91"), L"张三 \U0001F511");
  EXPECT_STREQ(m_toolkit.GetUTF8StringEx(L"张三 \U0001F511"), "张三 \xF0\x9F\x94\x91");
  EXPECT_STREQ(m_toolkit.GetUnicodeStringEx(nullptr), L"");
  EXPECT_STREQ(m_toolkit.GetUTF8StringEx(L""), "");
}

TEST_F(ToolkitObject, ResultsFollowTheBufferRuleToTheByte) {
  m_toolkit.m_P1SignResultBase64 = L"0123456789";
  const auto read = [&](char* out, int* length) {
    return m_toolkit.GetP1SignResult(out, length) != FALSE;
  };
  const auto lastError = [&] { return m_toolkit.m_LastError; };
  ExpectCopiedOut(read, lastError, "0123456789");
  m_toolkit.m_P1SignResultBase64 = L"张";
  ExpectCopiedOut(read, lastError, "张");
}

TEST_F(ToolkitObject, ASizeQueryOfTenBytesAnswersEleven) {
  m_toolkit.m_P1SignResultBase64 = L"0123456789";
  int length = 0;
  EXPECT_TRUE(m_toolkit.GetP1SignResult(nullptr, &length));
  EXPECT_EQ(length, 11);
}

TEST_F(ToolkitObject, ASuccessfulReadClearsTheErrorOfTheFailedOne) {
  m_toolkit.m_P1SignResultBase64 = L"ab";
  char text[3] = {};
  int length = 2;
  EXPECT_FALSE(m_toolkit.GetP1SignResult(text, &length));
  EXPECT_EQ(m_toolkit.m_LastError, 4u);
  EXPECT_EQ(length, 3);
  EXPECT_TRUE(m_toolkit.GetP1SignResult(text, &length));
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
  EXPECT_STREQ(text, "ab");
}

std::string MessageOf(CVELClientTKImp& toolkit) {
  char text[512] = {};
  int length = sizeof(text);
  EXPECT_TRUE(toolkit.GetLastErrorMessage(text, &length));
  EXPECT_EQ(static_cast<size_t>(length), strlen(text));
  return text;
}

TEST_F(ToolkitObject, TheMessageOfAFreshObjectIsSuccess) {
  EXPECT_EQ(MessageOf(m_toolkit), "操作成功");
}

TEST_F(ToolkitObject, TheMessageIsThatOfTheStoredCodeAndLeavesItStored) {
  m_toolkit.m_LastError = 0xE0000061;
  EXPECT_EQ(MessageOf(m_toolkit), "证书未发现");
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000061u);
  m_toolkit.m_LastError = 4;
  EXPECT_EQ(MessageOf(m_toolkit), "未知错误，错误码：0x00000004");
  EXPECT_EQ(m_toolkit.m_LastError, 4u);
}

TEST_F(ToolkitObject, TheWrongPinMessageShowsTheObjectsRetryCount) {
  m_toolkit.m_LastError = 0xE0000056;
  m_toolkit.RetryTimes = 5;
  EXPECT_EQ(MessageOf(m_toolkit), "您输入的PIN码错误，请重新输入,您还有5次机会");
  EXPECT_EQ(CVELErrorMessage::retrytimes, 5);
}

// "操作成功" has 12 bytes.
TEST_F(ToolkitObject, TheMessageIsCopiedWithoutATerminator) {
  char text[16];
  memset(text, '#', sizeof(text));
  int length = 13;
  EXPECT_TRUE(m_toolkit.GetLastErrorMessage(text, &length));
  EXPECT_EQ(length, 12);
  EXPECT_EQ(std::string(text, sizeof(text)), "操作成功####");
}

TEST_F(ToolkitObject, AMessageBufferOfTheExactLengthIsTooSmall) {
  char text[16];
  memset(text, '#', sizeof(text));
  int length = 12;
  EXPECT_FALSE(m_toolkit.GetLastErrorMessage(text, &length));
  EXPECT_EQ(length, 13);
  EXPECT_EQ(m_toolkit.m_LastError, 4u);
  EXPECT_EQ(std::string(text, sizeof(text)), std::string(16, '#'));
}

TEST_F(ToolkitObject, TheMessageSizeIncludesATerminator) {
  int length = 0;
  EXPECT_TRUE(m_toolkit.GetLastErrorMessage(nullptr, &length));
  EXPECT_EQ(length, 13);
  m_toolkit.m_LastError = 0xE0000061;  // "证书未发现"
  EXPECT_TRUE(m_toolkit.GetLastErrorMessage(nullptr, &length));
  EXPECT_EQ(length, 16);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000061u);
}

}  // namespace
