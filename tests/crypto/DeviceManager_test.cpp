// The device manager through the factories of the library, as a host drives it.
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>

#include "Library.h"

using keymaker::Bytes;
using testing::ElementsAre;

namespace {

const char kPin[] = "12345678";
const Bytes kData = {'a', 'b', 'c'};

class DeviceManager : public testing::Test {
 protected:
  void SetUp() override {
    keymaker::Request request;
    request.serial = "0A1B";
    m_rsa = keymaker::Make(request);
    keymaker::WriteFile(m_store / "张三.p12", keymaker::Pkcs12(m_rsa, kPin));
    request.kind = keymaker::Kind::kSm2;
    request.serial = "C0FFEE";
    request.subject = {{"C", "CN"}, {"O", "测试机构"}, {"CN", "李四"}};
    m_sm2 = keymaker::Make(request);
    keymaker::WriteFile(m_store / "李四.p12", keymaker::Pkcs12(m_sm2, kPin));
    m_manager = ManagerOf(m_library, {KeyFamily(m_store.path())});
  }

  tag_VEL_CERT_INFO Certificate(const wchar_t* serial) {
    const auto found = CertificatesOf(m_manager, {{VEL_CERT_FILTER_SUBJECT_SN, serial}});
    EXPECT_EQ(found.size(), 1u);
    return found.empty() ? tag_VEL_CERT_INFO() : found[0];
  }
  tag_VEL_CERT_INFO Rsa() { return Certificate(L"0A1B"); }
  tag_VEL_CERT_INFO Sm2() { return Certificate(L"C0FFEE"); }

  ULONG Pin(VEL_PIN_CODE_OPER_TYPE operation, const char* serial, const char* pin = nullptr,
            const char* newPin = nullptr, VEL_PIN_INFO* info = nullptr) {
    return m_manager->KeyPinCodeHandleByCertSN(operation, serial, VEL_PIN_CODE_TYPE_USER, pin,
                                               newPin, info);
  }
  ULONG LogIn(const char* serial, const char* pin) {
    return Pin(VEL_PIN_CODE_OPER_TYPE_LOGIN, serial, pin);
  }
  ULONG GivePin(tag_VEL_CERT_INFO certificate, std::wstring pin) {
    return m_manager->SetPinCode(VEL_PIN_CODE_TYPE_USER, pin.data(), &certificate);
  }
  ULONG Sign(tag_VEL_CERT_INFO certificate, VEL_HASH_ALG hash, CSmartBuffer* signature,
             Bytes data = kData) {
    return m_manager->P1Sign(&certificate, hash, data.data(), data.size(), signature);
  }
  unsigned TriesLeft(const char* serial) {
    VEL_PIN_INFO info = {};
    EXPECT_EQ(Pin(VEL_PIN_CODE_OPER_TYPE_GET_PIN_INFO, serial, nullptr, nullptr, &info), 0u);
    return info.RemainRetryCount;
  }

  Library m_library;
  keymaker::TemporaryFolder m_store;
  keymaker::Identity m_rsa, m_sm2;
  CSmartObjPtr<IVELDeviceManager> m_manager;
};

}  // namespace

TEST_F(DeviceManager, ListsEveryCertificateOfTheFolderInTheOrderOfTheNames) {
  std::vector<std::wstring> serials;
  for (const auto& certificate : CertificatesOf(m_manager)) {
    serials.push_back(Text(certificate.SerialNumber));
  }
  EXPECT_THAT(serials, ElementsAre(L"0A1B", L"C0FFEE"));
}

TEST_F(DeviceManager, RecordsSayWhatTheKeyFamilyAndTheDeviceAdd) {
  tag_VEL_KEY_INFO_EX family = KeyFamily(m_store.path());
  family.RSAHashALg = VEL_HASH_ALG_SHA1;
  m_manager = ManagerOf(m_library, {family});
  const tag_VEL_CERT_INFO record = Rsa();
  EXPECT_EQ(record.CertKeyStatus, VEL_CERT_HAVE_CERT_AND_KEYPAIR);
  EXPECT_EQ(record.AsymmAlg, VEL_ASYMM_ALG_RSA);
  EXPECT_EQ(record.RSAHashALg, VEL_HASH_ALG_SHA1);
  EXPECT_EQ(record.SM2HashALg, VEL_HASH_ALG_SM3) << "the default where the family says nothing";
  EXPECT_EQ(record.CryptoInterfaceType, VEL_CRYPTO_INTERFACE_TYPE_CSP);
  EXPECT_EQ(Text(record.ContainerName), L"张三.p12");
  EXPECT_EQ(Text(record.UserPin), L"");
}

TEST_F(DeviceManager, LoginKeepsTheKeyUsableUntilLogout) {
  CSmartBuffer signature;
  EXPECT_EQ(Sign(Rsa(), VEL_HASH_ALG_SHA256, &signature), 0xE000005Au);
  ASSERT_EQ(LogIn("0A1B", kPin), 0u);
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(Sign(Rsa(), VEL_HASH_ALG_SHA256, &signature), 0u);
    EXPECT_TRUE(keymaker::Verifies(m_rsa.key.get(), "SHA256", kData, BytesOf(signature)));
  }
  EXPECT_EQ(Pin(VEL_PIN_CODE_OPER_TYPE_LOGOUT, "0A1B"), 0u);
  EXPECT_EQ(Sign(Rsa(), VEL_HASH_ALG_SHA256, &signature), 0xE000005Au);
}

TEST_F(DeviceManager, LoginOfOneManagerServesTheOthersOfTheProcess) {
  ASSERT_EQ(LogIn("C0FFEE", kPin), 0u);
  const tag_VEL_CERT_INFO certificate = Sm2();
  m_manager = ManagerOf(m_library, {KeyFamily(m_store.path())});
  CSmartBuffer signature;
  ASSERT_EQ(Sign(certificate, VEL_HASH_ALG_SM3, &signature), 0u);
  EXPECT_TRUE(keymaker::Verifies(m_sm2.key.get(), "SM3", kData, BytesOf(signature)));
}

TEST_F(DeviceManager, ReleaseOfTheLastObjectEndsTheLogins) {
  const tag_VEL_CERT_INFO certificate = Rsa();
  ASSERT_EQ(LogIn("0A1B", kPin), 0u);
  m_manager.Release();
  m_manager = ManagerOf(m_library, {KeyFamily(m_store.path())});
  CSmartBuffer signature;
  EXPECT_EQ(Sign(certificate, VEL_HASH_ALG_SHA256, &signature), 0xE000005Au);
}

TEST_F(DeviceManager, AGivenPinServesOneSignature) {
  ASSERT_EQ(GivePin(Sm2(), L"12345678"), 0u);
  CSmartBuffer signature;
  ASSERT_EQ(Sign(Sm2(), VEL_HASH_ALG_SM3, &signature), 0u);
  EXPECT_TRUE(keymaker::Verifies(m_sm2.key.get(), "SM3", kData, BytesOf(signature)));
  EXPECT_EQ(Sign(Sm2(), VEL_HASH_ALG_SM3, &signature), 0xE000005Au);
}

TEST_F(DeviceManager, AGivenWrongPinIsTriedOnce) {
  ASSERT_EQ(GivePin(Rsa(), L"87654321"), 0u);
  CSmartBuffer signature;
  EXPECT_EQ(Sign(Rsa(), VEL_HASH_ALG_SHA256, &signature), 0xE0000056u);
  EXPECT_EQ(m_manager->GetPinRetryTimes(), 9u);
  EXPECT_EQ(Sign(Rsa(), VEL_HASH_ALG_SHA256, &signature), 0xE000005Au);
  EXPECT_EQ(TriesLeft("0A1B"), 9u);
}

TEST_F(DeviceManager, AnEmptyPinForgetsTheGivenOne) {
  ASSERT_EQ(GivePin(Rsa(), L"12345678"), 0u);
  ASSERT_EQ(GivePin(Rsa(), L""), 0u);
  CSmartBuffer signature;
  EXPECT_EQ(Sign(Rsa(), VEL_HASH_ALG_SHA256, &signature), 0xE000005Au);
}

TEST_F(DeviceManager, ForcingTheDialogAsksEvenWhenLoggedIn) {
  ASSERT_EQ(LogIn("0A1B", kPin), 0u);
  ASSERT_EQ(m_manager->SetForcePinDialog(TRUE), 0u);
  CSmartBuffer signature;
  EXPECT_EQ(Sign(Rsa(), VEL_HASH_ALG_SHA256, &signature), 0xE000005Au);
  ASSERT_EQ(m_manager->SetForcePinDialog(FALSE), 0u);
  EXPECT_EQ(Sign(Rsa(), VEL_HASH_ALG_SHA256, &signature), 0u);
}

TEST_F(DeviceManager, TenWrongPinsLockTheKeyAndOnlyThatOne) {
  for (unsigned left = 9; left > 0; --left) {
    ASSERT_EQ(LogIn("0A1B", "wrong pin"), 0xE0000056u);
    ASSERT_EQ(m_manager->GetPinRetryTimes(), left);
  }
  EXPECT_EQ(LogIn("0A1B", "wrong pin"), 0xE0000057u) << "the try that locks says so";
  EXPECT_EQ(LogIn("0A1B", kPin), 0xE0000057u);
  EXPECT_EQ(m_manager->GetPinRetryTimes(), 0u);
  EXPECT_EQ(LogIn("C0FFEE", kPin), 0u);
}

TEST_F(DeviceManager, ARightPinGivesAllTriesBack) {
  ASSERT_EQ(LogIn("C0FFEE", "wrong pin"), 0xE0000056u);
  ASSERT_EQ(TriesLeft("C0FFEE"), 9u);
  ASSERT_EQ(LogIn("C0FFEE", kPin), 0u);
  EXPECT_EQ(TriesLeft("C0FFEE"), 10u);
}

TEST_F(DeviceManager, PinsOfImpossibleLengthSpendNoTry) {
  for (const std::string& pin : {std::string("123"), std::string(65, '1')}) {
    EXPECT_EQ(LogIn("0A1B", pin.c_str()), 0xE0000059u);
    EXPECT_EQ(Pin(VEL_PIN_CODE_OPER_TYPE_CHANGE_PIN, "0A1B", pin.c_str(), kPin), 0xE0000059u);
    EXPECT_EQ(Pin(VEL_PIN_CODE_OPER_TYPE_CHANGE_PIN, "0A1B", kPin, pin.c_str()), 0xE0000059u);
  }
  EXPECT_EQ(TriesLeft("0A1B"), 10u);
}

TEST_F(DeviceManager, PinInformationTellsLengthsAndTries) {
  VEL_PIN_INFO info = {};
  ASSERT_EQ(Pin(VEL_PIN_CODE_OPER_TYPE_LOGIN, "0A1B", "wrong pin", nullptr, &info), 0xE0000056u);
  EXPECT_EQ(info.PinCodeType, VEL_PIN_CODE_TYPE_USER);
  EXPECT_EQ(info.PinMinLen, 4);
  EXPECT_EQ(info.PinMaxLen, 64);
  EXPECT_EQ(info.MaxRetryCount, 10);
  EXPECT_EQ(info.RemainRetryCount, 9);
  info = {};
  ASSERT_EQ(Pin(VEL_PIN_CODE_OPER_TYPE_GET_PIN_INFO, "0A1B", nullptr, nullptr, &info), 0u);
  EXPECT_EQ(info.PinMaxLen, 64);
  EXPECT_EQ(info.RemainRetryCount, 9);
}

TEST_F(DeviceManager, SerialNumbersOfPinOperationsIgnoreCaseAndLeadingZeros) {
  EXPECT_EQ(LogIn("000a1b", kPin), 0u);
  EXPECT_EQ(LogIn("c0ffee", kPin), 0u);
  EXPECT_EQ(LogIn("BEEF", kPin), 0xE0000061u);
  EXPECT_EQ(LogIn("", kPin), 0xE0000061u);
  EXPECT_EQ(LogIn(nullptr, kPin), 0xE0000003u);
}

TEST_F(DeviceManager, OnlyUserPinsExist) {
  VEL_PIN_INFO info = {};
  EXPECT_EQ(m_manager->KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE_LOGIN, "0A1B",
                                                VEL_PIN_CODE_TYPE_ADMIN, kPin, nullptr, &info),
            0xE000005Fu);
  EXPECT_EQ(Pin(VEL_PIN_CODE_OPER_TYPE_UNKNOWN, "0A1B"), 0xE0000003u);
  EXPECT_EQ(LogIn("0A1B", nullptr), 0xE000005Au);
}

TEST_F(DeviceManager, ChangedPinReplacesTheOldOneInTheFile) {
  for (const char* serial : {"0A1B", "C0FFEE"}) {
    ASSERT_EQ(Pin(VEL_PIN_CODE_OPER_TYPE_CHANGE_PIN, serial, kPin, "新的口令"), 0u);
    EXPECT_EQ(LogIn(serial, kPin), 0xE0000056u);
    EXPECT_EQ(LogIn(serial, "新的口令"), 0u);
  }
  const Bytes file = keymaker::ReadFile(m_store / "李四.p12");
  const auto key = keymaker::OpenPkcs12(file, "新的口令");
  ASSERT_NE(key, nullptr) << "OpenSSL opens it too";
  EXPECT_EQ(EVP_PKEY_eq(key.get(), m_sm2.key.get()), 1);
  EXPECT_EQ(CertificatesOf(m_manager).size(), 2u);
}

TEST_F(DeviceManager, ChangingThePinWithAWrongOneSpendsATryAndChangesNothing) {
  const Bytes before = keymaker::ReadFile(m_store / "张三.p12");
  EXPECT_EQ(Pin(VEL_PIN_CODE_OPER_TYPE_CHANGE_PIN, "0A1B", "wrong pin", "87654321"), 0xE0000056u);
  EXPECT_EQ(TriesLeft("0A1B"), 9u);
  EXPECT_EQ(keymaker::ReadFile(m_store / "张三.p12"), before);
}

TEST_F(DeviceManager, APinChangeKeepsTheLogin) {
  ASSERT_EQ(LogIn("0A1B", kPin), 0u);
  ASSERT_EQ(Pin(VEL_PIN_CODE_OPER_TYPE_CHANGE_PIN, "0A1B", kPin, "87654321"), 0u);
  CSmartBuffer signature;
  EXPECT_EQ(Sign(Rsa(), VEL_HASH_ALG_SHA256, &signature), 0u);
}

TEST_F(DeviceManager, RemovalOfTheFileEndsTheLogin) {
  ASSERT_EQ(LogIn("0A1B", kPin), 0u);
  tag_VEL_CERT_INFO certificate = Rsa();
  const Bytes file = keymaker::ReadFile(m_store / "张三.p12");
  std::filesystem::remove(m_store / "张三.p12");
  CSmartBuffer signature;
  EXPECT_EQ(Sign(certificate, VEL_HASH_ALG_SHA256, &signature), 0xE0000061u);
  EXPECT_EQ(CertificatesOf(m_manager).size(), 1u);
  keymaker::WriteFile(m_store / "张三.p12", file);
  EXPECT_EQ(Sign(certificate, VEL_HASH_ALG_SHA256, &signature), 0xE000005Au);
}

TEST_F(DeviceManager, AKeyStoreRemovedBetweenTwoCallsIsAMissingDevice) {
  tag_VEL_CERT_INFO certificate = Rsa();
  ASSERT_EQ(LogIn("0A1B", kPin), 0u);
  std::filesystem::remove_all(m_store.path());
  CSmartBuffer signature;
  EXPECT_EQ(Sign(certificate, VEL_HASH_ALG_SHA256, &signature), 0xE0000043u);
  EXPECT_EQ(LogIn("0A1B", kPin), 0xE0000043u);
  EXPECT_TRUE(CertificatesOf(m_manager).empty());
}

TEST_F(DeviceManager, AFamilyThatCannotBeOpenedHidesNoOther) {
  m_manager = ManagerOf(
      m_library, {KeyFamily("/nowhere/at/all"), KeyFamily("none.so", VEL_CRYPTO_INTERFACE_TYPE_P11),
                  KeyFamily("none.so", VEL_CRYPTO_INTERFACE_TYPE_SKF),
                  KeyFamily("", VEL_CRYPTO_INTERFACE_TYPE_PM), KeyFamily(m_store.path())});
  EXPECT_EQ(CertificatesOf(m_manager).size(), 2u);
  m_manager = ManagerOf(m_library, {KeyFamily("none.so", VEL_CRYPTO_INTERFACE_TYPE_P11_FIN56)});
  EXPECT_TRUE(CertificatesOf(m_manager).empty());
}

TEST_F(DeviceManager, InitializeRejectsFamiliesOfUnknownKindsAlone) {
  CSmartList<tag_VEL_KEY_INFO_EX> keys;
  CSmartObjPtr<IVELDeviceManager> manager = m_library.NewManager();
  for (const auto type : {VEL_CRYPTO_INTERFACE_TYPE_PM, VEL_CRYPTO_INTERFACE_TYPE_UNKNOWN}) {
    keys.AddItem(KeyFamily("", type));
  }
  ASSERT_EQ(manager->AddKeyEx(&keys, TRUE), 0u);
  EXPECT_EQ(manager->Initialize(nullptr), 0xE0020005u);
}

TEST_F(DeviceManager, AddingWithoutClearingKeepsWhatWasThereAndTakesNothingTwice) {
  CSmartList<tag_VEL_KEY_INFO_EX> keys;
  keys.AddItem(KeyFamily(m_store.path()));
  keys.AddItem(KeyFamily(m_store.path() + "/"));
  ASSERT_EQ(m_manager->AddKeyEx(&keys, FALSE), 0u);
  EXPECT_EQ(CertificatesOf(m_manager).size(), 4u) << "another name is another family";
  ASSERT_EQ(m_manager->AddKeyEx(&keys, TRUE), 0u);
  keys.Clear();
  ASSERT_EQ(m_manager->AddKeyEx(&keys, TRUE), 0u);
  EXPECT_TRUE(CertificatesOf(m_manager).empty());
}

TEST_F(DeviceManager, NullPointersAreInvalidParameters) {
  tag_VEL_CERT_INFO certificate = Rsa();
  CSmartBuffer signature;
  Bytes data = kData;
  EXPECT_EQ(m_manager->AddKeyEx(nullptr, TRUE), 0xE0000003u);
  EXPECT_EQ(m_manager->GetCertList(nullptr, nullptr), 0xE0000003u);
  EXPECT_EQ(m_manager->P1Sign(nullptr, VEL_HASH_ALG_SM3, data.data(), 3, &signature), 0xE0000003u);
  EXPECT_EQ(m_manager->P1Sign(&certificate, VEL_HASH_ALG_SHA1, nullptr, 3, &signature),
            0xE0000003u);
  EXPECT_EQ(m_manager->P1Sign(&certificate, VEL_HASH_ALG_SHA1, data.data(), 3, nullptr),
            0xE0000003u);
  EXPECT_EQ(m_manager->P7Sign(&certificate, VEL_HASH_ALG_SHA1, TRUE, TRUE, data.data(), 3, nullptr),
            0xE0000003u);
  EXPECT_EQ(m_manager->SetPinCode(VEL_PIN_CODE_TYPE_USER, nullptr, nullptr), 0xE0000003u);
}

TEST_F(DeviceManager, NothingWorksBeforeInitialize) {
  CSmartObjPtr<IVELDeviceManager> manager = m_library.NewManager();
  CSmartList<tag_VEL_CERT_INFO> certificates;
  EXPECT_EQ(manager->GetCertList(nullptr, &certificates), 0xE0000006u);
  tag_VEL_CERT_INFO certificate;
  CSmartBuffer signature;
  Bytes data = kData;
  EXPECT_EQ(manager->P1Sign(&certificate, VEL_HASH_ALG_SM3, data.data(), 3, &signature),
            0xE0000006u);
}

TEST_F(DeviceManager, DigestsThatTheKeyCannotSignAreInvalidMechanisms) {
  ASSERT_EQ(LogIn("0A1B", kPin), 0u);
  ASSERT_EQ(LogIn("C0FFEE", kPin), 0u);
  CSmartBuffer signature;
  for (const VEL_HASH_ALG hash : {VEL_HASH_ALG_UNKNOWN, VEL_HASH_ALG_MD2}) {
    EXPECT_EQ(Sign(Rsa(), hash, &signature), 0xE0000029u);
  }
  for (const VEL_HASH_ALG hash : {VEL_HASH_ALG_UNKNOWN, VEL_HASH_ALG_MD2, VEL_HASH_ALG_MD5,
                                  VEL_HASH_ALG_SHA1, VEL_HASH_ALG_SHA256, VEL_HASH_ALG_SHA512}) {
    EXPECT_EQ(Sign(Sm2(), hash, &signature), 0xE0000029u);
  }
  EXPECT_EQ(signature.GetSize(), 0u);
}

TEST_F(DeviceManager, RsaSignsWithEveryDigestThatOpenSslHas) {
  ASSERT_EQ(LogIn("0A1B", kPin), 0u);
  const std::pair<VEL_HASH_ALG, const char*> digests[] = {{VEL_HASH_ALG_MD5, "MD5"},
                                                          {VEL_HASH_ALG_SHA1, "SHA1"},
                                                          {VEL_HASH_ALG_SHA256, "SHA256"},
                                                          {VEL_HASH_ALG_SHA512, "SHA512"}};
  for (const auto& digest : digests) {
    CSmartBuffer signature;
    ASSERT_EQ(Sign(Rsa(), digest.first, &signature), 0u) << digest.second;
    EXPECT_TRUE(keymaker::Verifies(m_rsa.key.get(), digest.second, kData, BytesOf(signature)))
        << digest.second;
  }
}

TEST_F(DeviceManager, SkippingTakesASingleCertificate) {
  CSmartObjPtr<IVELKeyDisplayCertUIEx> dialog = m_library.NewDialog();
  CSmartList<tag_VEL_CERT_INFO> certificates;
  CSmartList<tag_VEL_CERT_INFO> chosen;
  ASSERT_EQ(dialog->EnableSingleCertSkipUI(TRUE), 0u);
  EXPECT_EQ(dialog->DisplayUI(FALSE, &certificates, &chosen), 0u);
  EXPECT_EQ(chosen.GetCount(), 0) << "nothing to choose from";
  certificates.AddItem(Rsa());
  ASSERT_EQ(dialog->DisplayUI(FALSE, &certificates, &chosen), 0u);
  ASSERT_EQ(chosen.GetCount(), 1);
  EXPECT_TRUE(chosen[0] == certificates[0]);
  certificates.AddItem(Sm2());
  EXPECT_EQ(dialog->DisplayUI(FALSE, &certificates, &chosen), 0xE0000002u);
  certificates.RemoveItem(1);
  ASSERT_EQ(dialog->EnableSingleCertSkipUI(FALSE), 0u);
  EXPECT_EQ(dialog->DisplayUI(FALSE, &certificates, &chosen), 0xE0000002u);
  EXPECT_EQ(dialog->DisplayUI(FALSE, nullptr, &chosen), 0xE0000003u);
  EXPECT_EQ(chosen.GetCount(), 1);
}
