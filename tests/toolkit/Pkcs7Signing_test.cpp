// PKCS#7: on the device with the dialog, on the device without it, and by wrapping PKCS#1.
#include <sys/resource.h>

#include "OutputBuffer.h"
#include "Session.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const wchar_t kSignature[] = L"UDctU0lHTkFUVVJF";  // base64 of "P7-SIGNATURE"
const wchar_t kWrapped[] = L"UDEtSU4tUDc=";        // base64 of "P1-IN-P7"

long PeakKilobytes() {
  rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

class Pkcs7Signing : public Session {
 protected:
  void SetUp() override {
    Session::SetUp();
    Fake().certs = {FakeCert()};
  }

  std::string Call(const std::string& operation) {
    for (const std::string& call : Fake().TakeCalls()) {
      if (call.rfind(operation + "(", 0) == 0) return call;
    }
    return "";
  }
};

// --- with the dialog ---

TEST_F(Pkcs7Signing, FiltersByKeyUsageInsteadOfKeySpec) {
  m_toolkit.AddFilter(2, "CN");
  m_toolkit.m_LastError = 5;
  EXPECT_EQ(m_toolkit.P7Sign("abc", FALSE, FALSE, TRUE), TRUE);
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
  EXPECT_STREQ(m_toolkit.m_P7SignResultBase64, kSignature);
  EXPECT_THAT(Fake().TakeCalls(),
              ElementsAre("CreateDeviceManagerInstance()", kAddKeys, "Initialize(loader)",
                          "CreateCertUIInstance()", "GetCertList(2=CN 6=4 9=2 8=2)",
                          "EnableSingleCertSkipUI(0)", "DisplayUI(0, 1 shown)",
                          "SetForcePinDialog(0)", "P7Sign(01, 3, 0, 1, abc)"));
  EXPECT_EQ(Fake().liveObjects, 1);  // the queue
}

TEST_F(Pkcs7Signing, FlagsArePassedOnUnchanged) {
  for (const auto& [detach, include] : {std::pair(1, 0), {0, 0}, {1, 1}, {7, 9}}) {
    EXPECT_EQ(m_toolkit.P7Sign("YWJj", TRUE, detach, include), TRUE);
    EXPECT_EQ(Call("P7Sign"), "P7Sign(01, 3, " + std::to_string(detach) + ", " +
                                  std::to_string(include) + ", abc)");
  }
  m_toolkit.SetChooseSingleCert(TRUE);
  m_toolkit.SetForcePinDialog(TRUE);
  EXPECT_EQ(m_toolkit.P7Sign("abc", FALSE, FALSE, TRUE), TRUE);
  EXPECT_THAT(Fake().calls, Contains("EnableSingleCertSkipUI(1)"));
  EXPECT_THAT(Fake().calls, Contains("SetForcePinDialog(1)"));
}

TEST_F(Pkcs7Signing, TheCodeOfTheListingCounts) {
  Fake().codes = {{"GetCertList", {0xE0000042}}};
  EXPECT_EQ(m_toolkit.P7Sign("abc", FALSE, FALSE, TRUE), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000042u);
  EXPECT_THAT(Fake().TakeCalls().back(), StartsWith("GetCertList"));
}

TEST_F(Pkcs7Signing, AnEmptyListIsTheDialogsMatter) {
  Fake().certs.clear();
  EXPECT_EQ(m_toolkit.P7Sign("abc", FALSE, FALSE, TRUE), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000078u);
  EXPECT_THAT(Fake().TakeCalls().back(), "DisplayUI(0, 0 shown)");
  Fake().dialogBrings = FakeCert();
  EXPECT_EQ(m_toolkit.P7Sign("abc", FALSE, FALSE, TRUE), TRUE);
}

TEST_F(Pkcs7Signing, FailuresArePassedOnAndLeaveTheEarlierResult) {
  ASSERT_EQ(m_toolkit.P7Sign("abc", FALSE, FALSE, TRUE), TRUE);
  m_toolkit.m_SelectCertList.Clear();
  for (const char* operation :
       {"AddKeyEx", "Initialize", "GetCertList", "EnableSingleCertSkipUI", "DisplayUI"}) {
    Fake().codes = {{operation, {0xE0000002}}};
    EXPECT_EQ(m_toolkit.P7Sign("abc", FALSE, FALSE, TRUE), FALSE);
    EXPECT_EQ(m_toolkit.m_LastError, 0xE0000002u);
    EXPECT_THAT(Fake().TakeCalls().back(), StartsWith(operation));
    EXPECT_STREQ(m_toolkit.m_P7SignResultBase64, kSignature);
  }
}

TEST_F(Pkcs7Signing, AFailedSignatureFetchesTheTriesThatAreLeft) {
  Fake().codes = {{"P7Sign", {0xE0000056}}};
  Fake().pinRetryTimes = 4;
  EXPECT_EQ(m_toolkit.P7Sign("abc", FALSE, FALSE, TRUE), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000056u);
  EXPECT_EQ(m_toolkit.RetryTimes, 4);
}

TEST_F(Pkcs7Signing, WhatCannotBeSignedIsRefused) {
  const std::tuple<const char*, BOOL, ULONG> cases[] = {
      {nullptr, FALSE, 0xE0000003}, {"", FALSE, 0xE000000B}, {"====", TRUE, 0xE0000003}};
  for (const auto& [data, isBase64, code] : cases) {
    EXPECT_EQ(m_toolkit.P7Sign(data, isBase64, FALSE, TRUE), FALSE);
    EXPECT_EQ(m_toolkit.m_LastError, code);
    EXPECT_EQ(m_toolkit.P7SignForManager(data, isBase64, FALSE, TRUE), ULONG(FALSE));
    EXPECT_EQ(m_toolkit.m_LastError, code);
    EXPECT_EQ(m_toolkit.P7SignFromP1(data, isBase64, FALSE), FALSE);
    EXPECT_EQ(m_toolkit.m_LastError, code);
  }
  EXPECT_THAT(Fake().calls, IsEmpty());
}

TEST_F(Pkcs7Signing, AnEmptySignatureIsAFailure) {
  Fake().p7Signature.clear();
  EXPECT_EQ(m_toolkit.P7Sign("abc", FALSE, FALSE, TRUE), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000001u);
}

TEST_F(Pkcs7Signing, WithoutADigestNothingIsSigned) {
  FakeCert cert;
  cert.rsaHash = 0;
  Fake().certs = {cert};
  EXPECT_EQ(m_toolkit.P7Sign("abc", FALSE, FALSE, TRUE), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000066u);
}

TEST_F(Pkcs7Signing, OfMultiByteTextOnlyTheFirstBytesAreSigned) {
  EXPECT_EQ(m_toolkit.P7Sign("张三", FALSE, FALSE, TRUE), TRUE);
  EXPECT_EQ(Call("P7Sign"), "P7Sign(01, 3, 0, 1, \\xE5\\xBC)");
}

// --- without the dialog ---

TEST_F(Pkcs7Signing, TheChosenCertificateSignsWithTheGivenPin) {
  Choose(FakeCert());
  m_toolkit.SetPinCode("密1");
  m_toolkit.AddFilter(2, "CN");
  m_toolkit.m_LastError = 5;
  EXPECT_EQ(m_toolkit.P7SignForManager("abc", FALSE, TRUE, FALSE), ULONG(TRUE));
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
  EXPECT_STREQ(m_toolkit.m_P7SignResultBase64, kSignature);
  EXPECT_THAT(Fake().TakeCalls(), ElementsAre("CreateDeviceManagerInstance()", kAddKeys,
                                              "Initialize(loader)", "SetPinCode(2, \\u5BC61, 01)",
                                              "P7Sign(01, 3, 1, 0, abc)", "SetPinCode(2, , 01)"));
  EXPECT_STREQ(m_toolkit.m_szUserPinCode, L"密1");
}

TEST_F(Pkcs7Signing, WithoutAChoiceNoDialogIsShown) {
  EXPECT_EQ(m_toolkit.P7SignForManager("abc", FALSE, FALSE, TRUE), ULONG(FALSE));
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000078u);
  EXPECT_THAT(Fake().TakeCalls(),
              ElementsAre("CreateDeviceManagerInstance()", kAddKeys, "Initialize(loader)"));
}

TEST_F(Pkcs7Signing, TheFirstOfSeveralChoicesSigns) {
  FakeCert second;
  second.serial = L"02";
  Choose(FakeCert());
  Choose(second);
  EXPECT_EQ(m_toolkit.P7SignForManager("abc", FALSE, FALSE, TRUE), ULONG(TRUE));
  EXPECT_EQ(Call("P7Sign"), "P7Sign(01, 3, 0, 1, abc)");
}

TEST_F(Pkcs7Signing, ARefusedPinEndsIt) {
  Choose(FakeCert());
  Fake().codes = {{"SetPinCode", {0xE0000059}}};
  EXPECT_EQ(m_toolkit.P7SignForManager("abc", FALSE, FALSE, TRUE), ULONG(FALSE));
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000059u);
  EXPECT_THAT(Fake().TakeCalls().back(), StartsWith("SetPinCode"));
}

TEST_F(Pkcs7Signing, TheResultOfForgettingThePinIsIgnored) {
  Choose(FakeCert());
  Fake().codes = {{"SetPinCode", {0, 0xE0000059}}};
  EXPECT_EQ(m_toolkit.P7SignForManager("abc", FALSE, FALSE, TRUE), ULONG(TRUE));
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
}

TEST_F(Pkcs7Signing, AfterAFailureThePinStaysInTheDevice) {
  Choose(FakeCert());
  m_toolkit.SetPinCode("1");
  Fake().codes = {{"P7Sign", {0xE0000056}}};
  Fake().pinRetryTimes = 2;
  EXPECT_EQ(m_toolkit.P7SignForManager("abc", FALSE, FALSE, TRUE), ULONG(FALSE));
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000056u);
  EXPECT_EQ(m_toolkit.RetryTimes, 2);
  EXPECT_THAT(Fake().TakeCalls(), Not(Contains("SetPinCode(2, , 01)")));
}

TEST_F(Pkcs7Signing, AfterAnEmptySignatureThePinStaysInTheDevice) {
  Choose(FakeCert());
  Fake().p7Signature.clear();
  m_toolkit.SetPinCode("1");
  EXPECT_EQ(m_toolkit.P7SignForManager("abc", FALSE, FALSE, TRUE), ULONG(FALSE));
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000001u);
  EXPECT_THAT(Fake().TakeCalls(), Not(Contains("SetPinCode(2, , 01)")));
}

TEST_F(Pkcs7Signing, WithoutADigestThePinIsNotGiven) {
  FakeCert cert;
  cert.asymmAlg = 0;
  Choose(cert);
  EXPECT_EQ(m_toolkit.P7SignForManager("abc", FALSE, FALSE, TRUE), ULONG(FALSE));
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000066u);
  EXPECT_EQ(Call("SetPinCode"), "");
}

TEST_F(Pkcs7Signing, WithoutTheDialogFailuresOfTheManagerArePassedOn) {
  Choose(FakeCert());
  for (const char* operation : {"AddKeyEx", "Initialize"}) {
    Fake().codes = {{operation, {0xE0000042}}};
    EXPECT_EQ(m_toolkit.P7SignForManager("abc", FALSE, FALSE, TRUE), ULONG(FALSE));
    EXPECT_EQ(m_toolkit.m_LastError, 0xE0000042u);
    EXPECT_THAT(Fake().TakeCalls().back(), StartsWith(operation));
  }
}

// --- wrapping PKCS#1 ---

TEST_F(Pkcs7Signing, WrapsAPkcs1SignatureOfTheSameData) {
  m_toolkit.m_LastError = 5;
  EXPECT_EQ(m_toolkit.P7SignFromP1("abc", FALSE, TRUE), TRUE);
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
  EXPECT_STREQ(m_toolkit.m_P1SignResultBase64, L"UDEtU0lHTkFUVVJF");
  EXPECT_STREQ(m_toolkit.m_P7SignResultBase64, kWrapped);
  EXPECT_THAT(
      Fake().TakeCalls(),
      ElementsAre("CreateDeviceManagerInstance()", kAddKeys, "Initialize(loader)",
                  "CreateCertUIInstance()", std::string("GetCertList(") + kSigningFilters + ")",
                  "EnableSingleCertSkipUI(0)", "DisplayUI(0, 1 shown)", "SetForcePinDialog(0)",
                  "P1Sign(01, 3, abc)", "CreateAuxClassInstance()",
                  "AssembleP1DataToP7Data(1, 3, abc, P1-SIGNATURE, CERT, size)",
                  "AssembleP1DataToP7Data(1, 3, abc, P1-SIGNATURE, CERT, result)"));
  EXPECT_EQ(Fake().liveObjects, 1);  // the queue
}

TEST_F(Pkcs7Signing, TheWrappedContentIsTheTextAsItStands) {
  EXPECT_EQ(m_toolkit.P7SignFromP1("YWJj", TRUE, FALSE), TRUE);
  EXPECT_THAT(Fake().calls, Contains("P1Sign(01, 3, abc)"));
  EXPECT_THAT(Fake().calls,
              Contains("AssembleP1DataToP7Data(0, 3, YWJj, P1-SIGNATURE, CERT, result)"));
  Fake().TakeCalls();
  EXPECT_EQ(m_toolkit.P7SignFromP1("张", FALSE, FALSE), TRUE);
  EXPECT_THAT(Fake().calls, Contains("P1Sign(01, 3, \\xE5)"));
  EXPECT_THAT(Fake().calls, Contains("AssembleP1DataToP7Data(0, 3, \\xE5\\xBC\\xA0, "
                                     "P1-SIGNATURE, CERT, result)"));
}

TEST_F(Pkcs7Signing, AFailedPkcs1SignatureForgetsTheEarlierResult) {
  ASSERT_EQ(m_toolkit.P7SignFromP1("abc", FALSE, FALSE), TRUE);
  Fake().codes = {{"P1Sign", {0xE0000056}}};
  EXPECT_EQ(m_toolkit.P7SignFromP1("abc", FALSE, FALSE), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000056u);
  EXPECT_TRUE(m_toolkit.m_P7SignResultBase64.IsEmpty());
  EXPECT_STREQ(m_toolkit.m_P1SignResultBase64, L"UDEtU0lHTkFUVVJF");
}

TEST_F(Pkcs7Signing, NullDataLeavesTheEarlierResult) {
  ASSERT_EQ(m_toolkit.P7SignFromP1("abc", FALSE, FALSE), TRUE);
  EXPECT_EQ(m_toolkit.P7SignFromP1(nullptr, FALSE, FALSE), FALSE);
  EXPECT_STREQ(m_toolkit.m_P7SignResultBase64, kWrapped);
}

// The host sees a failure and no code.
TEST_F(Pkcs7Signing, AFailedWrappingLeavesNoCode) {
  ASSERT_EQ(m_toolkit.P7SignFromP1("abc", FALSE, FALSE), TRUE);
  const std::vector<unsigned long> answers[] = {{0xE0000029}, {0, 0xE0000029}};
  for (const std::vector<unsigned long>& codes : answers) {
    Fake().codes = {{"AssembleP1DataToP7Data", codes}};
    m_toolkit.m_LastError = 5;
    EXPECT_EQ(m_toolkit.P7SignFromP1("abc", FALSE, FALSE), FALSE);
    EXPECT_EQ(m_toolkit.m_LastError, 0u);
    EXPECT_STREQ(m_toolkit.m_P7SignResultBase64, kWrapped);
  }
}

TEST_F(Pkcs7Signing, AWrappingMayBeSmallerThanItWasSaidToBe) {
  Fake().wrappedSize = 1ul << 30;
  const long before = PeakKilobytes();
  EXPECT_EQ(m_toolkit.P7SignFromP1("abc", FALSE, FALSE), TRUE);
  EXPECT_STREQ(m_toolkit.m_P7SignResultBase64, kWrapped);
  EXPECT_LT(PeakKilobytes(), before + (1 << 19));  // what is not used takes no memory
}

TEST_F(Pkcs7Signing, AWrappingOfAnImpossibleSizeFailsWithoutACode) {
  ASSERT_EQ(m_toolkit.P7SignFromP1("abc", FALSE, FALSE), TRUE);
  for (const unsigned long size : {0ul, 7ul, ~0ul}) {
    Fake().wrappedSize = size;
    EXPECT_EQ(m_toolkit.P7SignFromP1("abc", FALSE, FALSE), FALSE) << size;
    EXPECT_EQ(m_toolkit.m_LastError, 0u);
    EXPECT_STREQ(m_toolkit.m_P7SignResultBase64, kWrapped);
  }
}

TEST_F(Pkcs7Signing, WithoutConversionsNothingIsWrapped) {
  ASSERT_EQ(m_toolkit.P7SignFromP1("abc", FALSE, FALSE), TRUE);
  SwitchTo("gives_no_aux_class");
  EXPECT_EQ(m_toolkit.P7SignFromP1("abc", FALSE, FALSE), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE000000Du);
  EXPECT_STREQ(m_toolkit.m_P7SignResultBase64, kWrapped);
}

TEST_F(Pkcs7Signing, WithoutAManagerOrADialogNothingIsSigned) {
  Choose(FakeCert());
  SwitchTo("gives_no_dialog");
  EXPECT_EQ(m_toolkit.P7Sign("abc", FALSE, FALSE, TRUE), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE000000Du);
  SwitchTo("gives_no_device_manager");
  EXPECT_EQ(m_toolkit.P7Sign("abc", FALSE, FALSE, TRUE), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE000000Du);
  EXPECT_EQ(m_toolkit.P7SignForManager("abc", FALSE, FALSE, TRUE), ULONG(FALSE));
  EXPECT_EQ(m_toolkit.m_LastError, 0xE000000Du);
}

// --- results ---

TEST_F(Pkcs7Signing, OneResultIsSharedByAllWays) {
  m_toolkit.P7Sign("abc", FALSE, FALSE, TRUE);
  const auto lastError = [&] { return m_toolkit.m_LastError; };
  ExpectCopiedOut(
      [&](char* out, int* length) { return m_toolkit.GetP7SignFromP1Result(out, length) != FALSE; },
      lastError, "UDctU0lHTkFUVVJF");
  m_toolkit.P7SignFromP1("abc", FALSE, FALSE);
  ExpectCopiedOut(
      [&](char* out, int* length) { return m_toolkit.GetP7SignResult(out, length) != FALSE; },
      lastError, "UDEtSU4tUDc=");
}

TEST_F(Pkcs7Signing, WithoutAResultTheTwoReadersHaveTheirOwnCodes) {
  int length = 5;
  EXPECT_EQ(m_toolkit.GetP7SignResult(nullptr, &length), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 9u);
  EXPECT_EQ(m_toolkit.GetP7SignFromP1Result(nullptr, &length), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 10u);
  EXPECT_EQ(length, 5);
}

TEST_F(Pkcs7Signing, TheVersionIsEmpty) {
  char text[4] = "#";
  int length = 4;
  m_toolkit.m_LastError = 5;
  EXPECT_EQ(m_toolkit.GetSignVersion(text, &length), TRUE);
  EXPECT_EQ(length, 0);
  EXPECT_STREQ(text, "#");
  EXPECT_EQ(m_toolkit.m_LastError, 5u);
  length = 4;
  EXPECT_EQ(m_toolkit.GetSignVersion(nullptr, &length), TRUE);
  EXPECT_EQ(length, 0);
}

using Pkcs7SigningBefore = NoSession;

TEST_F(Pkcs7SigningBefore, InitialisationThereIsNoLoader) {
  EXPECT_EQ(m_toolkit.P7Sign("abc", FALSE, FALSE, TRUE), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE000000Bu);
  EXPECT_EQ(m_toolkit.P7SignForManager("abc", FALSE, FALSE, TRUE), ULONG(FALSE));
  EXPECT_EQ(m_toolkit.m_LastError, 0xE000000Bu);
  m_toolkit.m_P7SignResultBase64 = L"before";
  EXPECT_EQ(m_toolkit.P7SignFromP1("abc", FALSE, TRUE), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE000000Bu);
  EXPECT_TRUE(m_toolkit.m_P7SignResultBase64.IsEmpty());
}

}  // namespace
