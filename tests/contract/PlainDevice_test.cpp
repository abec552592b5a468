// The device in plain C called through the interfaces: every record crosses once in each direction.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <clocale>

#include "VELUsbKeyDll.h"

namespace {

class PlainDevice : public testing::Test {
 protected:
  void SetUp() override {
    setlocale(LC_ALL, "C.UTF-8");
    ASSERT_EQ(m_loader.LoadDll(L"libVELCrypto64.so"), 0u);
    m_transcript =
        reinterpret_cast<const char* (*)()>(dlsym(m_loader.m_hDllInstance, "PlainTranscript"));
    ASSERT_NE(m_transcript, nullptr);
    m_manager = m_loader.CreateDeviceManagerInstance();
    m_transcript();
  }

  CVELUsbKey m_loader;
  const char* (*m_transcript)() = nullptr;
  CSmartObjPtr<IVELDeviceManager> m_manager;
  CSmartList<tag_VEL_CERT_INFO> m_certs;
};

TEST_F(PlainDevice, ReadsEveryFieldOfAKey) {
  CSmartList<tag_VEL_KEY_INFO_EX> keys;
  tag_VEL_KEY_INFO_EX key;
  key.KeyInfoVersion = 0x123456789A;
  key.CryptoInterfaceType = VEL_CRYPTO_INTERFACE_TYPE_SKF;
  strcpy(key.InterfaceLibName, "libskf.so");
  key.LibVersion = 0x10;
  key.LibIs64Bit = TRUE;
  key.RSAHashALg = VEL_HASH_ALG_SHA256;
  key.SM2HashALg = VEL_HASH_ALG_SM3;
  key.Reference = 9;
  key.PVIDEnable = TRUE;
  strcpy(key.PVID, "VID_1234");
  keys.AddItem(key);
  EXPECT_EQ(m_manager->AddKeyEx(&keys, TRUE), 0u);
  EXPECT_STREQ(m_transcript(),
               "AddKeyEx 0x123456789A 101 libskf.so 16 1 4 6 9 1 VID_1234\n"
               "AddKeyEx of 1, 1\n");
}

TEST_F(PlainDevice, ReadsEveryFieldOfAnOlderKey) {
  CSmartList<tag_VEL_KEY_INFO> keys;
  tag_VEL_KEY_INFO key;
  key.Version = 5;
  key.CryptoInterfaceType = VEL_CRYPTO_INTERFACE_TYPE_P11;
  strcpy(key.InterfaceLibName, "libp11.so");
  key.LibIs64Bit = TRUE;
  key.RSAHashALg = VEL_HASH_ALG_SHA1;
  key.SM2HashALg = VEL_HASH_ALG_SM3;
  key.Reference = 4;
  keys.AddItem(key);
  EXPECT_EQ(m_manager->AddKey(&keys, FALSE), 0u);
  EXPECT_STREQ(m_transcript(), "AddKey 5 201 libp11.so 1 3 6 4\nAddKey of 1, 0\n");
}

TEST_F(PlainDevice, ReadsFilters) {
  CSmartList<tag_VEL_CERT_FILTER_ITEM> filters;
  filters.AddItem(tag_VEL_CERT_FILTER_ITEM(VEL_CERT_FILTER_ISSUER_DN, L"CN=\u6839"));
  filters.AddItem(tag_VEL_CERT_FILTER_ITEM(VEL_CERT_FILTER_TIME_VALID_TYPE, L"2"));
  EXPECT_EQ(m_manager->GetCertList(&filters, &m_certs), 0u);
  EXPECT_STREQ(m_transcript(), "GetCertList 0=CN=\u6839\nGetCertList 8=2\n");
}

TEST_F(PlainDevice, EveryFieldOfACertificateArrives) {
  CSmartList<tag_VEL_CERT_FILTER_ITEM> filters;
  m_manager->GetCertList(&filters, &m_certs);
  ASSERT_EQ(m_certs.GetCount(), 1);
  tag_VEL_CERT_INFO& cert = m_certs.GetItem(0);
  EXPECT_STREQ(cert.VELCertUniqueID, L"unique");
  EXPECT_STREQ(cert.SubjectCN, L"\u5F20\u4E09");
  EXPECT_STREQ(cert.SubjectDN, L"CN=\u5F20\u4E09,O=Plain");
  EXPECT_STREQ(cert.IssuerCN, L"Plain CA");
  EXPECT_STREQ(cert.IssuerDN, L"CN=Plain CA");
  EXPECT_STREQ(cert.IssuerReverseDN, L"O=Plain,CN=Plain CA");
  EXPECT_STREQ(cert.SerialNumber, L"00C0FFEE");
  EXPECT_EQ(cert.EffectiveInfo.wYear, 2020);
  EXPECT_EQ(cert.EffectiveInfo.wMilliseconds, 2027);
  EXPECT_EQ(cert.ExpiredInfo.wYear, 2030);
  EXPECT_EQ(cert.ExpiredInfo.wMilliseconds, 2037);
  EXPECT_STREQ(cert.CertBase64, L"REVSLUNFUlQ=");
  EXPECT_STREQ(cert.SubjectEmail, L"zhang@plain.example");
  EXPECT_EQ(cert.CertKeyStatus, VEL_CERT_HAVE_CERT_AND_KEYPAIR);
  EXPECT_EQ(cert.AsymmAlg, VEL_ASYMM_ALG_SM2);
  EXPECT_EQ(cert.RSAHashALg, VEL_HASH_ALG_SHA256);
  EXPECT_EQ(cert.SM2HashALg, VEL_HASH_ALG_SM3);
  EXPECT_EQ(cert.KeySpec, VEL_KEY_SPEC_SIGNATURE_AND_EXCHANGE);
  EXPECT_EQ(DWORD(cert.KeyUsage), 0x80000000C0u);
  EXPECT_EQ(cert.CryptoInterfaceType, VEL_CRYPTO_INTERFACE_TYPE_SKF);
  EXPECT_STREQ(cert.InterfaceLibName, L"libplain.so");
  EXPECT_STREQ(cert.Version, L"3");
  EXPECT_STREQ(cert.ApplicationName, L"application");
  EXPECT_STREQ(cert.ContainerName, L"container");
  EXPECT_STREQ(cert.DeviceName, L"device");
  EXPECT_STREQ(cert.UserPin, L"user pin");
  EXPECT_STREQ(cert.AdminPin, L"admin pin");
  EXPECT_EQ(PVOID(cert.CertificateHandle), reinterpret_cast<PVOID>(0x1122334455667788));
  EXPECT_EQ(PVOID(cert.DeviceHandle), reinterpret_cast<PVOID>(0x8877665544332211));
  EXPECT_STREQ(cert.ProvName, L"provider");
}

TEST_F(PlainDevice, AListLeavesTheRecordThatItIsGivenToItsOwner) {
  CSmartList<tag_VEL_CERT_FILTER_ITEM> filters;
  m_manager->GetCertList(&filters, &m_certs);
  EXPECT_STREQ(m_transcript(), "");
}

// The list's items were copied by the code that owns the list, so nothing of the device remains.
TEST_F(PlainDevice, ListedCertificatesOutliveTheLibrary) {
  CSmartList<tag_VEL_CERT_FILTER_ITEM> filters;
  m_manager->GetCertList(&filters, &m_certs);
  m_manager = nullptr;
  m_loader.UnloadDll();
  const tag_VEL_CERT_INFO copy = m_certs.GetItem(0);
  m_certs.Clear();
  EXPECT_STREQ(copy.SerialNumber, L"00C0FFEE");
}

TEST_F(PlainDevice, PinInformationArrives) {
  VEL_PIN_INFO info = {};
  m_manager->KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE_CHANGE_PIN, "00C0FFEE",
                                      VEL_PIN_CODE_TYPE_ADMIN, "old", "new", &info);
  EXPECT_STREQ(m_transcript(), "KeyPinCodeHandleByCertSN 3 00C0FFEE 1 old new info\n");
  EXPECT_EQ(info.PinCodeType, VEL_PIN_CODE_TYPE_USER);
  EXPECT_EQ(info.PinMaxLen, 16);
  EXPECT_EQ(info.PinMinLen, 6);
  EXPECT_EQ(info.MaxRetryCount, 10);
  EXPECT_EQ(info.RemainRetryCount, 7);
}

// The device wrote 7 * offset + 1 to every byte.
TEST_F(PlainDevice, EveryFieldOfTheDeviceInformationArrives) {
  VEL_DEVICE_INFO info = {};
  m_manager->GetKeyDevInfoByCertSN("00C0FFEE", &info);
  const auto byteAt = [](int offset) { return static_cast<BYTE>(offset * 7 + 1); };
  const auto first = [](const void* field) { return *static_cast<const BYTE*>(field); };
  EXPECT_EQ(info.Version.major, byteAt(0));
  EXPECT_EQ(info.Version.minor, byteAt(1));
  EXPECT_EQ(first(info.Manufacturer), byteAt(2));
  EXPECT_EQ(first(info.Issuer), byteAt(66));
  EXPECT_EQ(first(info.Label), byteAt(130));
  EXPECT_EQ(first(info.SerialNumber), byteAt(162));
  EXPECT_EQ(info.HWVersion.major, byteAt(194));
  EXPECT_EQ(info.FirmwareVersion.minor, byteAt(197));
  EXPECT_EQ(first(&info.AlgSymCap), byteAt(198));
  EXPECT_EQ(first(&info.AlgAsymCap), byteAt(206));
  EXPECT_EQ(first(&info.AlgHashCap), byteAt(214));
  EXPECT_EQ(first(&info.DevAuthAlgId), byteAt(222));
  EXPECT_EQ(first(&info.TotalSpace), byteAt(230));
  EXPECT_EQ(first(&info.FreeSpace), byteAt(238));
  EXPECT_EQ(first(&info.MaxECCBufferSize), byteAt(246));
  EXPECT_EQ(first(&info.MaxBufferSize), byteAt(254));
  EXPECT_EQ(info.Reserved[63], byteAt(325));
}

TEST_F(PlainDevice, SignsWithACertificateAndFillsTheBuffer) {
  tag_VEL_CERT_INFO cert;
  cert.SerialNumber = L"42";
  CSmartBuffer signature;
  BYTE data[] = {'a', 'b', 'c'};
  EXPECT_EQ(m_manager->P1Sign(&cert, VEL_HASH_ALG_SM3, data, 3, &signature), 0u);
  EXPECT_EQ(std::string(static_cast<char*>(signature.GetAddress()), signature.GetSize()),
            "P1-BY-C");
  char objectId[] = "1.2.3";
  VEL_SIGN_UNAUTH_DATA attributes[2] = {{objectId, data, 1}, {objectId, data, 2}};
  m_manager->P7SignEx(&cert, VEL_HASH_ALG_SHA1, TRUE, FALSE, data, 2, &signature, attributes, 2);
  EXPECT_STREQ(m_transcript(),
               "P1Sign 42 6 abc\nP7Sign 42 3 1 0 ab\nP7SignEx 1.2.3 a\nP7SignEx 1.2.3 ab\n");
}

TEST_F(PlainDevice, CallsTheBroadcastCallback) {
  UI_RECIVE_CERTLIST_INFO info = {};
  int object = 0, list = 0;
  static void* seen[2];
  info.lpObject = &object;
  info.certFilterList = &list;
  info.pFun = [](LPVOID first, PVOID second) -> ULONG {
    seen[0] = first;
    seen[1] = second;
    return 77;
  };
  EXPECT_EQ(m_manager->RegCertListBroadcastObject(&info), 77u);
  EXPECT_EQ(seen[0], &object);
  EXPECT_EQ(seen[1], &list);
}

TEST_F(PlainDevice, ReadsTheWrappingParameters) {
  CSmartObjPtr<IVELKeyAuxClass> aux(m_loader.CreateAuxClassInstance());
  BYTE content[] = "content", signature[] = "signature", certificate[] = "certificate";
  VEL_P1_TO_P7_PARAM param = {TRUE, VEL_HASH_ALG_SM3, content, 7, signature, 9, certificate, 11};
  DWORD size = 0;
  EXPECT_EQ(aux->AssembleP1DataToP7Data(&param, nullptr, &size), 0u);
  EXPECT_EQ(size, 13u);
  EXPECT_STREQ(m_transcript(), "AssembleP1DataToP7Data 1 6 content signature certificate size\n");
}

TEST_F(PlainDevice, ReachesTheLoaderThroughItsSlots) {
  EXPECT_EQ(m_manager->Initialize(&m_loader), 0u);
  EXPECT_STREQ(m_transcript(),
               "Initialize: the factory's third slot makes the conversions\n"
               "the conversions is destroyed\n"
               "Initialize: the factory's twelfth slot makes 0x102030\n");
}

TEST_F(PlainDevice, ObjectsGoWithTheirLastReference) {
  m_manager = nullptr;
  EXPECT_STREQ(m_transcript(), "the manager is destroyed\n");
}

TEST_F(PlainDevice, FactoriesTakeTheirArgumentsInOrder) {
  const auto address = [](const void* object) { return reinterpret_cast<uintptr_t>(object); };
  EXPECT_EQ(address(m_loader.CreateDeviceSetInstance(VEL_CRYPTO_INTERFACE_TYPE_P11)), 0x1000 + 201);
  EXPECT_EQ(address(m_loader.CreateCertificateInstance()), 0x2000);
  EXPECT_EQ(address(m_loader.CreateSessionKeyInstance()), 0x3000);
  EXPECT_EQ(address(m_loader.CreateTokenPrivilegesInstance()), 0x4000);
  EXPECT_EQ(address(m_loader.CreateDeviceInstance(reinterpret_cast<IVELDeviceSet*>(0x10))), 0x11);
  EXPECT_EQ(address(m_loader.CreateApplicationInstance(reinterpret_cast<IVELDevice*>(0x10))), 0x12);
  EXPECT_EQ(address(m_loader.CreateHashKeyInstance(reinterpret_cast<IVELDevice*>(0x10))), 0x13);
}

}  // namespace
