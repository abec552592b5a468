// The layout of every record that crosses to the device library, compared with records.txt.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "VelKeyTypes.h"

namespace {

// offsetof of records with virtual members is fixed by the C++ ABI of the platform.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

std::string Line(const char* record, size_t offset, const char* field) {
  return std::string(record) + " " + std::to_string(offset) + " " + field;
}

#define AT(record, field) Line(#record, offsetof(record, field), #field)
#define END(record) Line(#record, sizeof(record), "(end)")

std::vector<std::string> Layouts() {
  return {
      AT(tag_VEL_KEY_INFO_EX, KeyInfoVersion),
      AT(tag_VEL_KEY_INFO_EX, CryptoInterfaceType),
      AT(tag_VEL_KEY_INFO_EX, InterfaceLibName),
      AT(tag_VEL_KEY_INFO_EX, LibVersion),
      AT(tag_VEL_KEY_INFO_EX, LibIs64Bit),
      AT(tag_VEL_KEY_INFO_EX, RSAHashALg),
      AT(tag_VEL_KEY_INFO_EX, SM2HashALg),
      AT(tag_VEL_KEY_INFO_EX, Reference),
      AT(tag_VEL_KEY_INFO_EX, PVIDEnable),
      AT(tag_VEL_KEY_INFO_EX, PVID),
      END(tag_VEL_KEY_INFO_EX),
      AT(tag_VEL_KEY_INFO, Version),
      AT(tag_VEL_KEY_INFO, CryptoInterfaceType),
      AT(tag_VEL_KEY_INFO, InterfaceLibName),
      AT(tag_VEL_KEY_INFO, LibIs64Bit),
      AT(tag_VEL_KEY_INFO, RSAHashALg),
      AT(tag_VEL_KEY_INFO, SM2HashALg),
      AT(tag_VEL_KEY_INFO, Reference),
      END(tag_VEL_KEY_INFO),
      AT(tag_VEL_CERT_INFO, VELCertUniqueID),
      AT(tag_VEL_CERT_INFO, SubjectCN),
      AT(tag_VEL_CERT_INFO, SubjectDN),
      AT(tag_VEL_CERT_INFO, IssuerCN),
      AT(tag_VEL_CERT_INFO, IssuerDN),
      AT(tag_VEL_CERT_INFO, IssuerReverseDN),
      AT(tag_VEL_CERT_INFO, SerialNumber),
      AT(tag_VEL_CERT_INFO, EffectiveInfo),
      AT(tag_VEL_CERT_INFO, ExpiredInfo),
      AT(tag_VEL_CERT_INFO, CertBase64),
      AT(tag_VEL_CERT_INFO, SubjectEmail),
      AT(tag_VEL_CERT_INFO, CertKeyStatus),
      AT(tag_VEL_CERT_INFO, AsymmAlg),
      AT(tag_VEL_CERT_INFO, RSAHashALg),
      AT(tag_VEL_CERT_INFO, SM2HashALg),
      AT(tag_VEL_CERT_INFO, KeySpec),
      AT(tag_VEL_CERT_INFO, KeyUsage),
      AT(tag_VEL_CERT_INFO, CryptoInterfaceType),
      AT(tag_VEL_CERT_INFO, InterfaceLibName),
      AT(tag_VEL_CERT_INFO, Version),
      AT(tag_VEL_CERT_INFO, ApplicationName),
      AT(tag_VEL_CERT_INFO, ContainerName),
      AT(tag_VEL_CERT_INFO, DeviceName),
      AT(tag_VEL_CERT_INFO, UserPin),
      AT(tag_VEL_CERT_INFO, AdminPin),
      AT(tag_VEL_CERT_INFO, CertificateHandle),
      AT(tag_VEL_CERT_INFO, DeviceHandle),
      AT(tag_VEL_CERT_INFO, ProvName),
      END(tag_VEL_CERT_INFO),
      AT(tag_VEL_CERT_FILTER_ITEM, Type),
      AT(tag_VEL_CERT_FILTER_ITEM, Value),
      END(tag_VEL_CERT_FILTER_ITEM),
      AT(tag_VEL_DEVICE_INFO, Version),
      AT(tag_VEL_DEVICE_INFO, Manufacturer),
      AT(tag_VEL_DEVICE_INFO, Issuer),
      AT(tag_VEL_DEVICE_INFO, Label),
      AT(tag_VEL_DEVICE_INFO, SerialNumber),
      AT(tag_VEL_DEVICE_INFO, HWVersion),
      AT(tag_VEL_DEVICE_INFO, FirmwareVersion),
      AT(tag_VEL_DEVICE_INFO, AlgSymCap),
      AT(tag_VEL_DEVICE_INFO, AlgAsymCap),
      AT(tag_VEL_DEVICE_INFO, AlgHashCap),
      AT(tag_VEL_DEVICE_INFO, DevAuthAlgId),
      AT(tag_VEL_DEVICE_INFO, TotalSpace),
      AT(tag_VEL_DEVICE_INFO, FreeSpace),
      AT(tag_VEL_DEVICE_INFO, MaxECCBufferSize),
      AT(tag_VEL_DEVICE_INFO, MaxBufferSize),
      AT(tag_VEL_DEVICE_INFO, Reserved),
      END(tag_VEL_DEVICE_INFO),
      AT(tag_VEL_Version, major),
      AT(tag_VEL_Version, minor),
      END(tag_VEL_Version),
      AT(tag_VEL_PIN_INFO, PinCodeType),
      AT(tag_VEL_PIN_INFO, PinMaxLen),
      AT(tag_VEL_PIN_INFO, PinMinLen),
      AT(tag_VEL_PIN_INFO, MaxRetryCount),
      AT(tag_VEL_PIN_INFO, RemainRetryCount),
      END(tag_VEL_PIN_INFO),
      AT(tag_VEL_P1_TO_P7_PARAM, DetachType),
      AT(tag_VEL_P1_TO_P7_PARAM, HashAlg),
      AT(tag_VEL_P1_TO_P7_PARAM, OrgDataBuffer),
      AT(tag_VEL_P1_TO_P7_PARAM, OrgDataLen),
      AT(tag_VEL_P1_TO_P7_PARAM, P1DataBuffer),
      AT(tag_VEL_P1_TO_P7_PARAM, P1DataLen),
      AT(tag_VEL_P1_TO_P7_PARAM, CertBuffer),
      AT(tag_VEL_P1_TO_P7_PARAM, CertLen),
      END(tag_VEL_P1_TO_P7_PARAM),
      AT(_VEL_SIGN_UNAUTH_DATA, pszObjId),
      AT(_VEL_SIGN_UNAUTH_DATA, pData),
      AT(_VEL_SIGN_UNAUTH_DATA, ulDataLen),
      END(_VEL_SIGN_UNAUTH_DATA),
      AT(tag_UI_RECIVE_CERTLIST_INFO, lpObject),
      AT(tag_UI_RECIVE_CERTLIST_INFO, pFun),
      AT(tag_UI_RECIVE_CERTLIST_INFO, certFilterList),
      END(tag_UI_RECIVE_CERTLIST_INFO),
      AT(CSmartBuffer, m_pBuffer),
      END(CSmartBuffer),
      AT(CVelStringW, m_pStr),
      AT(CVelStringW, m_smString),
      END(CVelStringW),
  };
}

std::vector<std::string> LayoutsInText() {
  std::ifstream file(CONTRACT "/records.txt");
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line[0] != '#') lines.push_back(line);
  }
  return lines;
}

TEST(RecordLayouts, AreThoseOfTheText) {
  EXPECT_EQ(Layouts(), LayoutsInText())
      << "Device libraries that exist were built against the layouts in records.txt: move nothing. "
         "A "
         "new record is named here and there; an old one takes no new field.";
}

// In an array no gap lies between two records.
TEST(RecordLayouts, RecordsAskForNoMoreThanFourBytesOfAlignment) {
  EXPECT_EQ(alignof(tag_VEL_CERT_INFO), 4u);
  EXPECT_EQ(alignof(tag_VEL_KEY_INFO_EX), 4u);
  EXPECT_EQ(alignof(tag_VEL_CERT_FILTER_ITEM), 4u);
  EXPECT_EQ(alignof(tag_VEL_DEVICE_INFO), 1u);
}

TEST(RecordLayouts, NumbersHaveTheirWidths) {
  EXPECT_EQ(sizeof(DWORD), 8u);
  EXPECT_EQ(sizeof(ULONG), 8u);
  EXPECT_EQ(sizeof(BOOL), 4u);
  EXPECT_EQ(sizeof(USHORT), 2u);
  EXPECT_EQ(sizeof(VEL_HASH_ALG), 4u);
  EXPECT_EQ(sizeof(VEL_CERT_FILTER_TYPE), 4u);
  EXPECT_EQ(sizeof(SYSTEMTIME), 16u);
  EXPECT_GT(static_cast<DWORD>(-1), 0u);
}

}  // namespace
