#include "VelKeyTypes.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <string>

// Sizes and offsets of the records are held by tests/contract. Their 8-byte fields stand at 4-byte
// addresses, so gtest, which takes references, is given copies: ULONG(key.Reference).
namespace {

CVelStringW tag_VEL_CERT_INFO::*const TEXTS[] = {
    &tag_VEL_CERT_INFO::VELCertUniqueID, &tag_VEL_CERT_INFO::SubjectCN,
    &tag_VEL_CERT_INFO::SubjectDN,       &tag_VEL_CERT_INFO::IssuerCN,
    &tag_VEL_CERT_INFO::IssuerDN,        &tag_VEL_CERT_INFO::IssuerReverseDN,
    &tag_VEL_CERT_INFO::SerialNumber,    &tag_VEL_CERT_INFO::CertBase64,
    &tag_VEL_CERT_INFO::SubjectEmail,    &tag_VEL_CERT_INFO::InterfaceLibName,
    &tag_VEL_CERT_INFO::Version,         &tag_VEL_CERT_INFO::ApplicationName,
    &tag_VEL_CERT_INFO::ContainerName,   &tag_VEL_CERT_INFO::DeviceName,
    &tag_VEL_CERT_INFO::UserPin,         &tag_VEL_CERT_INFO::AdminPin,
    &tag_VEL_CERT_INFO::ProvName};

bool AllZero(const void* data, size_t size) {
  const char* const bytes = static_cast<const char*>(data);
  for (size_t i = 0; i < size; ++i)
    if (bytes[i] != 0) return false;
  return true;
}

template <class Record>
void Name(Record& record, const char* library) {
  strcpy(record.InterfaceLibName, library);
}

tag_VEL_KEY_INFO_EX FilledKey() {
  tag_VEL_KEY_INFO_EX key;
  key.KeyInfoVersion = 7;
  key.CryptoInterfaceType = VEL_CRYPTO_INTERFACE_TYPE_SKF;
  memset(key.InterfaceLibName, 'n', sizeof(key.InterfaceLibName));
  key.LibVersion = 8;
  key.LibIs64Bit = TRUE;
  key.RSAHashALg = VEL_HASH_ALG_SHA256;
  key.SM2HashALg = VEL_HASH_ALG_SM3;
  key.Reference = 9;
  key.PVIDEnable = TRUE;
  memset(key.PVID, 'p', sizeof(key.PVID));
  return key;
}

void ExpectTakenOver(const tag_VEL_KEY_INFO_EX& key) {
  const tag_VEL_KEY_INFO_EX source = FilledKey();
  EXPECT_EQ(ULONG(key.KeyInfoVersion), 0x10000u);
  EXPECT_EQ(key.CryptoInterfaceType, source.CryptoInterfaceType);
  EXPECT_EQ(memcmp(key.InterfaceLibName, source.InterfaceLibName, 1024), 0);
  EXPECT_EQ(ULONG(key.LibVersion), 8u);
  EXPECT_EQ(key.LibIs64Bit, TRUE);
  EXPECT_EQ(key.RSAHashALg, VEL_HASH_ALG_SHA256);
  EXPECT_EQ(key.SM2HashALg, VEL_HASH_ALG_SM3);
  EXPECT_EQ(ULONG(key.Reference), 9u);
  EXPECT_EQ(key.PVIDEnable, FALSE);
  EXPECT_TRUE(AllZero(key.PVID, sizeof(key.PVID)));
}

TEST(KeyInfoEx, DefaultsAreThoseOfTheTable) {
  const tag_VEL_KEY_INFO_EX key;
  EXPECT_EQ(ULONG(key.KeyInfoVersion), 0x10000u);
  EXPECT_EQ(key.CryptoInterfaceType, VEL_CRYPTO_INTERFACE_TYPE_CSP);
  EXPECT_TRUE(AllZero(key.InterfaceLibName, sizeof(key.InterfaceLibName)));
  EXPECT_EQ(ULONG(key.LibVersion), 0u);
  EXPECT_EQ(key.LibIs64Bit, FALSE);
  EXPECT_EQ(key.RSAHashALg, VEL_HASH_ALG_UNKNOWN);
  EXPECT_EQ(key.SM2HashALg, VEL_HASH_ALG_UNKNOWN);
  EXPECT_EQ(ULONG(key.Reference), 1u);
  EXPECT_EQ(key.PVIDEnable, FALSE);
  EXPECT_TRUE(AllZero(key.PVID, sizeof(key.PVID)));
}

TEST(KeyInfoEx, AssignmentDropsTheVendorAndProductFilter) {
  tag_VEL_KEY_INFO_EX assigned;
  assigned.PVIDEnable = TRUE;
  Name(assigned, "a longer name that goes");
  assigned = FilledKey();
  ExpectTakenOver(assigned);
  tag_VEL_KEY_INFO_EX set;
  set.SetValue(FilledKey());
  ExpectTakenOver(set);
}

TEST(KeyInfoEx, CopyConstructionIsMemberByMember) {
  const tag_VEL_KEY_INFO_EX source = FilledKey();
  const tag_VEL_KEY_INFO_EX copy(source);
  EXPECT_EQ(memcmp(&copy, &source, sizeof(source)), 0);
}

TEST(KeyInfoEx, TakesOverAnOlderRecord) {
  tag_VEL_KEY_INFO old;
  old.Version = 3;
  old.CryptoInterfaceType = VEL_CRYPTO_INTERFACE_TYPE_P11;
  Name(old, "libp11.so");
  old.LibIs64Bit = TRUE;
  old.RSAHashALg = VEL_HASH_ALG_SHA1;
  old.SM2HashALg = VEL_HASH_ALG_SM3;
  old.Reference = 4;
  tag_VEL_KEY_INFO_EX key = FilledKey();
  key.SetValue(old);
  EXPECT_EQ(ULONG(key.KeyInfoVersion), 0x10000u);
  EXPECT_EQ(key.CryptoInterfaceType, VEL_CRYPTO_INTERFACE_TYPE_P11);
  EXPECT_STREQ(key.InterfaceLibName, "libp11.so");
  EXPECT_EQ(key.LibIs64Bit, TRUE);
  EXPECT_EQ(key.RSAHashALg, VEL_HASH_ALG_SHA1);
  EXPECT_EQ(key.SM2HashALg, VEL_HASH_ALG_SM3);
  EXPECT_EQ(ULONG(key.Reference), 4u);
  EXPECT_EQ(key.PVIDEnable, FALSE);
}

template <class Record>
class KeyRecords : public testing::Test {};
typedef testing::Types<tag_VEL_KEY_INFO, tag_VEL_KEY_INFO_EX> BothKeyRecords;
TYPED_TEST_SUITE(KeyRecords, BothKeyRecords, );

TYPED_TEST(KeyRecords, EqualByInterfaceAndLibraryNameAlone) {
  TypeParam a, b;
  Name(a, "lib.so");
  Name(b, "lib.so");
  b.RSAHashALg = VEL_HASH_ALG_SHA256;
  b.SM2HashALg = VEL_HASH_ALG_SM3;
  b.LibIs64Bit = TRUE;
  b.Reference = 5;
  EXPECT_TRUE(a == b);
  b.CryptoInterfaceType = VEL_CRYPTO_INTERFACE_TYPE_SKF;
  EXPECT_FALSE(a == b);
  b.CryptoInterfaceType = a.CryptoInterfaceType;
  Name(b, "LIB.so");
  EXPECT_FALSE(a == b);
  Name(b, "lib.so");
  b.InterfaceLibName[1023] = 'x';  // behind the terminator, and yet a byte of the name
  EXPECT_FALSE(a == b);
}

TYPED_TEST(KeyRecords, CountReferences) {
  TypeParam key;
  EXPECT_EQ(key.AddRef(), 2u);
  EXPECT_EQ(key.Release(), 1u);
  EXPECT_EQ(key.Release(), 0u);
  EXPECT_EQ(key.Release(), 0u);
}

TYPED_TEST(KeyRecords, RefreshKeepsTheIdentity) {
  TypeParam key, other;
  Name(key, "lib.so");
  Name(other, "other.so");
  other.CryptoInterfaceType = VEL_CRYPTO_INTERFACE_TYPE_PM;
  other.RSAHashALg = VEL_HASH_ALG_MD5;
  other.SM2HashALg = VEL_HASH_ALG_SM3;
  other.LibIs64Bit = TRUE;
  key.RefreshOtherInfo(other);
  EXPECT_STREQ(key.InterfaceLibName, "lib.so");
  EXPECT_EQ(key.CryptoInterfaceType, VEL_CRYPTO_INTERFACE_TYPE_CSP);
  EXPECT_EQ(key.RSAHashALg, VEL_HASH_ALG_MD5);
  EXPECT_EQ(key.SM2HashALg, VEL_HASH_ALG_SM3);
  EXPECT_EQ(key.LibIs64Bit, TRUE);
}

TEST(CertInfo, StartsEmpty) {
  const tag_VEL_CERT_INFO cert;
  for (const auto text : TEXTS) {
    EXPECT_STREQ(cert.*text, L"");
    EXPECT_EQ((cert.*text).GetSize(), 0);
  }
  EXPECT_TRUE(AllZero(&cert.EffectiveInfo, sizeof(SYSTEMTIME)));
  EXPECT_TRUE(AllZero(&cert.ExpiredInfo, sizeof(SYSTEMTIME)));
  EXPECT_EQ(PVOID(cert.CertificateHandle), nullptr);
  EXPECT_EQ(PVOID(cert.DeviceHandle), nullptr);
  EXPECT_EQ(cert.KeySpec, VEL_KEY_SPEC_UNKNOWN);
  EXPECT_EQ(cert.AsymmAlg, VEL_ASYMM_ALG_UNKNOWN);
  EXPECT_EQ(cert.RSAHashALg, VEL_HASH_ALG_UNKNOWN);
  EXPECT_EQ(cert.SM2HashALg, VEL_HASH_ALG_UNKNOWN);
  EXPECT_EQ(cert.CertKeyStatus, VEL_CERT_HAVE_UNKNOWN);
  EXPECT_EQ(ULONG(cert.KeyUsage), 0u);
  EXPECT_EQ(cert.CryptoInterfaceType, VEL_CRYPTO_INTERFACE_TYPE_UNKNOWN);
}

tag_VEL_CERT_INFO FilledCert() {
  static int certificate, device;
  tag_VEL_CERT_INFO cert;
  std::wstring value = L"a";
  for (const auto text : TEXTS) {
    cert.*text = value.c_str();
    ++value[0];
  }
  cert.EffectiveInfo = {2024, 1, 2, 3, 4, 5, 6, 7};
  cert.ExpiredInfo = {2034, 2, 3, 4, 5, 6, 7, 8};
  cert.CertKeyStatus = VEL_CERT_HAVE_CERT_AND_KEYPAIR;
  cert.AsymmAlg = VEL_ASYMM_ALG_SM2;
  cert.RSAHashALg = VEL_HASH_ALG_SHA1;
  cert.SM2HashALg = VEL_HASH_ALG_SM3;
  cert.KeySpec = VEL_KEY_SPEC_EXCHANGE;
  cert.KeyUsage = 0x8000000000000001;
  cert.CryptoInterfaceType = VEL_CRYPTO_INTERFACE_TYPE_P11;
  cert.CertificateHandle = &certificate;
  cert.DeviceHandle = &device;
  return cert;
}

void ExpectSame(const tag_VEL_CERT_INFO& a, const tag_VEL_CERT_INFO& b) {
  for (const auto text : TEXTS) {
    EXPECT_STREQ(a.*text, b.*text);
    EXPECT_NE(static_cast<const wchar_t*>(a.*text), static_cast<const wchar_t*>(b.*text));
  }
  EXPECT_EQ(memcmp(&a.EffectiveInfo, &b.EffectiveInfo, sizeof(SYSTEMTIME)), 0);
  EXPECT_EQ(memcmp(&a.ExpiredInfo, &b.ExpiredInfo, sizeof(SYSTEMTIME)), 0);
  EXPECT_EQ(a.CertKeyStatus, b.CertKeyStatus);
  EXPECT_EQ(a.AsymmAlg, b.AsymmAlg);
  EXPECT_EQ(a.RSAHashALg, b.RSAHashALg);
  EXPECT_EQ(a.SM2HashALg, b.SM2HashALg);
  EXPECT_EQ(a.KeySpec, b.KeySpec);
  EXPECT_EQ(ULONG(a.KeyUsage), ULONG(b.KeyUsage));
  EXPECT_EQ(a.CryptoInterfaceType, b.CryptoInterfaceType);
  EXPECT_EQ(PVOID(a.CertificateHandle), PVOID(b.CertificateHandle));
  EXPECT_EQ(PVOID(a.DeviceHandle), PVOID(b.DeviceHandle));
}

TEST(CertInfo, CopyAndAssignmentCopyEveryField) {
  const tag_VEL_CERT_INFO cert = FilledCert();
  const tag_VEL_CERT_INFO copy(cert);
  ExpectSame(copy, cert);
  tag_VEL_CERT_INFO assigned;
  assigned = cert;
  ExpectSame(assigned, cert);
}

TEST(CertInfo, EqualityLooksAtSevenFieldsAndFoldsTheTexts) {
  const tag_VEL_CERT_INFO cert = FilledCert();
  for (const auto text : TEXTS) {
    tag_VEL_CERT_INFO other = cert;
    std::wstring upper(other.*text);
    upper[0] = static_cast<wchar_t>(upper[0] - L'a' + L'A');
    other.*text = upper.c_str();
    EXPECT_TRUE(cert == other);
    other.*text = L"other";
    const bool counts =
        text == &tag_VEL_CERT_INFO::IssuerDN || text == &tag_VEL_CERT_INFO::SerialNumber ||
        text == &tag_VEL_CERT_INFO::InterfaceLibName || text == &tag_VEL_CERT_INFO::Version;
    EXPECT_EQ(cert == other, !counts);
  }
  const struct {
    void (*change)(tag_VEL_CERT_INFO&);
    bool counts;
  } changes[] = {
      {[](tag_VEL_CERT_INFO& c) { c.CryptoInterfaceType = VEL_CRYPTO_INTERFACE_TYPE_PM; }, true},
      {[](tag_VEL_CERT_INFO& c) { c.AsymmAlg = VEL_ASYMM_ALG_RSA; }, true},
      {[](tag_VEL_CERT_INFO& c) { c.RSAHashALg = VEL_HASH_ALG_MD2; }, true},
      {[](tag_VEL_CERT_INFO& c) { c.SM2HashALg = VEL_HASH_ALG_MD2; }, false},
      {[](tag_VEL_CERT_INFO& c) { c.KeySpec = VEL_KEY_SPEC_SIGNATURE; }, false},
      {[](tag_VEL_CERT_INFO& c) { c.KeyUsage = 0; }, false},
      {[](tag_VEL_CERT_INFO& c) { c.CertKeyStatus = VEL_CERT_HAVE_CERT_ONLY; }, false},
      {[](tag_VEL_CERT_INFO& c) { c.EffectiveInfo.wYear = 1; }, false},
      {[](tag_VEL_CERT_INFO& c) { c.ExpiredInfo.wYear = 1; }, false},
      {[](tag_VEL_CERT_INFO& c) { c.CertificateHandle = nullptr; }, false},
      {[](tag_VEL_CERT_INFO& c) { c.DeviceHandle = nullptr; }, false}};
  for (const auto& change : changes) {
    tag_VEL_CERT_INFO other = cert;
    change.change(other);
    EXPECT_EQ(cert == other, !change.counts);
  }
}

TEST(CertInfo, TellsItsSerialNumber) {
  tag_VEL_CERT_INFO cert;
  cert.SerialNumber = L"0aFf";
  EXPECT_TRUE(cert.GetVELCertSN(L"0AfF"));
  EXPECT_FALSE(cert.GetVELCertSN(L"0aF"));
}

TEST(FilterItem, StartsAsIssuerFilterAndNotAsUnknown) {
  const tag_VEL_CERT_FILTER_ITEM item;
  EXPECT_EQ(item.Type, 0);
  EXPECT_EQ(item.Type, VEL_CERT_FILTER_ISSUER_DN);
  EXPECT_NE(item.Type, VEL_CERT_FILTER_UNKNOWN);
  EXPECT_STREQ(item.Value, L"");
}

TEST(FilterItem, EqualByTypeAndExactValue) {
  const tag_VEL_CERT_FILTER_ITEM item(VEL_CERT_FILTER_EMAIL, L"a@b");
  EXPECT_TRUE(item == tag_VEL_CERT_FILTER_ITEM(item));
  EXPECT_FALSE(item == tag_VEL_CERT_FILTER_ITEM(VEL_CERT_FILTER_EMAIL, L"A@b"));
  EXPECT_FALSE(item == tag_VEL_CERT_FILTER_ITEM(VEL_CERT_FILTER_BASE64, L"a@b"));
}

TEST(Enumerations, HaveTheirValues) {
  const int hashes[] = {VEL_HASH_ALG_UNKNOWN, VEL_HASH_ALG_MD2,    VEL_HASH_ALG_MD5,
                        VEL_HASH_ALG_SHA1,    VEL_HASH_ALG_SHA256, VEL_HASH_ALG_SHA512,
                        VEL_HASH_ALG_SM3};
  for (int i = 0; i < 7; ++i) EXPECT_EQ(hashes[i], i);
  const int algorithms[] = {VEL_ASYMM_ALG_UNKNOWN, VEL_ASYMM_ALG_RSA, VEL_ASYMM_ALG_SM2,
                            VEL_ASYMM_ALG_PM};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(algorithms[i], i);
  EXPECT_EQ(VEL_CRYPTO_INTERFACE_TYPE_UNKNOWN, 0);
  EXPECT_EQ(VEL_CRYPTO_INTERFACE_TYPE_CSP, 1);
  EXPECT_EQ(VEL_CRYPTO_INTERFACE_TYPE_SKF, 101);
  const int p11[] = {VEL_CRYPTO_INTERFACE_TYPE_P11,        VEL_CRYPTO_INTERFACE_TYPE_P11_GA_NOM,
                     VEL_CRYPTO_INTERFACE_TYPE_P11_GA_BAK, VEL_CRYPTO_INTERFACE_TYPE_P11_PLA1,
                     VEL_CRYPTO_INTERFACE_TYPE_P11_PLA2,   VEL_CRYPTO_INTERFACE_TYPE_P11_PLA3,
                     VEL_CRYPTO_INTERFACE_TYPE_P11_FIN56,  VEL_CRYPTO_INTERFACE_TYPE_PM};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(p11[i], 201 + i);
  const int specs[] = {VEL_KEY_SPEC_UNKNOWN, VEL_KEY_SPEC_SIGNATURE, VEL_KEY_SPEC_EXCHANGE,
                       VEL_KEY_SPEC_SIGNATURE_AND_EXCHANGE};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(specs[i], i);
  EXPECT_EQ(VEL_CERT_HAVE_UNKNOWN, 0);
  EXPECT_EQ(VEL_CERT_HAVE_CERT_ONLY, 2);
  EXPECT_EQ(VEL_CERT_HAVE_KEYPAIR_ONLY, 3);
  EXPECT_EQ(VEL_CERT_HAVE_CERT_AND_KEYPAIR, 4);
  const int filters[] = {VEL_CERT_FILTER_ISSUER_DN,
                         VEL_CERT_FILTER_SUBJECT_SN,
                         VEL_CERT_FILTER_SUBJECT_DN,
                         VEL_CERT_FILTER_EMAIL,
                         VEL_CERT_FILTER_BASE64,
                         VEL_CERT_FILTER_KEY_SPEC,
                         VEL_CERT_FILTER_KEY_ATTR_TYPE,
                         VEL_CERT_FILTER_LIBNAME,
                         VEL_CERT_FILTER_TIME_VALID_TYPE,
                         VEL_CERT_FILTER_KEY_USAGE,
                         VEL_CERT_FILTER_KEY_INTERFACE_TYPE,
                         VEL_CERT_FILTER_CERTNAME_TYPE,
                         VEL_CERT_FILTER_DOUBLE_ATTR_SIGNATURE_AND_EXCHANGE};
  for (int i = 0; i < 13; ++i) EXPECT_EQ(filters[i], i);
  EXPECT_EQ(VEL_CERT_FILTER_UNKNOWN, 65535);
}

TEST(Enumerations, OfOperationsHaveTheirValues) {
  const int pins[] = {VEL_PIN_CODE_TYPE_UNKNOWN, VEL_PIN_CODE_TYPE_ADMIN, VEL_PIN_CODE_TYPE_USER};
  for (int i = 0; i < 3; ++i) EXPECT_EQ(pins[i], i);
  const int pinOperations[] = {VEL_PIN_CODE_OPER_TYPE_UNKNOWN, VEL_PIN_CODE_OPER_TYPE_LOGIN,
                               VEL_PIN_CODE_OPER_TYPE_LOGOUT, VEL_PIN_CODE_OPER_TYPE_CHANGE_PIN,
                               VEL_PIN_CODE_OPER_TYPE_GET_PIN_INFO};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(pinOperations[i], i);
  const int actions[] = {VEL_DEVICE_MANAGER_ACTION_UNKNOWN,
                         VEL_DEVICE_MANAGER_ACTION_P1SIGN,
                         VEL_DEVICE_MANAGER_ACTION_P7_ATTACH_SIGN,
                         VEL_DEVICE_MANAGER_ACTION_P7_DETACH_SIGN,
                         VEL_DEVICE_MANAGER_ACTION_P1_VERIFY_SIGN,
                         VEL_DEVICE_MANAGER_ACTION_P7_ATTACH_VERIFY_SIGN,
                         VEL_DEVICE_MANAGER_ACTION_P7_DETACH_VERIFY_SIGN,
                         VEL_DEVICE_MANAGER_ACTION_ENCRYPT,
                         VEL_DEVICE_MANAGER_ACTION_DECRYPT,
                         VEL_DEVICE_MANAGER_ACTION_P7_ENVELOPE};
  for (int i = 0; i < 10; ++i) EXPECT_EQ(actions[i], i);
  const int operations[] = {VEL_CRYPTO_OPER_TYPE_UNKNOWN, VEL_CRYPTO_OPER_TYPE_ENCRYPT,
                            VEL_CRYPTO_OPER_TYPE_DECRYPT, VEL_CRYPTO_OPER_TYPE_SIGNATURE,
                            VEL_CRYPTO_OPER_TYPE_VERSIGN};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(operations[i], i);
  const int modes[] = {VEL_SYMM_ENCRYPTO_MODE_UNKNOWN, VEL_SYMM_ENCRYPTO_MODE_HARD,
                       VEL_SYMM_ENCRYPTO_MODE_HARD_AND_SOFT, VEL_SYMM_ENCRYPTO_MODE_SOFT};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(modes[i], i);
  const int changes[] = {VEL_KEY_CHANGE_INFO_TYPE_UNKNOWN, VEL_KEY_CHANGE_INFO_TYPE_KEY_ARRIVAL,
                         VEL_KEY_CHANGE_INFO_TYPE_KEY_REMOVE, VEL_KEY_CHANGE_INFO_TYPE_CERT};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(changes[i], i);
}

TEST(Enumerations, SymmetricAlgorithmsCountUpWithoutGaps) {
#define ALG(name) VEL_SYMM_ENCRYPT_ALG_##name
  const int algorithms[] = {
      ALG(UNKNOWN),   ALG(RC2_ECB),   ALG(RC2_CBC),   ALG(RC2_MAC),   ALG(RC4),
      ALG(DES_ECB),   ALG(DES_CBC),   ALG(DES_MAC),   ALG(DES_OFB64), ALG(DES_OFB8),
      ALG(DES_CFB64), ALG(DES_CFB8),  ALG(DES3_ECB),  ALG(DES3_CBC),  ALG(DES3_MAC),
      ALG(CDMF_ECB),  ALG(CDMF_CBC),  ALG(CDMF_MAC),  ALG(SCB2_ECB),  ALG(SCB2_CBC),
      ALG(SCB2_CFB),  ALG(SCB2_OFB),  ALG(SCB2_MAC),  ALG(SSF33_ECB), ALG(SSF33_CBC),
      ALG(SSF33_CFB), ALG(SSF33_OFB), ALG(SSF33_MAC), ALG(SM1_ECB),   ALG(SM1_CBC),
      ALG(SM1_CFB),   ALG(SM1_OFB),   ALG(SM1_MAC),   ALG(SM4_ECB),   ALG(SM4_CBC),
      ALG(SM4_CFB),   ALG(SM4_OFB),   ALG(SM4_MAC),   ALG(AES_ECB),   ALG(AES_CBC),
      ALG(AES_CFB),   ALG(AES_OFB),   ALG(AES_MAC),   ALG(SM1),       ALG(SM4)};
#undef ALG
  for (int i = 0; i < 45; ++i) EXPECT_EQ(algorithms[i], i);
}

TEST(Names, OfHashAlgorithms) {
  const wchar_t* const names[] = {L"UNKNOWN", L"MD2",     L"MD5", L"SHA1",
                                  L"SHA256",  L"UNKNOWN", L"SM3", L"UNKNOWN"};
  for (int i = 0; i < 8; ++i) EXPECT_STREQ(StrHashAlg(static_cast<VEL_HASH_ALG>(i)), names[i]);
  EXPECT_STREQ(StrHashAlg(static_cast<VEL_HASH_ALG>(-1)), L"UNKNOWN");
}

TEST(Names, OfKeyAlgorithms) {
  const wchar_t* const names[] = {L"UNKNOWN", L"RSA", L"SM2", L"PM", L"UNKNOWN"};
  for (int i = 0; i < 5; ++i) EXPECT_STREQ(StrAsymmAlg(static_cast<VEL_ASYMM_ALG>(i)), names[i]);
}

struct Known {
  const wchar_t* name;
  int value;
};
const Known HASHES[] = {{L"MD2", 1},    {L"MD5", 2},    {L"SHA1", 3},
                        {L"SHA256", 4}, {L"SHA512", 5}, {L"SM3", 6}};
const Known INTERFACES[] = {{L"SKF11", 101},      {L"SKF", 101},      {L"P11", 201},
                            {L"CSP", 1},          {L"GA_NOM", 202},   {L"PLA1", 204},
                            {L"P11_GA_NOM", 202}, {L"GA_BAK", 203},   {L"P11_GA_BAK", 203},
                            {L"PLA2", 205},       {L"P11_PLA1", 204}, {L"PLA3", 206},
                            {L"P11_PLA2", 205},   {L"FIN56", 207},    {L"P11_PLA3", 206},
                            {L"P11_FIN56", 207},  {L"PM", 208}};

// Every spelling of a known name in small and large letters, and its neighbours that are none.
template <class Function, size_t N>
void ExpectNames(Function function, const Known (&known)[N]) {
  for (const Known& entry : known) {
    std::wstring name = entry.name, lower, mixed;
    for (const wchar_t c : name) {
      const bool letter = c >= L'A' && c <= L'Z';
      lower += letter ? c + 32 : c;
      mixed += letter && mixed.size() % 2 ? c + 32 : c;
    }
    for (const auto& spelling : {name, lower, mixed})
      EXPECT_EQ(function(spelling.c_str()), entry.value) << lower.size();
    for (const auto& wrong : {name + L" ", L" " + name, name + L"x", L"x" + name,
                              name.substr(0, 1) + L"-" + name.substr(1)})
      EXPECT_EQ(function(wrong.c_str()), 0);
  }
  EXPECT_EQ(function(L""), 0);
  EXPECT_EQ(function(nullptr), 0);
  EXPECT_EQ(function(L"UNKNOWN"), 0);
}

TEST(Names, AreReadWholeAndInEitherCase) {
  for (const char* locale : {"C", "C.UTF-8", "tr_TR.UTF-8"}) {
    setlocale(LC_ALL, locale);  // in Turkish the small letter of I is another one
    ExpectNames(EnumHashAlg, HASHES);
    ExpectNames(EnumCryptoInterfaceType, INTERFACES);
    EXPECT_EQ(EnumHashAlg(L"sha-256"), 0);
    EXPECT_EQ(EnumCryptoInterfaceType(L"P11_PM"), 0);
    EXPECT_EQ(EnumCryptoInterfaceType(L"P11_SKF"), 0);
  }
  setlocale(LC_ALL, "C");
}

}  // namespace
