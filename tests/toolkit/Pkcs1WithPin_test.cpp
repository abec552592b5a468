// PKCS#1 with a given PIN: the JSON texts, the order of device calls, the log. In the sandbox.
#include "ArrayAllocations.h"
#include "LogFile.h"
#include "OutputBuffer.h"
#include "Session.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const wchar_t kFailed[] = L"{\"result\":-1,\"remainretrycount\":-1}";
const wchar_t kRsa[] =
    L"{\"result\":0,\"signdata\":\"UDEtU0lHTkFUVVJF\",\"cert\":\"Q0VSVA==\","
    L"\"algid\":\"SHA1\",\"signalgid\":\"RSA\"}";
const wchar_t kSm2[] =
    L"{\"result\":0,\"signdata\":\"UDEtU0lHTkFUVVJF\",\"cert\":\"Q0VSVA==\","
    L"\"algid\":\"SM3\",\"signalgid\":\"SM2\"}";

class Pkcs1WithPin : public Session {
 protected:
  void SetUp() override {
    Session::SetUp();
    PlugIn(VEL_ASYMM_ALG_RSA);
    m_logStart = LogSizeOnceWritten();
  }

  static void PlugIn(int asymmAlg) {
    FakeCert cert;
    cert.serial = L"A1";
    cert.asymmAlg = asymmAlg;
    Fake().certs = {cert};
  }

  void ExpectFailure(ULONG code, const wchar_t* json) {
    EXPECT_EQ(m_toolkit.P1SignWithPin("A1", "123456", "abc", FALSE), FALSE);
    EXPECT_EQ(m_toolkit.m_LastError, code);
    EXPECT_STREQ(m_toolkit.m_csPinSignResult, json);
  }

  // What this test's call logged, up to its last line.
  std::string Logged(ULONG code) {
    return LogOnceItHas("Leave,Errorcode:" + std::to_string(static_cast<int>(code)), m_logStart);
  }

  static bool HasLine(const std::string& log, const std::string& level,
                      const std::string& message) {
    return HasLogLine(log, level, "[^]]*-P1SignExWithPin", message);
  }

  size_t m_logStart = 0;
};

TEST_F(Pkcs1WithPin, LogsInSignsAndLogsOut) {
  m_toolkit.m_LastError = 5;
  EXPECT_EQ(m_toolkit.P1SignWithPin("A1", "123456", "abc", FALSE), TRUE);
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
  EXPECT_STREQ(m_toolkit.m_csPinSignResult, kRsa);
  EXPECT_THAT(
      Fake().TakeCalls(),
      ElementsAre("CreateDeviceManagerInstance()", kAddKeys, "Initialize(loader)", "GetCertList()",
                  "EnablePinStatusCheck(0)", "Login(A1, 2, 123456, null, info)",
                  "P1Sign(A1, 3, abc)", "Logout(A1, 2, null, null, info)"));
  EXPECT_EQ(Fake().liveObjects, 1);  // the queue
}

TEST_F(Pkcs1WithPin, EveryKeyButRsaSignsAsSm2) {
  for (const int alg : {2, 3, 0, 9}) {
    PlugIn(alg);
    EXPECT_EQ(m_toolkit.P1SignWithPin("A1", "123456", "abc", FALSE), TRUE);
    EXPECT_STREQ(m_toolkit.m_csPinSignResult, kSm2);
    EXPECT_THAT(Fake().TakeCalls(), Contains("P1Sign(A1, 6, abc)"));
  }
}

TEST_F(Pkcs1WithPin, TheDigestSettingDoesNotCount) {
  m_toolkit.SetDigestAlg("SHA256");
  EXPECT_EQ(m_toolkit.P1SignWithPin("A1", "123456", "abc", FALSE), TRUE);
  EXPECT_THAT(Fake().calls, Contains("P1Sign(A1, 3, abc)"));
}

TEST_F(Pkcs1WithPin, OnlyTheCallersFiltersApply) {
  m_toolkit.AddFilter(0, "CA");
  FakeCert encryption;
  encryption.serial = L"E3";
  encryption.keySpec = 2;
  Fake().certs = {encryption};
  EXPECT_EQ(m_toolkit.P1SignWithPin("E3", "123456", "abc", FALSE), TRUE);
  EXPECT_THAT(Fake().calls, Contains("GetCertList(0=CA)"));
}

TEST_F(Pkcs1WithPin, TheFirstCertificateOfExactlyThatSerialNumberSigns) {
  FakeCert small, second, twin;
  small.serial = L"a1";
  second.serial = L"A1";
  second.base64 = L"Rk9VTkQ=";
  twin.serial = L"A1";
  Fake().certs = {small, second, twin};
  EXPECT_EQ(m_toolkit.P1SignWithPin("A1", "", "abc", FALSE), TRUE);
  const std::wstring json = m_toolkit.m_csPinSignResult.GetBuffer();
  EXPECT_NE(json.find(L"\"cert\":\"Rk9VTkQ=\""), std::wstring::npos);
}

TEST_F(Pkcs1WithPin, AnUnknownSerialNumberIsNotFound) {
  for (const char* serial : {"a1", "A", "A11", "A1 ", "没有"}) {
    EXPECT_EQ(m_toolkit.P1SignWithPin(serial, "123456", "abc", FALSE), FALSE);
    EXPECT_EQ(m_toolkit.m_LastError, 0xE0000061u);
    EXPECT_STREQ(m_toolkit.m_csPinSignResult, kFailed);
  }
  const std::string log = Logged(0xE0000061);
  EXPECT_TRUE(HasLine(log, "ERROR", "普通Key中没有发现证书")) << log;
  EXPECT_TRUE(HasLine(log, "INFO", "Leave,Errorcode:-536870815")) << log;
  EXPECT_THAT(Fake().calls, Not(Contains("EnablePinStatusCheck(0)")));
}

TEST_F(Pkcs1WithPin, TheCodeOfTheListingIsIgnored) {
  Fake().codes = {{"GetCertList", {0xE0000042}}};
  EXPECT_EQ(m_toolkit.P1SignWithPin("A1", "123456", "abc", FALSE), TRUE);
}

TEST_F(Pkcs1WithPin, TheResultOfTheStatusCheckIsIgnored) {
  Fake().codes = {{"EnablePinStatusCheck", {0xE0000008}}};
  EXPECT_EQ(m_toolkit.P1SignWithPin("A1", "123456", "abc", FALSE), TRUE);
}

TEST_F(Pkcs1WithPin, AnEmptyPinMakesNoLogin) {
  EXPECT_EQ(m_toolkit.P1SignWithPin("A1", "", "abc", FALSE), TRUE);
  EXPECT_STREQ(m_toolkit.m_csPinSignResult, kRsa);
  EXPECT_THAT(Fake().TakeCalls(),
              ElementsAre("CreateDeviceManagerInstance()", kAddKeys, "Initialize(loader)",
                          "GetCertList()", "EnablePinStatusCheck(0)", "P1Sign(A1, 3, abc)"));
}

TEST_F(Pkcs1WithPin, DataIsTakenAsForTheDialogFlavour) {
  const std::tuple<const char*, BOOL, const char*> cases[] = {
      {"YWJj", TRUE, "P1Sign(A1, 3, abc)"},
      {"YWJj", FALSE, "P1Sign(A1, 3, YWJj)"},
      {"张三", FALSE, "P1Sign(A1, 3, \\xE5\\xBC)"}};
  for (const auto& [data, isBase64, call] : cases) {
    EXPECT_EQ(m_toolkit.P1SignWithPin("A1", "", data, isBase64), TRUE);
    EXPECT_EQ(Fake().TakeCalls().back(), call);
  }
}

TEST_F(Pkcs1WithPin, NullPointersAreRefusedAndTheEarlierTextStays) {
  ASSERT_EQ(m_toolkit.P1SignWithPin("A1", "123456", "abc", FALSE), TRUE);
  Fake().TakeCalls();
  const char* const texts[][3] = {
      {nullptr, "p", "abc"}, {"A1", nullptr, "abc"}, {"A1", "p", nullptr}};
  for (const auto& [serial, pin, data] : texts) {
    m_toolkit.m_LastError = 0;
    EXPECT_EQ(m_toolkit.P1SignWithPin(serial, pin, data, FALSE), FALSE);
    EXPECT_EQ(m_toolkit.m_LastError, 0xE0000003u);
    EXPECT_STREQ(m_toolkit.m_csPinSignResult, kRsa);
  }
  EXPECT_THAT(Fake().calls, IsEmpty());
}

TEST_F(Pkcs1WithPin, NothingToSignIsRefused) {
  const std::tuple<const char*, const char*, BOOL, ULONG> cases[] = {
      {"", "abc", FALSE, 0xE000000B},
      {"A1", "", FALSE, 0xE000000B},
      {"A1", "", TRUE, 0xE000000B},
      {"A1", "====", TRUE, 0xE0000003},
      {"A1", "!", TRUE, 0xE0000003}};
  for (const auto& [serial, data, isBase64, code] : cases) {
    m_toolkit.m_csPinSignResult.Empty();
    EXPECT_EQ(m_toolkit.P1SignWithPin(serial, "123456", data, isBase64), FALSE);
    EXPECT_EQ(m_toolkit.m_LastError, code);
    EXPECT_STREQ(m_toolkit.m_csPinSignResult, kFailed);
    EXPECT_NE(Logged(code), "");
  }
  EXPECT_THAT(Fake().calls, IsEmpty());
}

TEST_F(Pkcs1WithPin, FailuresOfTheManagerArePassedOn) {
  for (const char* operation : {"AddKeyEx", "Initialize"}) {
    Fake().codes = {{operation, {0xE0000042}}};
    ExpectFailure(0xE0000042, kFailed);
    EXPECT_THAT(Fake().TakeCalls().back(), StartsWith(operation));
  }
  EXPECT_NE(Logged(0xE0000042), "");
}

TEST_F(Pkcs1WithPin, WithoutAManagerNothingIsSigned) {
  SwitchTo("gives_no_device_manager");
  ExpectFailure(0xE000000D, kFailed);
  EXPECT_NE(Logged(0xE000000D), "");
}

TEST_F(Pkcs1WithPin, AFailedLoginEndsItWithoutALogout) {
  PlugIn(VEL_ASYMM_ALG_SM2);
  Fake().codes = {{"Login", {0xE0000056}}};
  Fake().remainRetryCount = 3;
  ExpectFailure(0xE0000056, kFailed);
  EXPECT_EQ(Fake().TakeCalls().back(), "Login(A1, 2, 123456, null, info)");
  const std::string log = Logged(0xE0000056);
  EXPECT_TRUE(
      HasLine(log, "ERROR", "KeyPinCodeHandleByCertSN函数失败，登入函数, ulRetValue = 0xE0000056"))
      << log;
}

TEST_F(Pkcs1WithPin, AFailedRsaSignatureTellsNoTries) {
  Fake().codes = {{"P1Sign", {0xE0000070}}};
  Fake().remainRetryCount = 3;
  ExpectFailure(0xE0000070, kFailed);
  EXPECT_THAT(Fake().calls, Not(Contains(StartsWith("GetPinInfo"))));
  EXPECT_EQ(Fake().calls.back(), "Logout(A1, 2, null, null, info)");
  const std::string log = Logged(0xE0000070);
  EXPECT_TRUE(HasLine(log, "ERROR", "P1Sign函数失败, ulRetValue = 0xE0000070")) << log;
  EXPECT_TRUE(HasLine(log, "ERROR", "签名结果为空，ErrorCode:-536870800")) << log;
}

TEST_F(Pkcs1WithPin, AFailedSm2SignatureTellsTheTriesThatAreLeft) {
  PlugIn(VEL_ASYMM_ALG_SM2);
  Fake().codes = {{"P1Sign", {0xE0000070}}};
  Fake().remainRetryCount = 3;
  ExpectFailure(0xE0000070, L"{\"result\":-1,\"remainretrycount\":3}");
  EXPECT_THAT(
      Fake().TakeCalls(),
      ElementsAre("CreateDeviceManagerInstance()", kAddKeys, "Initialize(loader)", "GetCertList()",
                  "EnablePinStatusCheck(0)", "Login(A1, 2, 123456, null, info)",
                  "P1Sign(A1, 6, abc)", "GetPinInfo(A1, 2, null, null, info)",
                  "Logout(A1, 2, null, null, info)"));
  EXPECT_TRUE(HasLine(Logged(0xE0000070), "ERROR", "P1Sign函数失败, ulRetValue = 0xE0000070"));
}

TEST_F(Pkcs1WithPin, AnSm2FailureWithoutPinInformationTellsMinusOne) {
  PlugIn(VEL_ASYMM_ALG_SM2);
  Fake().codes = {{"P1Sign", {0xE0000070}}, {"GetPinInfo", {0xE0000008}}};
  Fake().remainRetryCount = 3;
  ExpectFailure(0xE0000070, kFailed);
}

TEST_F(Pkcs1WithPin, ALargeRetryCountIsUnsigned) {
  PlugIn(VEL_ASYMM_ALG_SM2);
  Fake().codes = {{"P1Sign", {0xE0000070}}};
  Fake().remainRetryCount = 65535;
  ExpectFailure(0xE0000070, L"{\"result\":-1,\"remainretrycount\":65535}");
}

TEST_F(Pkcs1WithPin, AFailedLogoutIsLoggedAndChangesNothing) {
  Fake().codes = {{"Logout", {0xE0000042}}};
  EXPECT_EQ(m_toolkit.P1SignWithPin("A1", "123456", "abc", FALSE), TRUE);
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
  EXPECT_STREQ(m_toolkit.m_csPinSignResult, kRsa);
  const std::string log = Logged(0);
  EXPECT_TRUE(
      HasLine(log, "ERROR", "KeyPinCodeHandleByCertSN函数失败,登出函数, ulRetValue = 0xE0000042"))
      << log;
}

TEST_F(Pkcs1WithPin, ALogoutThatIsNotSupportedIsNoError) {
  Fake().codes = {{"Logout", {0xE0000008}}};
  EXPECT_EQ(m_toolkit.P1SignWithPin("A1", "123456", "abc", FALSE), TRUE);
  EXPECT_THAT(Logged(0), Not(HasSubstr("登出函数")));
}

// After a failed logout the look at the signature is left out.
TEST_F(Pkcs1WithPin, AnEmptyResultIsNotLoggedAfterAFailedLogout) {
  Fake().codes = {{"P1Sign", {0xE0000070}}, {"Logout", {0xE0000042}}};
  ExpectFailure(0xE0000070, kFailed);
  const std::string log = Logged(0xE0000070);
  EXPECT_THAT(log, HasSubstr("登出函数"));
  EXPECT_THAT(log, Not(HasSubstr("签名结果为空")));
}

TEST_F(Pkcs1WithPin, AnEmptyResultIsLoggedWithoutALoginToo) {
  Fake().codes = {{"P1Sign", {0xE0000070}}};
  EXPECT_EQ(m_toolkit.P1SignWithPin("A1", "", "abc", FALSE), FALSE);
  EXPECT_THAT(Logged(0xE0000070), HasSubstr("签名结果为空，ErrorCode:-536870800"));
}

TEST_F(Pkcs1WithPin, AnEmptySignatureSucceedsWithAnEmptyText) {
  Fake().p1Signature.clear();
  EXPECT_EQ(m_toolkit.P1SignWithPin("A1", "123456", "abc", FALSE), TRUE);
  EXPECT_STREQ(m_toolkit.m_csPinSignResult,
               L"{\"result\":0,\"signdata\":\"\",\"cert\":\"Q0VSVA==\",\"algid\":\"SHA1\","
               L"\"signalgid\":\"RSA\"}");
  EXPECT_TRUE(HasLine(Logged(0), "ERROR", "签名结果为空，ErrorCode:0"));
}

TEST_F(Pkcs1WithPin, ATextWithoutMemoryIsNoSuccess) {
  Fake().certs[0].base64.assign(1 << 20, L'A');
  ArrayAllocations::failFrom = 4 << 20;
  ExpectFailure(0xE0000005, kFailed);
  ArrayAllocations::Reset();
  EXPECT_THAT(Fake().TakeCalls(), Contains(StartsWith("Logout(")));
}

TEST_F(Pkcs1WithPin, SuccessLogsItsEndAlone) {
  EXPECT_EQ(m_toolkit.P1SignWithPin("A1", "123456", "abc", FALSE), TRUE);
  const std::string log = Logged(0);
  EXPECT_TRUE(HasLine(log, "INFO", "Leave,Errorcode:0")) << log;
  EXPECT_THAT(log, Not(HasSubstr("[ERROR]")));
}

TEST_F(Pkcs1WithPin, NoPinReachesTheLog) {
  Fake().codes = {{"Login", {0xE0000056}}};
  EXPECT_EQ(m_toolkit.P1SignWithPin("A1", "PINPIN99", "abc", FALSE), FALSE);
  EXPECT_THAT(Logged(0xE0000056), Not(HasSubstr("PINPIN99")));
}

TEST_F(Pkcs1WithPin, AnOverlongPinGoesToTheDeviceAsItIs) {
  const std::string pin(100000, '9');
  Fake().codes = {{"Login", {0xE0000059}}};
  EXPECT_EQ(m_toolkit.P1SignWithPin("A1", pin.c_str(), "abc", FALSE), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000059u);
  EXPECT_EQ(Fake().calls.back(), "Login(A1, 2, " + pin + ", null, info)");
}

TEST_F(Pkcs1WithPin, ALongSignatureAndCertificateAreWhole) {
  Fake().p1Signature = std::string(30000, 'a');
  FakeCert cert;
  cert.base64 = std::wstring(100000, L'C');
  Fake().certs = {cert};
  EXPECT_EQ(m_toolkit.P1SignWithPin("01", "", "abc", FALSE), TRUE);
  std::wstring signature;
  for (int i = 0; i < 10000; ++i) signature += L"YWFh";
  EXPECT_STREQ(m_toolkit.m_csPinSignResult,
               (L"{\"result\":0,\"signdata\":\"" + signature + L"\",\"cert\":\"" + cert.base64 +
                L"\",\"algid\":\"SHA1\",\"signalgid\":\"RSA\"}")
                   .c_str());
}

TEST_F(Pkcs1WithPin, TheTextIsCopiedOutAfterSuccessAndFailure) {
  const auto read = [&](char* out, int* length) {
    return m_toolkit.GetP1SignResultWithPin(out, length) != FALSE;
  };
  const auto lastError = [&] { return m_toolkit.m_LastError; };
  int length = 5;
  EXPECT_FALSE(read(nullptr, &length));
  EXPECT_EQ(m_toolkit.m_LastError, 9u);
  EXPECT_EQ(length, 5);
  EXPECT_FALSE(read(nullptr, nullptr));
  EXPECT_EQ(m_toolkit.m_LastError, 11u);
  Fake().codes = {{"Login", {0xE0000056}}};
  ExpectFailure(0xE0000056, kFailed);
  ExpectCopiedOut(read, lastError, "{\"result\":-1,\"remainretrycount\":-1}");
}

TEST_F(Pkcs1WithPin, LeavesTheDialogFlavoursResultAlone) {
  m_toolkit.m_P1SignResultBase64 = L"earlier";
  EXPECT_EQ(m_toolkit.P1SignWithPin("A1", "", "abc", FALSE), TRUE);
  EXPECT_STREQ(m_toolkit.m_P1SignResultBase64, L"earlier");
  EXPECT_EQ(m_toolkit.m_SelectCertList.GetCount(), 0);
}

using Pkcs1WithPinBefore = NoSession;

TEST_F(Pkcs1WithPinBefore, InitialisationThereIsNoLoader) {
  EXPECT_EQ(m_toolkit.P1SignWithPin("A1", "1", "abc", FALSE), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE000000Bu);
  EXPECT_STREQ(m_toolkit.m_csPinSignResult, kFailed);
}

}  // namespace
