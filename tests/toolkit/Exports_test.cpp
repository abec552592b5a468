// Every exported certificate, signing and call-queue function: null handle, success, failure. In
// the sandbox: signing with a PIN is logged.
#include "Host.h"
#include "OutputBuffer.h"

namespace {

using testing::Contains;
using testing::IsEmpty;

class Exports : public Host {
 protected:
  void ExpectRead(int (*read)(HANDLE, char*, int*), const std::string& text,
                  const OutputRules& rules = {}) {
    const auto call = [&](char* out, int* length) {
      const int result = read(m_handle, out, length);
      EXPECT_EQ(result, VCTK_GetLastError(m_handle));
      return result == 0;
    };
    ExpectCopiedOut(
        call, [&] { return static_cast<unsigned int>(VCTK_GetLastError(m_handle)); }, text, rules);
  }

  // A failure whose code is returned and stored.
  void ExpectCode(int result, unsigned int code) {
    EXPECT_EQ(result, Code(code));
    EXPECT_EQ(VCTK_GetLastError(m_handle), Code(code));
  }
};

TEST(NullHandle, IsMinusOneForAllButTheTwoPinFunctions) {
  char text[4] = "#";
  int length = 4;
  int exists = 7;
  const int results[] = {
      VCTK_SetDigestAlg(nullptr, "SM3"),
      VCTK_GetDigestAlg(nullptr, text, &length),
      VCTK_SetChooseSingleCert(nullptr, 1),
      VCTK_AddFilter(nullptr, 1, "x"),
      VCTK_ClearFilter(nullptr),
      VCTK_P1Sign(nullptr, "x", 0),
      VCTK_GetP1SignResult(nullptr, text, &length),
      VCTK_P7Sign(nullptr, "x", 0, 0, 1),
      VCTK_GetP7SignResult(nullptr, text, &length),
      VCTK_P7SignFromP1(nullptr, "x", 0, 0),
      VCTK_GetP7SignFromP1Result(nullptr, text, &length),
      VCTK_GetSignVersion(nullptr, text, &length),
      VCTK_GetSignCert(nullptr, text, &length),
      VCTK_GetSignCertType(nullptr, text, &length),
      VCTK_CallQueueEnable(nullptr, 1, 1),
      VCTK_CallQueueClear(nullptr),
      VCTK_CallQueueGet(nullptr, text, &length),
      VCTK_GetCertList(nullptr, "|", ";", text, &length),
      VCTK_CheckCertIsExist(nullptr, "x", &exists),
      VCTK_ChangePinCode(nullptr, "x", 2, "o", "n"),
      VCTK_SetCert(nullptr, "x"),
      VCTK_SetPinCode(nullptr, "1"),
      VCTK_P7SignStrEx(nullptr, "x", 0, 0, 1),
      VCTK_SetForcePinDialog(nullptr, 1),
  };
  for (size_t i = 0; i < sizeof(results) / sizeof(results[0]); ++i) EXPECT_EQ(results[i], -1) << i;
  EXPECT_EQ(VCTK_P1SignWithPin(nullptr, "x", "1", "x", 0), Code(0xE0000003));
  EXPECT_EQ(VCTK_GetP1SignResultWithPin(nullptr, text, &length), Code(0xE0000003));
  EXPECT_LT(VCTK_P1SignWithPin(nullptr, nullptr, nullptr, nullptr, 0), 0);
  EXPECT_STREQ(text, "#");
  EXPECT_EQ(length, 4);
  EXPECT_EQ(exists, 7);
}

TEST_F(Exports, SettingADigest) {
  EXPECT_EQ(VCTK_SetDigestAlg(m_handle, "sha256"), 0);
  ExpectRead(VCTK_GetDigestAlg, "sha256");
  ExpectCode(VCTK_SetDigestAlg(m_handle, ""), 0xE0000003);
  ExpectCode(VCTK_SetDigestAlg(m_handle, nullptr), 0xE0000003);
  ExpectCode(VCTK_SetDigestAlg(m_handle, "SHA3"), 0xE0000066);
  ExpectRead(VCTK_GetDigestAlg, "sha256");
}

TEST_F(Exports, AskingForADigestThatThereIsNot) {
  int length = 5;
  ExpectCode(VCTK_GetDigestAlg(m_handle, nullptr, &length), 0xE0000066);
  EXPECT_EQ(length, 0);
  EXPECT_EQ(VCTK_SetCert(m_handle, "A1"), 1);
  ExpectRead(VCTK_GetDigestAlg, "SHA1");
}

TEST_F(Exports, ChoosingASingleCertificate) {
  EXPECT_EQ(VCTK_SetChooseSingleCert(m_handle, 1), 0);
  EXPECT_EQ(VCTK_P1Sign(m_handle, "abc", 0), 0);
  EXPECT_THAT(Fake().calls, Contains("EnableSingleCertSkipUI(1)"));
}

TEST_F(Exports, Filters) {
  EXPECT_EQ(VCTK_AddFilter(m_handle, 0, "一"), 0);
  EXPECT_EQ(VCTK_AddFilter(m_handle, 0, "B"), 0);
  EXPECT_EQ(VCTK_AddFilter(m_handle, 12, "1"), 0);
  ExpectCode(VCTK_AddFilter(m_handle, 13, "x"), 0xE0000003);
  ExpectCode(VCTK_AddFilter(m_handle, 65535, "x"), 0xE0000003);
  ExpectCode(VCTK_AddFilter(m_handle, 0x100000000ul, "x"), 0xE0000003);
  ExpectCode(VCTK_AddFilter(m_handle, 1, ""), 0xE0000003);
  ExpectCode(VCTK_AddFilter(m_handle, 1, nullptr), 0xE0000003);
  int length = 0;
  EXPECT_EQ(VCTK_GetCertList(m_handle, "|", ";", nullptr, &length), 0);
  EXPECT_THAT(Fake().TakeCalls(), Contains("GetCertList(0=\\u4E00|B 12=1 6=4 5=1 8=2)"));
  EXPECT_EQ(VCTK_ClearFilter(m_handle), 0);
  EXPECT_EQ(VCTK_GetCertList(m_handle, "|", ";", nullptr, &length), 0);
  EXPECT_THAT(Fake().TakeCalls(), Contains("GetCertList(6=4 5=1 8=2)"));
}

TEST_F(Exports, Pkcs1) {
  int length = 0;
  ExpectCode(VCTK_GetP1SignResult(m_handle, nullptr, &length), 9);
  EXPECT_EQ(VCTK_P1Sign(m_handle, "YWJj", 1), 0);
  EXPECT_THAT(Fake().TakeCalls(), Contains("P1Sign(A1, 3, abc)"));
  ExpectRead(VCTK_GetP1SignResult, "UDEtU0lHTkFUVVJF");
  ExpectCode(VCTK_P1Sign(m_handle, nullptr, 0), 0xE0000003);
  ExpectCode(VCTK_P1Sign(m_handle, "", 0), 0xE000000B);
  ExpectCode(VCTK_P1Sign(m_handle, "====", 1), 0xE0000003);
  Fake().codes = {{"P1Sign", {0xA00F0204}}};
  ExpectCode(VCTK_P1Sign(m_handle, "abc", 0), 0xA00F0204);
  ExpectRead(VCTK_GetP1SignResult, "UDEtU0lHTkFUVVJF");
  Fake().certs.clear();
  ExpectCode(VCTK_P1Sign(m_handle, "abc", 0), 0xE0000061);
}

TEST_F(Exports, Pkcs1WithoutAChoice) {
  Fake().dialogPicks = -1;
  ExpectCode(VCTK_P1Sign(m_handle, "abc", 0), 0xE0000078);
  Fake().dialogPicks = 0;
  Fake().p1Signature.clear();
  ExpectCode(VCTK_P1Sign(m_handle, "abc", 0), 0xE0000001);
}

TEST_F(Exports, Pkcs7) {
  int length = 0;
  ExpectCode(VCTK_GetP7SignResult(m_handle, nullptr, &length), 9);
  EXPECT_EQ(VCTK_P7Sign(m_handle, "abc", 0, 1, 0), 0);
  EXPECT_THAT(Fake().TakeCalls(), Contains("P7Sign(A1, 3, 1, 0, abc)"));
  ExpectRead(VCTK_GetP7SignResult, "UDctU0lHTkFUVVJF");
  EXPECT_EQ(VCTK_P7Sign(m_handle, "abc", 0, 0, 1), 0);
  EXPECT_THAT(Fake().TakeCalls(), Contains("P7Sign(A1, 3, 0, 1, abc)"));
  Fake().codes = {{"P7Sign", {0xE0000057}}};
  ExpectCode(VCTK_P7Sign(m_handle, "abc", 0, 0, 1), 0xE0000057);
  ExpectCode(VCTK_P7Sign(m_handle, nullptr, 0, 0, 1), 0xE0000003);
}

TEST_F(Exports, Pkcs7FromPkcs1) {
  int length = 0;
  ExpectCode(VCTK_GetP7SignFromP1Result(m_handle, nullptr, &length), 10);
  EXPECT_EQ(VCTK_P7SignFromP1(m_handle, "YWJj", 1, 1), 0);
  EXPECT_THAT(Fake().calls, Contains("P1Sign(A1, 3, abc)"));
  EXPECT_THAT(Fake().calls,
              Contains("AssembleP1DataToP7Data(1, 3, YWJj, P1-SIGNATURE, CERT, result)"));
  ExpectRead(VCTK_GetP7SignFromP1Result, "UDEtSU4tUDc=");
  ExpectCode(VCTK_P7SignFromP1(m_handle, nullptr, 0, 0), 0xE0000003);
  Fake().codes = {{"P1Sign", {0xE0000056}}};
  ExpectCode(VCTK_P7SignFromP1(m_handle, "abc", 0, 0), 0xE0000056);
  ExpectCode(VCTK_GetP7SignFromP1Result(m_handle, nullptr, &length), 10);
}

// The method fails without a code, so the result reads as success.
TEST_F(Exports, AFailedWrappingReturnsZero) {
  Fake().codes = {{"AssembleP1DataToP7Data", {0xE0000029}}};
  EXPECT_EQ(VCTK_P7SignFromP1(m_handle, "abc", 0, 0), 0);
  int length = 0;
  ExpectCode(VCTK_GetP7SignFromP1Result(m_handle, nullptr, &length), 10);
}

TEST_F(Exports, TheSignVersionIsEmpty) {
  char text[4] = "#";
  int length = 4;
  EXPECT_EQ(VCTK_GetSignVersion(m_handle, text, &length), 0);
  EXPECT_EQ(length, 0);
  EXPECT_STREQ(text, "#");
}

TEST_F(Exports, TheChosenCertificate) {
  int length = 0;
  ExpectCode(VCTK_GetSignCert(m_handle, nullptr, &length), 0xE0000001);
  ExpectCode(VCTK_GetSignCertType(m_handle, nullptr, &length), 0xE0000001);
  EXPECT_EQ(VCTK_SetCert(m_handle, "A1"), 1);
  ExpectRead(VCTK_GetSignCert, "Q0VSVA==");
  OutputRules rules;
  rules.countsTerminator = 1;
  ExpectRead(VCTK_GetSignCertType, "RSA", rules);
}

TEST_F(Exports, TheCallQueue) {
  EXPECT_EQ(VCTK_CallQueueEnable(m_handle, 1, 0), 0);
  EXPECT_THAT(Fake().TakeCalls(), Contains("Enable(1, 0)"));
  Fake().queue = "签名";
  OutputRules rules;
  rules.tooSmall = 0xE0000004;
  rules.leavesLength = true;
  ExpectRead(VCTK_CallQueueGet, "签名", rules);
  EXPECT_EQ(VCTK_CallQueueClear(m_handle), 0);
  int length = 0;
  ExpectCode(VCTK_CallQueueGet(m_handle, nullptr, &length), 0xE0000084);
  Fake().codes = {{"Enable", {0xE0000008}}, {"Clear", {0xE0000009}}};
  ExpectCode(VCTK_CallQueueEnable(m_handle, 1, 0), 0xE0000008);
  ExpectCode(VCTK_CallQueueClear(m_handle), 0xE0000009);
}

TEST_F(Exports, TheCertificateList) {
  int length = 0;
  EXPECT_EQ(VCTK_GetCertList(m_handle, "|", ";", nullptr, &length), 0);
  const std::string text = "CN=signer;A1";
  EXPECT_EQ(length, static_cast<int>(text.size() + 1));
  char buffer[32] = {};
  --length;
  ExpectCode(VCTK_GetCertList(m_handle, "|", ";", buffer, &length), 4);
  EXPECT_EQ(VCTK_GetCertList(m_handle, "|", ";", buffer, &length), 0);
  EXPECT_EQ(buffer, text);
  EXPECT_EQ(length, static_cast<int>(text.size() + 1));
  ExpectCode(VCTK_GetCertList(m_handle, nullptr, ";", buffer, &length), 11);
  ExpectCode(VCTK_GetCertList(m_handle, "|", nullptr, buffer, &length), 11);
  ExpectCode(VCTK_GetCertList(m_handle, "|", ";", buffer, nullptr), 11);
  Fake().certs.clear();
  ExpectCode(VCTK_GetCertList(m_handle, "|", ";", nullptr, &length), 0xE000000E);
}

TEST_F(Exports, PresenceOfACertificate) {
  int exists = 7;
  EXPECT_EQ(VCTK_CheckCertIsExist(m_handle, "A1", &exists), 0);
  EXPECT_EQ(exists, 1);
  EXPECT_EQ(VCTK_CheckCertIsExist(m_handle, "B2", &exists), 0);
  EXPECT_EQ(exists, 0);
  exists = 7;
  ExpectCode(VCTK_CheckCertIsExist(m_handle, nullptr, &exists), 11);
  ExpectCode(VCTK_CheckCertIsExist(m_handle, "A1", nullptr), 11);
  Fake().codes = {{"GetCertList", {0xE0000042}}};
  ExpectCode(VCTK_CheckCertIsExist(m_handle, "A1", &exists), 0xE0000042);
  EXPECT_EQ(exists, 7);
}

TEST_F(Exports, ChangingAPinReturnsTheDevicesCodeAndStoresNone) {
  EXPECT_EQ(VCTK_ChangePinCode(m_handle, "A1", 2, "o", "n"), 0);
  EXPECT_THAT(Fake().TakeCalls(), Contains("ChangePin(A1, 2, o, n, null)"));
  EXPECT_EQ(VCTK_ChangePinCode(m_handle, "A1", 1, "o", "n"), 0);
  EXPECT_THAT(Fake().TakeCalls(), Contains("ChangePin(A1, 1, o, n, null)"));
  EXPECT_EQ(VCTK_ChangePinCode(m_handle, "", 2, "o", "n"), Code(0xE0000078));
  Fake().codes = {{"ChangePin", {0xE0000056}}};
  EXPECT_EQ(VCTK_ChangePinCode(m_handle, "A1", 2, "o", "n"), Code(0xE0000056));
  EXPECT_EQ(VCTK_GetLastError(m_handle), 0);
}

TEST_F(Exports, SettingACertificateReturnsOne) {
  EXPECT_EQ(VCTK_SetCert(m_handle, "A1"), 1);
  EXPECT_EQ(VCTK_GetLastError(m_handle), 0);
  ExpectCode(VCTK_SetCert(m_handle, "没有"), 0xE0000061);
  EXPECT_THAT(Fake().calls.back(), testing::HasSubstr("1=\\u6CA1\\u6709"));
  ExpectCode(VCTK_SetCert(m_handle, ""), 0xE0000061);
  ExpectCode(VCTK_SetCert(m_handle, nullptr), 0xE0000061);
}

TEST_F(Exports, SettingAPinReturnsOne) {
  EXPECT_EQ(VCTK_SetPinCode(m_handle, "123456"), 1);
  EXPECT_EQ(VCTK_SetPinCode(m_handle, nullptr), Code(0xE0000003));
  EXPECT_EQ(VCTK_GetLastError(m_handle), 0);
}

TEST_F(Exports, Pkcs7WithoutTheDialog) {
  ExpectCode(VCTK_P7SignStrEx(m_handle, "abc", 0, 0, 1), 0xE0000078);
  VCTK_SetCert(m_handle, "A1");
  VCTK_SetPinCode(m_handle, "123456");
  Fake().TakeCalls();
  EXPECT_EQ(VCTK_P7SignStrEx(m_handle, "YWJj", 1, 1, 0), 0);
  EXPECT_THAT(Fake().calls, Contains("SetPinCode(2, 123456, A1)"));
  EXPECT_THAT(Fake().calls, Contains("P7Sign(A1, 3, 1, 0, abc)"));
  ExpectRead(VCTK_GetP7SignResult, "UDctU0lHTkFUVVJF");
  Fake().codes = {{"P7Sign", {0xE0000056}}};
  ExpectCode(VCTK_P7SignStrEx(m_handle, "abc", 0, 0, 1), 0xE0000056);
  ExpectCode(VCTK_P7SignStrEx(m_handle, nullptr, 0, 0, 1), 0xE0000003);
}

TEST_F(Exports, Pkcs1WithAPin) {
  int length = 0;
  ExpectCode(VCTK_GetP1SignResultWithPin(m_handle, nullptr, &length), 9);
  EXPECT_EQ(VCTK_P1SignWithPin(m_handle, "A1", "123456", "abc", 0), 0);
  ExpectRead(VCTK_GetP1SignResultWithPin,
             "{\"result\":0,\"signdata\":\"UDEtU0lHTkFUVVJF\",\"cert\":\"Q0VSVA==\","
             "\"algid\":\"SHA1\",\"signalgid\":\"RSA\"}");
  ExpectCode(VCTK_P1SignWithPin(m_handle, "B2", "123456", "abc", 0), 0xE0000061);
  ExpectRead(VCTK_GetP1SignResultWithPin, "{\"result\":-1,\"remainretrycount\":-1}");
  ExpectCode(VCTK_P1SignWithPin(m_handle, nullptr, "123456", "abc", 0), 0xE0000003);
  ExpectCode(VCTK_P1SignWithPin(m_handle, "A1", nullptr, "abc", 0), 0xE0000003);
  ExpectCode(VCTK_P1SignWithPin(m_handle, "A1", "123456", nullptr, 0), 0xE0000003);
  Fake().codes = {{"Login", {0xE0000056}}};
  ExpectCode(VCTK_P1SignWithPin(m_handle, "A1", "123456", "abc", 0), 0xE0000056);
}

TEST_F(Exports, ForcingThePinDialogReturnsZeroWhateverIsStored) {
  VCTK_AddFilter(m_handle, 13, "x");
  EXPECT_EQ(VCTK_SetForcePinDialog(m_handle, 1), 0);
  EXPECT_EQ(VCTK_GetLastError(m_handle), Code(0xE0000003));
  EXPECT_EQ(VCTK_P1Sign(m_handle, "abc", 0), 0);
  EXPECT_THAT(Fake().calls, Contains("SetForcePinDialog(1)"));
}

}  // namespace
