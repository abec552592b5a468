// Filters, lists, lookup and explicit choice of certificates.
#include "OutputBuffer.h"
#include "Session.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class CertificateSelection : public Session {
 protected:
  std::string Filters() {
    std::string text;
    for (int i = 0; i < m_toolkit.m_CertFilterList.GetCount(); ++i) {
      const tag_VEL_CERT_FILTER_ITEM& item = m_toolkit.m_CertFilterList.GetItem(i);
      const CStringA value = m_toolkit.GetUTF8StringEx(static_cast<const wchar_t*>(item.Value));
      text +=
          (i == 0 ? "" : " ") + std::to_string(item.Type) + "=" + static_cast<const char*>(value);
    }
    return text;
  }

  // Two signing certificates and one that only encrypts.
  static void PlugInThree() {
    FakeCert first, second, encryption;
    first.serial = L"A1";
    first.subject = L"CN=张三,O=一";
    second.serial = L"B2";
    second.subject = L"CN=second";
    encryption.serial = L"E3";
    encryption.keySpec = 2;
    Fake().certs = {first, encryption, second};
  }
};

TEST_F(CertificateSelection, EveryFilterTypeOfTheEnumerationIsTaken) {
  for (ULONG type = 0; type <= 12; ++type) {
    m_toolkit.m_LastError = 5;
    EXPECT_EQ(m_toolkit.AddFilter(type, "x"), TRUE) << type;
    EXPECT_EQ(m_toolkit.m_LastError, 0u);
  }
  EXPECT_EQ(Filters(), "0=x 1=x 2=x 3=x 4=x 5=x 6=x 7=x 8=x 9=x 10=x 11=x 12=x");
}

TEST_F(CertificateSelection, OtherFilterTypesAreRefused) {
  for (const ULONG type : {13ul, 65535ul, 0x100000000ul, ~0ul}) {
    EXPECT_EQ(m_toolkit.AddFilter(type, "x"), FALSE) << type;
    EXPECT_EQ(m_toolkit.m_LastError, 0xE0000003u);
  }
  EXPECT_EQ(Filters(), "");
}

TEST_F(CertificateSelection, AFilterWithoutAValueIsRefused) {
  for (const char* value : {static_cast<const char*>(nullptr), "", "\xFF\xFE"}) {
    EXPECT_EQ(m_toolkit.AddFilter(1, value), FALSE);
    EXPECT_EQ(m_toolkit.m_LastError, 0xE0000003u);
  }
  EXPECT_EQ(Filters(), "");
}

TEST_F(CertificateSelection, IssuersAccumulateInOneFilter) {
  m_toolkit.AddFilter(0, "A");
  m_toolkit.AddFilter(1, "x");
  m_toolkit.AddFilter(0, "根");
  m_toolkit.AddFilter(0, "A");
  EXPECT_EQ(Filters(), "0=A|根|A 1=x");
}

TEST_F(CertificateSelection, OtherFiltersAreNotMerged) {
  m_toolkit.AddFilter(1, "x");
  m_toolkit.AddFilter(1, "x");
  EXPECT_EQ(Filters(), "1=x 1=x");
}

TEST_F(CertificateSelection, ClearingForgetsTheFilters) {
  m_toolkit.AddFilter(1, "x");
  m_toolkit.m_LastError = 5;
  EXPECT_EQ(m_toolkit.ClearFilter(), TRUE);
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
  EXPECT_EQ(Filters(), "");
}

TEST_F(CertificateSelection, TheSingleChoiceFlagIsStoredAsGiven) {
  for (const BOOL flag : {TRUE, FALSE, 7}) {
    m_toolkit.m_LastError = 5;
    EXPECT_EQ(m_toolkit.SetChooseSingleCert(flag), TRUE);
    EXPECT_EQ(m_toolkit.m_bChooseSingleCert, flag);
    EXPECT_EQ(m_toolkit.m_LastError, 0u);
  }
}

// --- the list ---

TEST_F(CertificateSelection, TheListNamesSubjectAndSerialOfSigningCertificates) {
  PlugInThree();
  m_toolkit.AddFilter(0, "根");
  CString list = L"before";
  EXPECT_EQ(m_toolkit.GetCertInfoSet(L"|", L";", list), 0u);
  EXPECT_STREQ(list, L"CN=张三,O=一;A1|CN=second;B2");
  EXPECT_THAT(Fake().TakeCalls(),
              ElementsAre("CreateDeviceManagerInstance()", kAddKeys, "Initialize(loader)",
                          std::string("GetCertList(0=\\u6839 ") + kSigningFilters + ")"));
  EXPECT_EQ(Fake().loader, m_toolkit.m_pVelUsbKey);
  EXPECT_EQ(Filters(), "0=根");
}

TEST_F(CertificateSelection, SeparatorsMayBeLongOrEmpty) {
  PlugInThree();
  CString list;
  EXPECT_EQ(m_toolkit.GetCertInfoSet(L"<->", L"", list), 0u);
  EXPECT_STREQ(list, L"CN=张三,O=一A1<->CN=secondB2");
}

TEST_F(CertificateSelection, AListWithoutCertificatesIsAnError) {
  CString list = L"before";
  EXPECT_EQ(m_toolkit.GetCertInfoSet(L"|", L";", list), 0xE000000Eu);
  EXPECT_STREQ(list, L"");
}

// Without anything to show, the text of a certificate is empty as well.
TEST_F(CertificateSelection, AListThatReadsEmptyIsAnError) {
  FakeCert nameless;
  nameless.serial = L"";
  nameless.subject = L"";
  Fake().certs = {nameless};
  CString list;
  EXPECT_EQ(m_toolkit.GetCertInfoSet(L"|", L"", list), 0xE000000Eu);
}

TEST_F(CertificateSelection, AListThatIsNoTextIsNotReady) {
  FakeCert cert;
  cert.subject = {L'C', L'N', L'=', wchar_t(0xD800)};
  Fake().certs = {FakeCert(), cert};
  int length = 7;
  EXPECT_EQ(m_toolkit.GetCertList("|", ";", nullptr, &length), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000084u);
  EXPECT_EQ(length, 7);
}

TEST_F(CertificateSelection, FailuresOfTheManagerAreTheListsOwn) {
  PlugInThree();
  for (const char* operation : {"AddKeyEx", "Initialize", "GetCertList"}) {
    Fake().codes = {{operation, {0xA00F0204}}};
    CString list = L"before";
    EXPECT_EQ(m_toolkit.GetCertInfoSet(L"|", L";", list), 0xA00F0204u) << operation;
    EXPECT_STREQ(list, L"");
    EXPECT_THAT(Fake().TakeCalls().back(), testing::StartsWith(operation));
  }
}

TEST_F(CertificateSelection, ReadingTheListTakesTwoCallsAndOneListing) {
  PlugInThree();
  const std::string text = "CN=张三,O=一;A1|CN=second;B2";
  int length = 0;
  EXPECT_EQ(m_toolkit.GetCertList("|", ";", nullptr, &length), TRUE);
  EXPECT_EQ(length, static_cast<int>(text.size() + 1));
  Fake().TakeCalls();

  std::vector<char> buffer(text.size() + 1, '#');
  length = static_cast<int>(text.size());
  EXPECT_EQ(m_toolkit.GetCertList("|", ";", buffer.data(), &length), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 4u);
  EXPECT_EQ(length, static_cast<int>(text.size() + 1));
  EXPECT_EQ(buffer[0], '#');

  EXPECT_EQ(m_toolkit.GetCertList("|", ";", buffer.data(), &length), TRUE);
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
  EXPECT_EQ(length, static_cast<int>(text.size() + 1));
  EXPECT_EQ(std::string(buffer.data()), text);
  EXPECT_THAT(Fake().calls, IsEmpty());
}

TEST_F(CertificateSelection, CopyingTheListZeroFillsTheBufferAndForgetsTheText) {
  PlugInThree();
  int length = 0;
  m_toolkit.GetCertList("|", ";", nullptr, &length);
  std::vector<char> buffer(100, '#');
  length = 90;
  EXPECT_EQ(m_toolkit.GetCertList("|", ";", buffer.data(), &length), TRUE);
  EXPECT_EQ(length, 90);
  const size_t end = strlen(buffer.data());
  EXPECT_EQ(std::string(&buffer[end], 90 - end), std::string(90 - end, '\0'));
  EXPECT_EQ(std::string(&buffer[90], 10), std::string(10, '#'));

  // A third call copies what is left: nothing.
  buffer.assign(100, '#');
  length = 1;
  EXPECT_EQ(m_toolkit.GetCertList("|", ";", buffer.data(), &length), TRUE);
  EXPECT_EQ(length, 1);
  EXPECT_EQ(buffer[0], '\0');
  EXPECT_EQ(buffer[1], '#');
  length = 0;
  EXPECT_EQ(m_toolkit.GetCertList("|", ";", buffer.data(), &length), FALSE);
  EXPECT_EQ(length, 1);
  EXPECT_EQ(m_toolkit.m_LastError, 4u);
}

TEST_F(CertificateSelection, TheListNeedsBothSeparatorsAndALength) {
  char buffer[10];
  int length = 10;
  EXPECT_EQ(m_toolkit.GetCertList(nullptr, ";", buffer, &length), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 11u);
  EXPECT_EQ(m_toolkit.GetCertList("|", nullptr, nullptr, &length), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 11u);
  EXPECT_EQ(m_toolkit.GetCertList("|", ";", buffer, nullptr), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 11u);
  EXPECT_EQ(length, 10);
  EXPECT_THAT(Fake().calls, IsEmpty());
}

TEST_F(CertificateSelection, AFailedListingForgetsTheEarlierText) {
  PlugInThree();
  int length = 0;
  m_toolkit.GetCertList("|", ";", nullptr, &length);
  Fake().certs.clear();
  length = 7;
  EXPECT_EQ(m_toolkit.GetCertList("|", ";", nullptr, &length), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE000000Eu);
  EXPECT_EQ(length, 7);
  EXPECT_TRUE(m_toolkit.m_strCertList.IsEmpty());
}

// --- presence by serial number ---

TEST_F(CertificateSelection, PresenceIsAskedByTheSerialNumberAlone) {
  PlugInThree();
  m_toolkit.AddFilter(0, "CA");
  BOOL exists = 7;
  EXPECT_EQ(m_toolkit.CheckCertIsExist(CString(L"B2"), exists), 0u);
  EXPECT_EQ(exists, TRUE);
  EXPECT_THAT(Fake().TakeCalls(), ElementsAre("CreateDeviceManagerInstance()", "SetKeyCheckTime(1)",
                                              kAddKeys, "Initialize(loader)", "GetCertList(1=B2)"));
}

TEST_F(CertificateSelection, AnEncryptionCertificateExistsButCannotBeSet) {
  PlugInThree();
  BOOL exists = 7;
  EXPECT_EQ(m_toolkit.CheckCertIsExist(CString(L"E3"), exists), 0u);
  EXPECT_EQ(exists, TRUE);
  EXPECT_EQ(m_toolkit.SetCert(L"E3"), 0xE0000061u);
}

TEST_F(CertificateSelection, AnUnknownSerialNumberDoesNotExist) {
  PlugInThree();
  BOOL exists = 7;
  EXPECT_EQ(m_toolkit.CheckCertIsExist("no such", &exists), TRUE);
  EXPECT_EQ(exists, FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
}

TEST_F(CertificateSelection, FailuresOfTheManagerLeaveTheAnswerUntouched) {
  PlugInThree();
  for (const char* operation : {"AddKeyEx", "Initialize", "GetCertList"}) {
    Fake().codes = {{operation, {0xE0000042}}};
    BOOL exists = 7;
    EXPECT_EQ(m_toolkit.CheckCertIsExist("A1", &exists), FALSE) << operation;
    EXPECT_EQ(m_toolkit.m_LastError, 0xE0000042u);
    EXPECT_EQ(exists, 7);
  }
}

TEST_F(CertificateSelection, TheResultOfTheCheckTimeDoesNotCount) {
  PlugInThree();
  Fake().codes = {{"SetKeyCheckTime", {0xE0000008}}};
  BOOL exists = 7;
  EXPECT_EQ(m_toolkit.CheckCertIsExist("A1", &exists), TRUE);
  EXPECT_EQ(exists, TRUE);
}

TEST_F(CertificateSelection, PresenceNeedsBothPointers) {
  BOOL exists = 7;
  EXPECT_EQ(m_toolkit.CheckCertIsExist(nullptr, &exists), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 11u);
  EXPECT_EQ(m_toolkit.CheckCertIsExist("A1", static_cast<BOOL*>(nullptr)), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 11u);
  EXPECT_EQ(exists, 7);
}

// --- explicit choice ---

TEST_F(CertificateSelection, ChoosingListsWithAllFiltersAndTheSerialNumberLast) {
  PlugInThree();
  m_toolkit.AddFilter(0, "CA");
  m_toolkit.m_LastError = 5;
  EXPECT_EQ(m_toolkit.SetCert(L"B2"), 1u);
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
  EXPECT_THAT(Fake().TakeCalls(),
              ElementsAre("CreateDeviceManagerInstance()", kAddKeys, "Initialize(loader)",
                          std::string("GetCertList(0=CA ") + kSigningFilters + " 1=B2)"));
  ASSERT_EQ(m_toolkit.m_SelectCertList.GetCount(), 1);
  EXPECT_STREQ(m_toolkit.m_SelectCertList.GetItem(0).SerialNumber, L"B2");
  EXPECT_EQ(Filters(), "0=CA");
}

TEST_F(CertificateSelection, TheFirstChoiceGoesOnSigning) {
  PlugInThree();
  EXPECT_EQ(m_toolkit.SetCert(L"B2"), 1u);
  EXPECT_EQ(m_toolkit.SetCert(L"A1"), 1u);
  ASSERT_EQ(m_toolkit.m_SelectCertList.GetCount(), 2);
  EXPECT_STREQ(m_toolkit.m_SelectCertList.GetItem(0).SerialNumber, L"B2");
  EXPECT_STREQ(m_toolkit.m_SelectCertList.GetItem(1).SerialNumber, L"A1");
}

TEST_F(CertificateSelection, AnUnknownSerialNumberIsNotChosen) {
  PlugInThree();
  EXPECT_EQ(m_toolkit.SetCert(L"no such"), 0xE0000061u);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000061u);
  EXPECT_EQ(m_toolkit.m_SelectCertList.GetCount(), 0);
}

TEST_F(CertificateSelection, OnlyTheFirstOfSeveralIsChosen) {
  FakeCert twin;
  twin.subject = L"CN=twin";
  Fake().certs = {FakeCert(), twin};
  EXPECT_EQ(m_toolkit.SetCert(L"01"), 1u);
  ASSERT_EQ(m_toolkit.m_SelectCertList.GetCount(), 1);
  EXPECT_STREQ(m_toolkit.m_SelectCertList.GetItem(0).SubjectDN, L"CN=signer");
}

TEST_F(CertificateSelection, FailuresOfTheManagerAreStoredAndReturned) {
  PlugInThree();
  for (const char* operation : {"AddKeyEx", "Initialize", "GetCertList"}) {
    Fake().codes = {{operation, {0xE0000042}}};
    EXPECT_EQ(m_toolkit.SetCert(L"A1"), 0xE0000042u) << operation;
    EXPECT_EQ(m_toolkit.m_LastError, 0xE0000042u);
    EXPECT_EQ(m_toolkit.m_SelectCertList.GetCount(), 0);
  }
}

// --- the dialog's callback ---

TEST_F(CertificateSelection, RefreshingHandsTheListToTheDialog) {
  CSmartObjPtr<IVELKeyDisplayCertUIEx> dialog(m_toolkit.m_pVelUsbKey->CreateCertUIInstance());
  CSmartList<tag_VEL_CERT_INFO> certs;
  certs.AddItem(tag_VEL_CERT_INFO());
  Fake().TakeCalls();
  const PUI_RECIVE_CERTLIST_CALLBACK callback = &CVELClientTKImp::RefreshUICertList;
  IVELKeyDisplayCertUIEx* const object = dialog;
  ISmartList<tag_VEL_CERT_INFO>* const list = &certs;
  EXPECT_EQ(callback(object, list), 0u);
  EXPECT_THAT(Fake().TakeCalls(), ElementsAre("RefreshDisplayCerts(1 shown)"));
  Fake().codes = {{"RefreshDisplayCerts", {0xE0000006}}};
  EXPECT_EQ(callback(object, list), 0xE0000006u);
  EXPECT_EQ(callback(nullptr, list), 0xE0000003u);
  EXPECT_EQ(callback(object, nullptr), 0xE0000003u);
}

// --- the chosen certificate ---

TEST_F(CertificateSelection, TheChosenCertificateIsReadInBase64) {
  Choose(FakeCert());
  CString text;
  EXPECT_EQ(m_toolkit.GetSignCertBase64Ex(text), 0u);
  EXPECT_STREQ(text, L"Q0VSVA==");
  ExpectCopiedOut(
      [&](char* out, int* length) { return m_toolkit.GetSignCert(out, length) != FALSE; },
      [&] { return m_toolkit.m_LastError; }, "Q0VSVA==");
}

TEST_F(CertificateSelection, TheTypesLengthCountsItsTerminator) {
  Choose(FakeCert());
  OutputRules rules;
  rules.countsTerminator = 1;
  ExpectCopiedOut(
      [&](char* out, int* length) { return m_toolkit.GetSignCertType(out, length) != FALSE; },
      [&] { return m_toolkit.m_LastError; }, "RSA", rules);
}

TEST_F(CertificateSelection, TheTypeIsTheNameOfTheKeyAlgorithm) {
  const std::pair<int, const wchar_t*> cases[] = {
      {1, L"RSA"}, {2, L"SM2"}, {3, L"PM"}, {0, L"UNKNOWN"}, {9, L"UNKNOWN"}};
  for (const auto& [alg, name] : cases) {
    m_toolkit.m_SelectCertList.Clear();
    FakeCert cert;
    cert.asymmAlg = alg;
    Choose(cert);
    CString type;
    EXPECT_EQ(m_toolkit.GetSignCertTypeEx(type), 0u);
    EXPECT_STREQ(type, name);
  }
}

TEST_F(CertificateSelection, BeforeAChoiceThereIsNothingToRead) {
  CString text = L"before";
  EXPECT_EQ(m_toolkit.GetSignCertBase64Ex(text), 0xE0000001u);
  EXPECT_STREQ(text, L"");
  text = L"before";
  EXPECT_EQ(m_toolkit.GetSignCertTypeEx(text), 0xE0000001u);
  EXPECT_STREQ(text, L"");
  int length = 5;
  EXPECT_EQ(m_toolkit.GetSignCert(nullptr, &length), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000001u);
  m_toolkit.m_LastError = 0;
  EXPECT_EQ(m_toolkit.GetSignCertType(nullptr, &length), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000001u);
  EXPECT_EQ(length, 5);
  EXPECT_EQ(m_toolkit.GetSignCert(nullptr, nullptr), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 11u);
  EXPECT_EQ(m_toolkit.GetSignCertType(nullptr, nullptr), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 11u);
}

TEST_F(CertificateSelection, AnEmptyCertificateHasItsOwnCode) {
  FakeCert cert;
  cert.base64 = L"";
  Choose(cert);
  int length = 5;
  EXPECT_EQ(m_toolkit.GetSignCert(nullptr, &length), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 5u);
  EXPECT_EQ(length, 5);
}

// --- what the device library does not give ---

TEST_F(CertificateSelection, WithoutAManagerNothingIsListed) {
  SwitchTo("gives_no_device_manager");
  CString list = L"before";
  EXPECT_EQ(m_toolkit.GetCertInfoSet(L"|", L";", list), 0xE000000Du);
  EXPECT_STREQ(list, L"");
  int length = 0;
  EXPECT_EQ(m_toolkit.GetCertList("|", ";", nullptr, &length), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE000000Du);
  BOOL exists = 7;
  EXPECT_EQ(m_toolkit.CheckCertIsExist("01", &exists), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE000000Du);
  EXPECT_EQ(exists, 7);
}

TEST_F(CertificateSelection, WithoutAManagerAChoiceReturnsItsCodeAndStoresNone) {
  SwitchTo("gives_no_device_manager");
  m_toolkit.m_LastError = 5;
  EXPECT_EQ(m_toolkit.SetCert(L"01"), 0xE000000Du);
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
}

using CertificateSelectionBefore = NoSession;

TEST_F(CertificateSelectionBefore, InitialisationNothingIsListed) {
  CString list = L"before";
  EXPECT_EQ(m_toolkit.GetCertInfoSet(L"|", L";", list), 0xE000000Bu);
  EXPECT_STREQ(list, L"before");
  int length = 0;
  EXPECT_EQ(m_toolkit.GetCertList("|", ";", nullptr, &length), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE000000Bu);
  BOOL exists = 7;
  EXPECT_EQ(m_toolkit.CheckCertIsExist("01", &exists), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE000000Bu);
  EXPECT_EQ(exists, 7);
  EXPECT_EQ(m_toolkit.SetCert(L"01"), 0xE000000Bu);
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
}

}  // namespace
