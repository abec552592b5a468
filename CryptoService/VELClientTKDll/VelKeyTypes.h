#pragma once
// Records and enumerations that cross between the toolkit and the device library by pointer. Field
// order, widths and packing are a binary contract; the assertions at the end hold it.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "SmartList.h"
#include "VELCstring.h"
#include "VELInterface.h"
#include "VelString.h"

// 32 bits wide with any number as a value: a device library may give one that has no name here.
enum VEL_HASH_ALG : int {
  VEL_HASH_ALG_UNKNOWN = 0,
  VEL_HASH_ALG_MD2 = 1,
  VEL_HASH_ALG_MD5 = 2,
  VEL_HASH_ALG_SHA1 = 3,
  VEL_HASH_ALG_SHA256 = 4,
  VEL_HASH_ALG_SHA512 = 5,
  VEL_HASH_ALG_SM3 = 6,
};

enum VEL_ASYMM_ALG : int {
  VEL_ASYMM_ALG_UNKNOWN = 0,
  VEL_ASYMM_ALG_RSA = 1,
  VEL_ASYMM_ALG_SM2 = 2,
  VEL_ASYMM_ALG_PM = 3,
};

enum VEL_CRYPTO_INTERFACE_TYPE : int {
  VEL_CRYPTO_INTERFACE_TYPE_UNKNOWN = 0,
  VEL_CRYPTO_INTERFACE_TYPE_CSP = 1,
  VEL_CRYPTO_INTERFACE_TYPE_SKF = 101,
  VEL_CRYPTO_INTERFACE_TYPE_P11 = 201,
  VEL_CRYPTO_INTERFACE_TYPE_P11_GA_NOM = 202,
  VEL_CRYPTO_INTERFACE_TYPE_P11_GA_BAK = 203,
  VEL_CRYPTO_INTERFACE_TYPE_P11_PLA1 = 204,
  VEL_CRYPTO_INTERFACE_TYPE_P11_PLA2 = 205,
  VEL_CRYPTO_INTERFACE_TYPE_P11_PLA3 = 206,
  VEL_CRYPTO_INTERFACE_TYPE_P11_FIN56 = 207,
  VEL_CRYPTO_INTERFACE_TYPE_PM = 208,
};

enum VEL_KEY_SPEC : int {
  VEL_KEY_SPEC_UNKNOWN = 0,
  VEL_KEY_SPEC_SIGNATURE = 1,
  VEL_KEY_SPEC_EXCHANGE = 2,
  VEL_KEY_SPEC_SIGNATURE_AND_EXCHANGE = 3,
};

// There is no 1.
enum VEL_CERT_KEY_STATUS : int {
  VEL_CERT_HAVE_UNKNOWN = 0,
  VEL_CERT_HAVE_CERT_ONLY = 2,
  VEL_CERT_HAVE_KEYPAIR_ONLY = 3,
  VEL_CERT_HAVE_CERT_AND_KEYPAIR = 4,
};

enum VEL_CERT_FILTER_TYPE : int {
  VEL_CERT_FILTER_ISSUER_DN = 0,
  VEL_CERT_FILTER_SUBJECT_SN = 1,
  VEL_CERT_FILTER_SUBJECT_DN = 2,
  VEL_CERT_FILTER_EMAIL = 3,
  VEL_CERT_FILTER_BASE64 = 4,
  VEL_CERT_FILTER_KEY_SPEC = 5,
  VEL_CERT_FILTER_KEY_ATTR_TYPE = 6,
  VEL_CERT_FILTER_LIBNAME = 7,
  VEL_CERT_FILTER_TIME_VALID_TYPE = 8,
  VEL_CERT_FILTER_KEY_USAGE = 9,
  VEL_CERT_FILTER_KEY_INTERFACE_TYPE = 10,
  VEL_CERT_FILTER_CERTNAME_TYPE = 11,
  VEL_CERT_FILTER_DOUBLE_ATTR_SIGNATURE_AND_EXCHANGE = 12,
  VEL_CERT_FILTER_UNKNOWN = 65535,
};

enum VEL_PIN_CODE_TYPE : int {
  VEL_PIN_CODE_TYPE_UNKNOWN = 0,
  VEL_PIN_CODE_TYPE_ADMIN = 1,
  VEL_PIN_CODE_TYPE_USER = 2,
};

enum VEL_PIN_CODE_OPER_TYPE : int {
  VEL_PIN_CODE_OPER_TYPE_UNKNOWN = 0,
  VEL_PIN_CODE_OPER_TYPE_LOGIN = 1,
  VEL_PIN_CODE_OPER_TYPE_LOGOUT = 2,
  VEL_PIN_CODE_OPER_TYPE_CHANGE_PIN = 3,
  VEL_PIN_CODE_OPER_TYPE_GET_PIN_INFO = 4,
};

enum VEL_DEVICE_MANAGER_ACTION_TYPE : int {
  VEL_DEVICE_MANAGER_ACTION_UNKNOWN = 0,
  VEL_DEVICE_MANAGER_ACTION_P1SIGN = 1,
  VEL_DEVICE_MANAGER_ACTION_P7_ATTACH_SIGN = 2,
  VEL_DEVICE_MANAGER_ACTION_P7_DETACH_SIGN = 3,
  VEL_DEVICE_MANAGER_ACTION_P1_VERIFY_SIGN = 4,
  VEL_DEVICE_MANAGER_ACTION_P7_ATTACH_VERIFY_SIGN = 5,
  VEL_DEVICE_MANAGER_ACTION_P7_DETACH_VERIFY_SIGN = 6,
  VEL_DEVICE_MANAGER_ACTION_ENCRYPT = 7,
  VEL_DEVICE_MANAGER_ACTION_DECRYPT = 8,
  VEL_DEVICE_MANAGER_ACTION_P7_ENVELOPE = 9,
};

enum VEL_CRYPTO_OPER_TYPE : int {
  VEL_CRYPTO_OPER_TYPE_UNKNOWN = 0,
  VEL_CRYPTO_OPER_TYPE_ENCRYPT = 1,
  VEL_CRYPTO_OPER_TYPE_DECRYPT = 2,
  VEL_CRYPTO_OPER_TYPE_SIGNATURE = 3,
  VEL_CRYPTO_OPER_TYPE_VERSIGN = 4,
};

enum VEL_SYMM_ENCRYPTO_MODE : int {
  VEL_SYMM_ENCRYPTO_MODE_UNKNOWN = 0,
  VEL_SYMM_ENCRYPTO_MODE_HARD = 1,
  VEL_SYMM_ENCRYPTO_MODE_HARD_AND_SOFT = 2,
  VEL_SYMM_ENCRYPTO_MODE_SOFT = 3,
};

enum VEL_KEY_CHANGE_INFO_TYPE : int {
  VEL_KEY_CHANGE_INFO_TYPE_UNKNOWN = 0,
  VEL_KEY_CHANGE_INFO_TYPE_KEY_ARRIVAL = 1,
  VEL_KEY_CHANGE_INFO_TYPE_KEY_REMOVE = 2,
  VEL_KEY_CHANGE_INFO_TYPE_CERT = 3,
};

enum VEL_SYMM_ENCRYPT_ALG : int {
  VEL_SYMM_ENCRYPT_ALG_UNKNOWN = 0,
  VEL_SYMM_ENCRYPT_ALG_RC2_ECB,
  VEL_SYMM_ENCRYPT_ALG_RC2_CBC,
  VEL_SYMM_ENCRYPT_ALG_RC2_MAC,
  VEL_SYMM_ENCRYPT_ALG_RC4,
  VEL_SYMM_ENCRYPT_ALG_DES_ECB,
  VEL_SYMM_ENCRYPT_ALG_DES_CBC,
  VEL_SYMM_ENCRYPT_ALG_DES_MAC,
  VEL_SYMM_ENCRYPT_ALG_DES_OFB64,
  VEL_SYMM_ENCRYPT_ALG_DES_OFB8,
  VEL_SYMM_ENCRYPT_ALG_DES_CFB64,
  VEL_SYMM_ENCRYPT_ALG_DES_CFB8,
  VEL_SYMM_ENCRYPT_ALG_DES3_ECB,
  VEL_SYMM_ENCRYPT_ALG_DES3_CBC,
  VEL_SYMM_ENCRYPT_ALG_DES3_MAC,
  VEL_SYMM_ENCRYPT_ALG_CDMF_ECB,
  VEL_SYMM_ENCRYPT_ALG_CDMF_CBC,
  VEL_SYMM_ENCRYPT_ALG_CDMF_MAC,
  VEL_SYMM_ENCRYPT_ALG_SCB2_ECB,
  VEL_SYMM_ENCRYPT_ALG_SCB2_CBC,
  VEL_SYMM_ENCRYPT_ALG_SCB2_CFB,
  VEL_SYMM_ENCRYPT_ALG_SCB2_OFB,
  VEL_SYMM_ENCRYPT_ALG_SCB2_MAC,
  VEL_SYMM_ENCRYPT_ALG_SSF33_ECB,
  VEL_SYMM_ENCRYPT_ALG_SSF33_CBC,
  VEL_SYMM_ENCRYPT_ALG_SSF33_CFB,
  VEL_SYMM_ENCRYPT_ALG_SSF33_OFB,
  VEL_SYMM_ENCRYPT_ALG_SSF33_MAC,
  VEL_SYMM_ENCRYPT_ALG_SM1_ECB,
  VEL_SYMM_ENCRYPT_ALG_SM1_CBC,
  VEL_SYMM_ENCRYPT_ALG_SM1_CFB,
  VEL_SYMM_ENCRYPT_ALG_SM1_OFB,
  VEL_SYMM_ENCRYPT_ALG_SM1_MAC,
  VEL_SYMM_ENCRYPT_ALG_SM4_ECB,
  VEL_SYMM_ENCRYPT_ALG_SM4_CBC,
  VEL_SYMM_ENCRYPT_ALG_SM4_CFB,
  VEL_SYMM_ENCRYPT_ALG_SM4_OFB,
  VEL_SYMM_ENCRYPT_ALG_SM4_MAC,
  VEL_SYMM_ENCRYPT_ALG_AES_ECB,
  VEL_SYMM_ENCRYPT_ALG_AES_CBC,
  VEL_SYMM_ENCRYPT_ALG_AES_CFB,
  VEL_SYMM_ENCRYPT_ALG_AES_OFB,
  VEL_SYMM_ENCRYPT_ALG_AES_MAC,
  VEL_SYMM_ENCRYPT_ALG_SM1,
  VEL_SYMM_ENCRYPT_ALG_SM4,
};

#pragma pack(push, 4)

// One configured key family, the older form.
struct tag_VEL_KEY_INFO {
  ULONG Version = 0;
  VEL_CRYPTO_INTERFACE_TYPE CryptoInterfaceType = VEL_CRYPTO_INTERFACE_TYPE_CSP;
  CHAR InterfaceLibName[1024] = {};
  BOOL LibIs64Bit = FALSE;
  VEL_HASH_ALG RSAHashALg = VEL_HASH_ALG_UNKNOWN;
  VEL_HASH_ALG SM2HashALg = VEL_HASH_ALG_UNKNOWN;
  ULONG Reference = 1;

  tag_VEL_KEY_INFO() = default;
  tag_VEL_KEY_INFO(const tag_VEL_KEY_INFO&) = default;
  tag_VEL_KEY_INFO& operator=(const tag_VEL_KEY_INFO&) = default;

  ULONG AddRef() { return ++Reference; }
  ULONG Release() { return Reference == 0 ? 0 : --Reference; }
  void RefreshOtherInfo(const tag_VEL_KEY_INFO& other);
  bool operator==(const tag_VEL_KEY_INFO& other) const;
};
typedef tag_VEL_KEY_INFO VEL_KEY_INFO, *PVEL_KEY_INFO;

// One configured key family. `InterfaceLibName` is narrow text with a terminator.
struct tag_VEL_KEY_INFO_EX {
  DWORD KeyInfoVersion = 0x10000;
  VEL_CRYPTO_INTERFACE_TYPE CryptoInterfaceType = VEL_CRYPTO_INTERFACE_TYPE_CSP;
  CHAR InterfaceLibName[1024] = {};
  DWORD LibVersion = 0;
  BOOL LibIs64Bit = FALSE;
  VEL_HASH_ALG RSAHashALg = VEL_HASH_ALG_UNKNOWN;
  VEL_HASH_ALG SM2HashALg = VEL_HASH_ALG_UNKNOWN;
  ULONG Reference = 1;
  BOOL PVIDEnable = FALSE;  // the vendor and product filter below is in force
  CHAR PVID[32] = {};

  tag_VEL_KEY_INFO_EX() = default;
  tag_VEL_KEY_INFO_EX(const tag_VEL_KEY_INFO_EX&) = default;  // member by member, filter included
  tag_VEL_KEY_INFO_EX& operator=(const tag_VEL_KEY_INFO_EX& other) {
    SetValue(other);
    return *this;
  }

  ULONG AddRef() { return ++Reference; }
  ULONG Release() { return Reference == 0 ? 0 : --Reference; }

  // Takes over what does not identify the family: version, width and hashes.
  void RefreshOtherInfo(const tag_VEL_KEY_INFO_EX& other);

  // Takes over the other's fields and sets the record version. The vendor and product filter is
  // meant to end here: it belongs to the one entry that was configured with it.
  void SetValue(const tag_VEL_KEY_INFO_EX& other);
  void SetValue(VEL_KEY_INFO& other);

  // The same family: equal interface type and library name, by bytes; nothing else counts.
  bool operator==(const tag_VEL_KEY_INFO_EX& other) const;
};
typedef tag_VEL_KEY_INFO_EX VEL_KEY_INFO_EX, *PVEL_KEY_INFO_EX;

// One certificate found on a device. Text fields of what the device does not have are empty.
struct tag_VEL_CERT_INFO {
  CVelStringW VELCertUniqueID;
  CVelStringW SubjectCN;
  CVelStringW SubjectDN;
  CVelStringW IssuerCN;
  CVelStringW IssuerDN;
  CVelStringW IssuerReverseDN;
  CVelStringW SerialNumber;
  SYSTEMTIME EffectiveInfo = {};  // start of validity
  SYSTEMTIME ExpiredInfo = {};    // end of validity
  CVelStringW CertBase64;         // of the DER form
  CVelStringW SubjectEmail;
  VEL_CERT_KEY_STATUS CertKeyStatus = VEL_CERT_HAVE_UNKNOWN;
  VEL_ASYMM_ALG AsymmAlg = VEL_ASYMM_ALG_UNKNOWN;
  VEL_HASH_ALG RSAHashALg = VEL_HASH_ALG_UNKNOWN;
  VEL_HASH_ALG SM2HashALg = VEL_HASH_ALG_UNKNOWN;
  VEL_KEY_SPEC KeySpec = VEL_KEY_SPEC_UNKNOWN;
  DWORD KeyUsage = 0;
  VEL_CRYPTO_INTERFACE_TYPE CryptoInterfaceType = VEL_CRYPTO_INTERFACE_TYPE_UNKNOWN;
  CVelStringW InterfaceLibName;
  CVelStringW Version;
  CVelStringW ApplicationName;
  CVelStringW ContainerName;
  CVelStringW DeviceName;
  CVelStringW UserPin;
  CVelStringW AdminPin;
  PVOID CertificateHandle = nullptr;
  PVOID DeviceHandle = nullptr;
  CVelStringW ProvName;

  // Issuer, serial number, library and version without regard to case, then interface type, key
  // algorithm and RSA hash; names, PINs, handles, times and the SM2 hash take no part.
  bool operator==(const tag_VEL_CERT_INFO& other) const;

  // Whether the certificate has this serial number, without regard to case.
  BOOL GetVELCertSN(CVelStringW serial) const { return SerialNumber.CompareNoCase(serial) == 0; }
};
typedef tag_VEL_CERT_INFO VEL_CERT_INFO, *PVEL_CERT_INFO;

struct tag_VEL_CERT_FILTER_ITEM {
  // 0, so a fresh item filters by issuer and is not VEL_CERT_FILTER_UNKNOWN: device libraries
  // rely on it.
  VEL_CERT_FILTER_TYPE Type = VEL_CERT_FILTER_ISSUER_DN;
  CVelStringW Value;

  tag_VEL_CERT_FILTER_ITEM() = default;
  tag_VEL_CERT_FILTER_ITEM(VEL_CERT_FILTER_TYPE type, const wchar_t* value)
      : Type(type), Value(value) {}
  bool operator==(const tag_VEL_CERT_FILTER_ITEM& other) const {
    return Type == other.Type && Value.Compare(other.Value) == 0;
  }
};
typedef tag_VEL_CERT_FILTER_ITEM VEL_CERT_FILTER_ITEM, *PVEL_CERT_FILTER_ITEM;

struct tag_VEL_PIN_INFO {
  VEL_PIN_CODE_TYPE PinCodeType;
  USHORT PinMaxLen;
  USHORT PinMinLen;
  USHORT MaxRetryCount;
  USHORT RemainRetryCount;
};
typedef tag_VEL_PIN_INFO VEL_PIN_INFO, *PVEL_PIN_INFO;

// What is needed to wrap a PKCS#1 signature into PKCS#7; lengths in bytes.
struct tag_VEL_P1_TO_P7_PARAM {
  BOOL DetachType;  // TRUE leaves the content out
  VEL_HASH_ALG HashAlg;
  PBYTE OrgDataBuffer;  // the signed content
  ULONG OrgDataLen;
  PBYTE P1DataBuffer;  // the signature
  ULONG P1DataLen;
  PBYTE CertBuffer;  // the signer's certificate in DER
  ULONG CertLen;
};
typedef tag_VEL_P1_TO_P7_PARAM VEL_P1_TO_P7_PARAM, *PVEL_P1_TO_P7_PARAM;

// One unauthenticated attribute for a PKCS#7 signature.
struct _VEL_SIGN_UNAUTH_DATA {
  LPSTR pszObjId;
  PBYTE pData;
  ULONG ulDataLen;
};
typedef _VEL_SIGN_UNAUTH_DATA VEL_SIGN_UNAUTH_DATA, *PVEL_SIGN_UNAUTH_DATA;

// The certificate dialog calls it to deliver a new certificate list.
typedef ULONG (*PUI_RECIVE_CERTLIST_CALLBACK)(LPVOID, PVOID);

struct tag_UI_RECIVE_CERTLIST_INFO {
  LPVOID lpObject;
  PUI_RECIVE_CERTLIST_CALLBACK pFun;
  PVOID certFilterList;
};
typedef tag_UI_RECIVE_CERTLIST_INFO UI_RECIVE_CERTLIST_INFO, *PUI_RECIVE_CERTLIST_INFO;

#pragma pack(pop)

#pragma pack(push, 1)

struct tag_VEL_Version {
  BYTE major;
  BYTE minor;
};
typedef tag_VEL_Version VEL_VERSION, *PVEL_VERSION;

struct tag_VEL_DEVICE_INFO {
  VEL_VERSION Version;
  CHAR Manufacturer[64];
  CHAR Issuer[64];
  CHAR Label[32];
  CHAR SerialNumber[32];
  VEL_VERSION HWVersion;
  VEL_VERSION FirmwareVersion;
  ULONG AlgSymCap;
  ULONG AlgAsymCap;
  ULONG AlgHashCap;
  ULONG DevAuthAlgId;
  ULONG TotalSpace;
  ULONG FreeSpace;
  ULONG MaxECCBufferSize;
  ULONG MaxBufferSize;
  BYTE Reserved[64];
};
typedef tag_VEL_DEVICE_INFO VEL_DEVICE_INFO, *PVEL_DEVICE_INFO;

#pragma pack(pop)

// Names of algorithms and interface types (VelKeyTypes.cpp, toolkit only). Names are compared
// whole and without regard to case; an unknown name is 0. SHA512 is understood, yet prints as
// "UNKNOWN": hosts tell by it that a device family has no such digest.
CString StrHashAlg(VEL_HASH_ALG alg);
VEL_HASH_ALG EnumHashAlg(const wchar_t* name);
CString StrAsymmAlg(VEL_ASYMM_ALG alg);
VEL_CRYPTO_INTERFACE_TYPE EnumCryptoInterfaceType(const wchar_t* name);

inline void tag_VEL_KEY_INFO::RefreshOtherInfo(const tag_VEL_KEY_INFO& other) {
  Version = other.Version;
  LibIs64Bit = other.LibIs64Bit;
  RSAHashALg = other.RSAHashALg;
  SM2HashALg = other.SM2HashALg;
}

inline bool tag_VEL_KEY_INFO::operator==(const tag_VEL_KEY_INFO& other) const {
  return CryptoInterfaceType == other.CryptoInterfaceType &&
         memcmp(InterfaceLibName, other.InterfaceLibName, sizeof(InterfaceLibName)) == 0;
}

inline void tag_VEL_KEY_INFO_EX::RefreshOtherInfo(const tag_VEL_KEY_INFO_EX& other) {
  LibVersion = other.LibVersion;
  LibIs64Bit = other.LibIs64Bit;
  RSAHashALg = other.RSAHashALg;
  SM2HashALg = other.SM2HashALg;
}

inline void tag_VEL_KEY_INFO_EX::SetValue(const tag_VEL_KEY_INFO_EX& other) {
  KeyInfoVersion = 0x10000;
  CryptoInterfaceType = other.CryptoInterfaceType;
  memcpy_s(InterfaceLibName, sizeof(InterfaceLibName), other.InterfaceLibName,
           sizeof(InterfaceLibName));
  LibVersion = other.LibVersion;
  LibIs64Bit = other.LibIs64Bit;
  RSAHashALg = other.RSAHashALg;
  SM2HashALg = other.SM2HashALg;
  Reference = other.Reference;
  PVIDEnable = FALSE;
  memset(PVID, 0, sizeof(PVID));
}

inline void tag_VEL_KEY_INFO_EX::SetValue(VEL_KEY_INFO& other) {
  tag_VEL_KEY_INFO_EX converted;
  converted.CryptoInterfaceType = other.CryptoInterfaceType;
  memcpy(converted.InterfaceLibName, other.InterfaceLibName, sizeof(InterfaceLibName));
  converted.LibIs64Bit = other.LibIs64Bit;
  converted.RSAHashALg = other.RSAHashALg;
  converted.SM2HashALg = other.SM2HashALg;
  converted.Reference = other.Reference;
  SetValue(converted);
}

inline bool tag_VEL_KEY_INFO_EX::operator==(const tag_VEL_KEY_INFO_EX& other) const {
  return CryptoInterfaceType == other.CryptoInterfaceType &&
         memcmp(InterfaceLibName, other.InterfaceLibName, sizeof(InterfaceLibName)) == 0;
}

inline bool tag_VEL_CERT_INFO::operator==(const tag_VEL_CERT_INFO& other) const {
  return IssuerDN.CompareNoCase(other.IssuerDN) == 0 &&
         SerialNumber.CompareNoCase(other.SerialNumber) == 0 &&
         InterfaceLibName.CompareNoCase(other.InterfaceLibName) == 0 &&
         Version.CompareNoCase(other.Version) == 0 &&
         CryptoInterfaceType == other.CryptoInterfaceType && AsymmAlg == other.AsymmAlg &&
         RSAHashALg == other.RSAHashALg;
}

// offsetof of records with virtual members is fixed by the C++ ABI of the platform.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(sizeof(tag_VEL_KEY_INFO) == 1056, "layout");
static_assert(sizeof(tag_VEL_KEY_INFO_EX) == 1100, "layout");
static_assert(sizeof(tag_VEL_CERT_INFO) == 624, "layout");
static_assert(sizeof(tag_VEL_CERT_FILTER_ITEM) == 36, "layout");
static_assert(sizeof(tag_VEL_PIN_INFO) == 12, "layout");
static_assert(sizeof(tag_VEL_P1_TO_P7_PARAM) == 56, "layout");
static_assert(sizeof(_VEL_SIGN_UNAUTH_DATA) == 24, "layout");
static_assert(sizeof(tag_UI_RECIVE_CERTLIST_INFO) == 24, "layout");
static_assert(sizeof(tag_VEL_DEVICE_INFO) == 326, "layout");
#define VEL_AT(record, field, at) static_assert(offsetof(record, field) == at, #field)
VEL_AT(tag_VEL_KEY_INFO, CryptoInterfaceType, 8);
VEL_AT(tag_VEL_KEY_INFO, InterfaceLibName, 12);
VEL_AT(tag_VEL_KEY_INFO, LibIs64Bit, 1036);
VEL_AT(tag_VEL_KEY_INFO, RSAHashALg, 1040);
VEL_AT(tag_VEL_KEY_INFO, SM2HashALg, 1044);
VEL_AT(tag_VEL_KEY_INFO, Reference, 1048);
VEL_AT(tag_VEL_KEY_INFO_EX, CryptoInterfaceType, 8);
VEL_AT(tag_VEL_KEY_INFO_EX, InterfaceLibName, 12);
VEL_AT(tag_VEL_KEY_INFO_EX, LibVersion, 1036);
VEL_AT(tag_VEL_KEY_INFO_EX, LibIs64Bit, 1044);
VEL_AT(tag_VEL_KEY_INFO_EX, RSAHashALg, 1048);
VEL_AT(tag_VEL_KEY_INFO_EX, SM2HashALg, 1052);
VEL_AT(tag_VEL_KEY_INFO_EX, Reference, 1056);
VEL_AT(tag_VEL_KEY_INFO_EX, PVIDEnable, 1064);
VEL_AT(tag_VEL_KEY_INFO_EX, PVID, 1068);
VEL_AT(tag_VEL_CERT_INFO, VELCertUniqueID, 0);
VEL_AT(tag_VEL_CERT_INFO, SubjectCN, 32);
VEL_AT(tag_VEL_CERT_INFO, SubjectDN, 64);
VEL_AT(tag_VEL_CERT_INFO, IssuerCN, 96);
VEL_AT(tag_VEL_CERT_INFO, IssuerDN, 128);
VEL_AT(tag_VEL_CERT_INFO, IssuerReverseDN, 160);
VEL_AT(tag_VEL_CERT_INFO, SerialNumber, 192);
VEL_AT(tag_VEL_CERT_INFO, EffectiveInfo, 224);
VEL_AT(tag_VEL_CERT_INFO, ExpiredInfo, 240);
VEL_AT(tag_VEL_CERT_INFO, CertBase64, 256);
VEL_AT(tag_VEL_CERT_INFO, SubjectEmail, 288);
VEL_AT(tag_VEL_CERT_INFO, CertKeyStatus, 320);
VEL_AT(tag_VEL_CERT_INFO, AsymmAlg, 324);
VEL_AT(tag_VEL_CERT_INFO, RSAHashALg, 328);
VEL_AT(tag_VEL_CERT_INFO, SM2HashALg, 332);
VEL_AT(tag_VEL_CERT_INFO, KeySpec, 336);
VEL_AT(tag_VEL_CERT_INFO, KeyUsage, 340);
VEL_AT(tag_VEL_CERT_INFO, CryptoInterfaceType, 348);
VEL_AT(tag_VEL_CERT_INFO, InterfaceLibName, 352);
VEL_AT(tag_VEL_CERT_INFO, Version, 384);
VEL_AT(tag_VEL_CERT_INFO, ApplicationName, 416);
VEL_AT(tag_VEL_CERT_INFO, ContainerName, 448);
VEL_AT(tag_VEL_CERT_INFO, DeviceName, 480);
VEL_AT(tag_VEL_CERT_INFO, UserPin, 512);
VEL_AT(tag_VEL_CERT_INFO, AdminPin, 544);
VEL_AT(tag_VEL_CERT_INFO, CertificateHandle, 576);
VEL_AT(tag_VEL_CERT_INFO, DeviceHandle, 584);
VEL_AT(tag_VEL_CERT_INFO, ProvName, 592);
VEL_AT(tag_VEL_CERT_FILTER_ITEM, Value, 4);
VEL_AT(tag_VEL_PIN_INFO, PinMaxLen, 4);
VEL_AT(tag_VEL_PIN_INFO, PinMinLen, 6);
VEL_AT(tag_VEL_PIN_INFO, MaxRetryCount, 8);
VEL_AT(tag_VEL_PIN_INFO, RemainRetryCount, 10);
VEL_AT(tag_VEL_P1_TO_P7_PARAM, HashAlg, 4);
VEL_AT(tag_VEL_P1_TO_P7_PARAM, OrgDataBuffer, 8);
VEL_AT(tag_VEL_P1_TO_P7_PARAM, OrgDataLen, 16);
VEL_AT(tag_VEL_P1_TO_P7_PARAM, P1DataBuffer, 24);
VEL_AT(tag_VEL_P1_TO_P7_PARAM, P1DataLen, 32);
VEL_AT(tag_VEL_P1_TO_P7_PARAM, CertBuffer, 40);
VEL_AT(tag_VEL_P1_TO_P7_PARAM, CertLen, 48);
VEL_AT(_VEL_SIGN_UNAUTH_DATA, pData, 8);
VEL_AT(_VEL_SIGN_UNAUTH_DATA, ulDataLen, 16);
VEL_AT(tag_UI_RECIVE_CERTLIST_INFO, pFun, 8);
VEL_AT(tag_UI_RECIVE_CERTLIST_INFO, certFilterList, 16);
VEL_AT(tag_VEL_DEVICE_INFO, Manufacturer, 2);
VEL_AT(tag_VEL_DEVICE_INFO, Issuer, 66);
VEL_AT(tag_VEL_DEVICE_INFO, Label, 130);
VEL_AT(tag_VEL_DEVICE_INFO, SerialNumber, 162);
VEL_AT(tag_VEL_DEVICE_INFO, HWVersion, 194);
VEL_AT(tag_VEL_DEVICE_INFO, FirmwareVersion, 196);
VEL_AT(tag_VEL_DEVICE_INFO, AlgSymCap, 198);
VEL_AT(tag_VEL_DEVICE_INFO, AlgAsymCap, 206);
VEL_AT(tag_VEL_DEVICE_INFO, AlgHashCap, 214);
VEL_AT(tag_VEL_DEVICE_INFO, DevAuthAlgId, 222);
VEL_AT(tag_VEL_DEVICE_INFO, TotalSpace, 230);
VEL_AT(tag_VEL_DEVICE_INFO, FreeSpace, 238);
VEL_AT(tag_VEL_DEVICE_INFO, MaxECCBufferSize, 246);
VEL_AT(tag_VEL_DEVICE_INFO, MaxBufferSize, 254);
VEL_AT(tag_VEL_DEVICE_INFO, Reserved, 262);
#undef VEL_AT
#pragma GCC diagnostic pop
