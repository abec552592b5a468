// PKCS#1 with the certificate dialog, and the small PIN settings.
#include "OutputBuffer.h"
#include "Session.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const wchar_t kSignature[] = L"UDEtU0lHTkFUVVJF";  // base64 of "P1-SIGNATURE"

class Pkcs1Signing : public Session {
 protected:
  void SetUp() override {
    Session::SetUp();
    Fake().certs = {FakeCert()};
  }

  void ExpectRefused(const char* data, BOOL isBase64, ULONG code) {
    EXPECT_EQ(m_toolkit.P1Sign(data, isBase64), FALSE) << (data == nullptr ? "null" : data);
    EXPECT_EQ(m_toolkit.m_LastError, code) << (data == nullptr ? "null" : data);
  }

  std::string SignCall() {
    const std::vector<std::string> calls = Fake().TakeCalls();
    for (const std::string& call : calls) {
      if (call.rfind("P1Sign", 0) == 0) return call;
    }
    return "";
  }
};

TEST_F(Pkcs1Signing, ChoosesWithTheDialogAndSigns) {
  m_toolkit.AddFilter(2, "CN");
  m_toolkit.m_LastError = 5;
  EXPECT_EQ(m_toolkit.P1Sign("abc", FALSE), TRUE);
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
  EXPECT_STREQ(m_toolkit.m_P1SignResultBase64, kSignature);
  EXPECT_THAT(Fake().TakeCalls(),
              ElementsAre("CreateDeviceManagerInstance()", kAddKeys, "Initialize(loader)",
                          "CreateCertUIInstance()",
                          std::string("GetCertList(2=CN ") + kSigningFilters + ")",
                          "EnableSingleCertSkipUI(0)", "DisplayUI(0, 1 shown)",
                          "SetForcePinDialog(0)", "P1Sign(01, 3, abc)"));
  EXPECT_EQ(Fake().liveObjects, 1);  // the queue
}

TEST_F(Pkcs1Signing, FlagsGoToTheDialogAndTheDevice) {
  m_toolkit.SetChooseSingleCert(TRUE);
  m_toolkit.SetForcePinDialog(TRUE);
  EXPECT_EQ(m_toolkit.P1Sign("abc", FALSE), TRUE);
  EXPECT_THAT(Fake().calls, Contains("EnableSingleCertSkipUI(1)"));
  EXPECT_THAT(Fake().calls, Contains("SetForcePinDialog(1)"));
}

TEST_F(Pkcs1Signing, TextIsSignedAsItsBytes) {
  EXPECT_EQ(m_toolkit.P1Sign("abc", FALSE), TRUE);
  EXPECT_EQ(SignCall(), "P1Sign(01, 3, abc)");
}

TEST_F(Pkcs1Signing, Base64IsDecodedFirst) {
  EXPECT_EQ(m_toolkit.P1Sign("YWJj", TRUE), TRUE);
  EXPECT_EQ(SignCall(), "P1Sign(01, 3, abc)");
  EXPECT_EQ(m_toolkit.P1Sign(" YW\r\nI= ", TRUE), TRUE);
  EXPECT_EQ(SignCall(), "P1Sign(01, 3, ab)");
  EXPECT_EQ(m_toolkit.P1Sign("AP8A", TRUE), TRUE);
  EXPECT_EQ(SignCall(), "P1Sign(01, 3, \\x00\\xFF\\x00)");
}

// As many bytes as the text has characters: hosts that sign more than ASCII give base64.
TEST_F(Pkcs1Signing, OfMultiByteTextOnlyTheFirstBytesAreSigned) {
  EXPECT_EQ(m_toolkit.P1Sign("张三", FALSE), TRUE);
  EXPECT_EQ(SignCall(), "P1Sign(01, 3, \\xE5\\xBC)");
  EXPECT_EQ(m_toolkit.P1Sign("a张", FALSE), TRUE);
  EXPECT_EQ(SignCall(), "P1Sign(01, 3, a\\xE5)");
}

TEST_F(Pkcs1Signing, NothingToSignIsRefusedBeforeTheDeviceIsAsked) {
  ExpectRefused(nullptr, FALSE, 0xE0000003);
  ExpectRefused("", FALSE, 0xE000000B);
  ExpectRefused("", TRUE, 0xE000000B);
  for (const char* rubbish : {"====", "!!!!", "A", " \r\n"}) {
    ExpectRefused(rubbish, TRUE, 0xE0000003);
  }
  ExpectRefused("\xFF\xFE", FALSE, 0xE000000B);  // no text in the locale
  EXPECT_THAT(Fake().calls, IsEmpty());
}

TEST_F(Pkcs1Signing, WithoutACertificateNoDialogIsShown) {
  Fake().certs.clear();
  ExpectRefused("abc", FALSE, 0xE0000061);
  EXPECT_THAT(Fake().calls, Not(Contains(StartsWith("EnableSingleCertSkipUI"))));
}

// Only what was listed counts.
TEST_F(Pkcs1Signing, TheCodeOfTheListingIsIgnored) {
  Fake().codes = {{"GetCertList", {0xE0000042}}};
  EXPECT_EQ(m_toolkit.P1Sign("abc", FALSE), TRUE);
  Fake().certs.clear();
  ExpectRefused("abc", FALSE, 0xE0000061);
}

TEST_F(Pkcs1Signing, WithoutAChoiceNothingIsSigned) {
  Fake().dialogPicks = -1;
  ExpectRefused("abc", FALSE, 0xE0000078);
  EXPECT_EQ(SignCall(), "");
}

TEST_F(Pkcs1Signing, FailuresBeforeTheSignatureArePassedOn) {
  for (const char* operation : {"AddKeyEx", "Initialize", "EnableSingleCertSkipUI", "DisplayUI"}) {
    Fake().codes = {{operation, {0xE0000002}}};
    ExpectRefused("abc", FALSE, 0xE0000002);
    EXPECT_THAT(Fake().TakeCalls().back(), StartsWith(operation));
  }
}

TEST_F(Pkcs1Signing, TheResultOfForcingTheDialogIsIgnored) {
  Fake().codes = {{"SetForcePinDialog", {0xE0000008}}};
  EXPECT_EQ(m_toolkit.P1Sign("abc", FALSE), TRUE);
}

TEST_F(Pkcs1Signing, WithoutADigestNothingIsSigned) {
  FakeCert cert;
  cert.asymmAlg = 0;
  Fake().certs = {cert};
  ExpectRefused("abc", FALSE, 0xE0000066);
  EXPECT_THAT(Fake().calls, Not(Contains(StartsWith("SetForcePinDialog"))));
}

TEST_F(Pkcs1Signing, AFailedSignatureFetchesTheTriesThatAreLeft) {
  Fake().codes = {{"P1Sign", {0xE0000056}}};
  Fake().pinRetryTimes = 4;
  ExpectRefused("abc", FALSE, 0xE0000056);
  EXPECT_EQ(m_toolkit.RetryTimes, 4);
  EXPECT_THAT(Fake().TakeCalls().back(), "GetPinRetryTimes()");
}

TEST_F(Pkcs1Signing, TheTriesAreNotAskedForWhenItSucceeds) {
  m_toolkit.RetryTimes = 9;
  EXPECT_EQ(m_toolkit.P1Sign("abc", FALSE), TRUE);
  EXPECT_EQ(m_toolkit.RetryTimes, 9);
  EXPECT_THAT(Fake().calls, Not(Contains("GetPinRetryTimes()")));
}

TEST_F(Pkcs1Signing, AnEmptySignatureIsAFailure) {
  Fake().p1Signature.clear();
  ExpectRefused("abc", FALSE, 0xE0000001);
}

TEST_F(Pkcs1Signing, AFailureLeavesTheEarlierSignatureReadable) {
  ASSERT_EQ(m_toolkit.P1Sign("abc", FALSE), TRUE);
  Fake().codes = {{"P1Sign", {0xE0000056}}};
  ExpectRefused("abc", FALSE, 0xE0000056);
  ExpectRefused(nullptr, FALSE, 0xE0000003);
  int length = 0;
  EXPECT_EQ(m_toolkit.GetP1SignResult(nullptr, &length), TRUE);
  EXPECT_EQ(length, 17);
}

TEST_F(Pkcs1Signing, TheFirstChosenCertificateGoesOnSigning) {
  FakeCert second;
  second.serial = L"02";
  Fake().certs = {FakeCert(), second};
  Fake().dialogPicks = 1;
  EXPECT_EQ(m_toolkit.P1Sign("abc", FALSE), TRUE);
  EXPECT_EQ(SignCall(), "P1Sign(02, 3, abc)");
  Fake().dialogPicks = 0;
  EXPECT_EQ(m_toolkit.P1Sign("abc", FALSE), TRUE);
  EXPECT_EQ(SignCall(), "P1Sign(02, 3, abc)");
  EXPECT_EQ(m_toolkit.m_SelectCertList.GetCount(), 2);
}

// With an earlier choice, a dialog that brings none still lets that one sign.
TEST_F(Pkcs1Signing, AnEarlierChoiceSignsWhenTheDialogBringsNone) {
  Choose(FakeCert());
  Fake().dialogPicks = -1;
  EXPECT_EQ(m_toolkit.P1Sign("abc", FALSE), TRUE);
  EXPECT_EQ(SignCall(), "P1Sign(01, 3, abc)");
}

TEST_F(Pkcs1Signing, ALongSignatureIsOnOneLine) {
  Fake().p1Signature = std::string(300, 'a');  // "aaa" is "YWFh"
  EXPECT_EQ(m_toolkit.P1Sign("abc", FALSE), TRUE);
  std::wstring expected;
  for (int i = 0; i < 100; ++i) expected += L"YWFh";
  EXPECT_STREQ(m_toolkit.m_P1SignResultBase64, expected.c_str());
  Fake().p1Signature = "ab";
  EXPECT_EQ(m_toolkit.P1Sign("abc", FALSE), TRUE);
  EXPECT_STREQ(m_toolkit.m_P1SignResultBase64, L"YWI=");
}

TEST_F(Pkcs1Signing, TheResultIsCopiedOutAgainAndAgain) {
  ASSERT_EQ(m_toolkit.P1Sign("abc", FALSE), TRUE);
  ExpectCopiedOut(
      [&](char* out, int* length) { return m_toolkit.GetP1SignResult(out, length) != FALSE; },
      [&] { return m_toolkit.m_LastError; }, "UDEtU0lHTkFUVVJF");
}

TEST_F(Pkcs1Signing, WithoutASignatureThereIsNoResult) {
  int length = 5;
  EXPECT_EQ(m_toolkit.GetP1SignResult(nullptr, &length), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 9u);
  EXPECT_EQ(length, 5);
  EXPECT_EQ(m_toolkit.GetP1SignResult(nullptr, nullptr), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 11u);
}

TEST_F(Pkcs1Signing, WithoutAManagerOrADialogNothingIsSigned) {
  SwitchTo("gives_no_device_manager");
  ExpectRefused("abc", FALSE, 0xE000000D);
  SwitchTo("gives_no_dialog");
  ExpectRefused("abc", FALSE, 0xE000000D);
  EXPECT_EQ(SignCall(), "");
}

// Such objects are lost, and nothing is released twice to make up for it.
TEST_F(Pkcs1Signing, ObjectsThatCountFromOneAreReleasedOnceOnly) {
  SwitchTo("counts_objects_from_one");
  EXPECT_EQ(m_toolkit.P1Sign("abc", FALSE), TRUE);
  EXPECT_EQ(Fake().liveObjects, 2);
  Fake().liveObjects = 0;
}

// --- PIN settings ---

TEST_F(Pkcs1Signing, AGivenPinIsKeptAsWideText) {
  m_toolkit.m_LastError = 5;
  EXPECT_EQ(m_toolkit.SetPinCode("密码12"), 1u);
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
  EXPECT_STREQ(m_toolkit.m_szUserPinCode, L"密码12");
  m_toolkit.m_LastError = 5;
  EXPECT_EQ(m_toolkit.SetPinCode(nullptr), 0xE0000003u);
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
  EXPECT_STREQ(m_toolkit.m_szUserPinCode, L"密码12");
  EXPECT_EQ(m_toolkit.SetPinCode(""), 1u);
  EXPECT_STREQ(m_toolkit.m_szUserPinCode, L"");
}

TEST_F(Pkcs1Signing, ForcingTheDialogLeavesTheLastErrorAlone) {
  m_toolkit.m_LastError = 5;
  m_toolkit.SetForcePinDialog(TRUE);
  EXPECT_EQ(m_toolkit.m_bForcePinDialog, TRUE);
  EXPECT_EQ(m_toolkit.m_LastError, 5u);
}

// --- PIN change ---

TEST_F(Pkcs1Signing, APinIsChangedWithoutAListing) {
  m_toolkit.m_LastError = 5;
  EXPECT_EQ(m_toolkit.ChangePinCode("A1", VEL_PIN_CODE_TYPE_ADMIN, "old", "new"), 0u);
  EXPECT_EQ(m_toolkit.m_LastError, 5u);
  EXPECT_THAT(Fake().TakeCalls(),
              ElementsAre("CreateDeviceManagerInstance()", kAddKeys, "Initialize(loader)",
                          "ChangePin(A1, 1, old, new, null)"));
}

TEST_F(Pkcs1Signing, APinChangePassesOnWhatItIsGiven) {
  const std::string longSerial(200, '7');
  const std::string longPin(10000, '8');
  EXPECT_EQ(
      m_toolkit.ChangePinCode(longSerial.c_str(), VEL_PIN_CODE_TYPE_USER, longPin.c_str(), nullptr),
      0u);
  EXPECT_EQ(Fake().TakeCalls().back(),
            "ChangePin(" + longSerial + ", 2, " + longPin + ", null, null)");
}

TEST_F(Pkcs1Signing, FailuresOfAPinChangeAreReturnedAndNotStored) {
  for (const char* operation : {"AddKeyEx", "Initialize", "ChangePin"}) {
    m_toolkit.m_LastError = 5;
    Fake().codes = {{operation, {0xE0000059}}};
    EXPECT_EQ(m_toolkit.ChangePinCode("A1", VEL_PIN_CODE_TYPE_USER, "o", "n"), 0xE0000059u);
    EXPECT_EQ(m_toolkit.m_LastError, 5u);
    EXPECT_THAT(Fake().TakeCalls().back(), StartsWith(operation));
  }
}

TEST_F(Pkcs1Signing, APinChangeWithoutASerialNumberTakesTheChosenCertificate) {
  EXPECT_EQ(m_toolkit.ChangePinCode("", VEL_PIN_CODE_TYPE_USER, "o", "n"), 0xE0000078u);
  FakeCert cert;
  cert.serial = L"C3";
  Choose(cert);
  EXPECT_EQ(m_toolkit.ChangePinCode("", VEL_PIN_CODE_TYPE_USER, "o", "n"), 0u);
  EXPECT_EQ(Fake().TakeCalls().back(), "ChangePin(C3, 2, o, n, null)");
}

TEST_F(Pkcs1Signing, TheChosenSerialNumberIsCutToFortyNineCharacters) {
  for (const size_t length : {48u, 49u, 50u, 51u, 500u}) {
    m_toolkit.m_SelectCertList.Clear();
    FakeCert cert;
    cert.serial = std::wstring(length, L'5');
    Choose(cert);
    EXPECT_EQ(m_toolkit.ChangePinCode("", VEL_PIN_CODE_TYPE_USER, "o", "n"), 0u);
    EXPECT_EQ(Fake().TakeCalls().back(),
              "ChangePin(" + std::string(std::min<size_t>(length, 49), '5') + ", 2, o, n, null)");
  }
}

using Pkcs1SigningBefore = NoSession;

TEST_F(Pkcs1SigningBefore, InitialisationThereIsNoLoader) {
  EXPECT_EQ(m_toolkit.P1Sign("abc", FALSE), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE000000Bu);
  CString out = L"before";
  EXPECT_EQ(m_toolkit.P1SignEx(L"abc", FALSE, out), 0xE000000Bu);
  EXPECT_STREQ(out, L"before");
}

}  // namespace
