#include "CertFacts.h"

#include <gmock/gmock.h>
#include <openssl/asn1.h>
#include <openssl/sha.h>
#include <time.h>

#include <algorithm>

#include "KeyMaker.h"

using keymaker::Bytes;

namespace {

velcrypto::CertFactsPtr FactsFor(const keymaker::Request& request,
                                 const keymaker::Identity* issuer = nullptr) {
  const keymaker::Identity identity = keymaker::Make(request, issuer);
  return velcrypto::FactsOf(identity.certificate.get());
}

std::wstring Text(const CVelStringW& text) {
  return static_cast<const wchar_t*>(text);
}

// A certificate whose subject CN is a string of this ASN.1 type and these bytes.
velcrypto::CertFactsPtr WithRawName(int type, const Bytes& bytes) {
  const keymaker::Identity identity = keymaker::Make({});
  X509* const certificate = identity.certificate.get();
  X509_NAME* const name = X509_NAME_new();
  X509_NAME_add_entry_by_NID(name, NID_commonName, type, bytes.data(),
                             static_cast<int>(bytes.size()), -1, 0);
  X509_set_subject_name(certificate, name);
  X509_NAME_free(name);
  X509_sign(certificate, identity.key.get(), EVP_sha256());
  return velcrypto::FactsOf(certificate);
}

}  // namespace

TEST(CertFacts, NamesAreReadableUtf8InBothOrders) {
  keymaker::Request root;
  root.subject = {{"C", "CN"}, {"O", "北京, 测试+机构"}, {"CN", "根证书"}};
  const keymaker::Identity issuer = keymaker::Make(root);
  keymaker::Request request;
  request.subject = {{"C", "CN"}, {"O", "测试机构"}, {"CN", "张三"}};
  const auto facts = FactsFor(request, &issuer);
  EXPECT_EQ(Text(facts->record.SubjectDN), L"CN=张三,O=测试机构,C=CN");
  EXPECT_EQ(Text(facts->record.SubjectCN), L"张三");
  EXPECT_EQ(Text(facts->record.IssuerDN), L"CN=根证书,O=北京\\, 测试\\+机构,C=CN");
  EXPECT_EQ(Text(facts->record.IssuerReverseDN), L"C=CN,O=北京\\, 测试\\+机构,CN=根证书");
  EXPECT_EQ(Text(facts->record.IssuerCN), L"根证书");
}

TEST(CertFacts, OldStringTypesAreDecoded) {
  const Bytes utf8 = {0xE5, 0xBC, 0xA0, 0xE4, 0xB8, 0x89};  // 张三
  const Bytes gbk = {0xD5, 0xC5, 0xC8, 0xFD};
  const Bytes bmp = {0x5F, 0x20, 0x4E, 0x09};
  const struct {
    int type;
    Bytes bytes;
  } cases[] = {{V_ASN1_UTF8STRING, utf8},     {V_ASN1_BMPSTRING, bmp},
               {V_ASN1_T61STRING, utf8},      {V_ASN1_T61STRING, gbk},
               {V_ASN1_PRINTABLESTRING, gbk}, {V_ASN1_PRINTABLESTRING, utf8}};
  for (const auto& item : cases) {
    const auto facts = WithRawName(item.type, item.bytes);
    EXPECT_EQ(Text(facts->record.SubjectCN), L"张三") << item.type;
    EXPECT_EQ(Text(facts->record.SubjectDN), L"CN=张三") << item.type;
  }
}

TEST(CertFacts, BytesOfNoKnownCharacterSetAreLatin1) {
  const auto facts = WithRawName(V_ASN1_T61STRING, {'c', 'a', 'f', 0xE9});
  EXPECT_EQ(Text(facts->record.SubjectCN), L"café");
}

TEST(CertFacts, CharactersOutsideTheBasicPlaneAreKept) {
  keymaker::Request request;
  request.subject = {{"CN", "𠮷野家"}};
  EXPECT_EQ(Text(FactsFor(request)->record.SubjectDN), L"CN=𠮷野家");
}

TEST(CertFacts, TheMostSpecificCommonNameCounts) {
  keymaker::Request request;
  request.subject = {{"CN", "department"}, {"CN", "张三"}};
  EXPECT_EQ(Text(FactsFor(request)->record.SubjectCN), L"张三");
  request.subject = {{"O", "no common name"}};
  EXPECT_EQ(Text(FactsFor(request)->record.SubjectCN), L"");
}

TEST(CertFacts, SerialNumberHasTwoUpperCaseDigitsAByte) {
  keymaker::Request request;
  const std::pair<const char*, const wchar_t*> cases[] = {
      {"0", L"00"},
      {"1", L"01"},
      {"abc", L"0ABC"},
      {"80", L"80"},
      {"ffffffffffffffffffffffffffffffffffffffff", L"FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF"}};
  for (const auto& item : cases) {
    request.serial = item.first;
    EXPECT_EQ(Text(FactsFor(request)->record.SerialNumber), item.second);
  }
}

TEST(CertFacts, UniqueIdAndBase64AreOfTheDerForm) {
  const keymaker::Identity identity = keymaker::Make({});
  const auto facts = velcrypto::FactsOf(identity.certificate.get());
  const Bytes der = identity.Der();
  EXPECT_EQ(facts->der, der);
  unsigned char hash[SHA256_DIGEST_LENGTH];
  SHA256(der.data(), der.size(), hash);
  std::wstring hex;
  for (const unsigned char byte : hash) {
    wchar_t digits[3];
    swprintf(digits, 3, L"%02X", byte);
    hex += digits;
  }
  EXPECT_EQ(Text(facts->record.VELCertUniqueID), hex);
  std::string base64((der.size() + 2) / 3 * 4 + 1, '\0');
  EVP_EncodeBlock(reinterpret_cast<unsigned char*>(base64.data()), der.data(),
                  static_cast<int>(der.size()));
  base64.pop_back();
  EXPECT_EQ(Text(facts->record.CertBase64), std::wstring(base64.begin(), base64.end()));
}

TEST(CertFacts, TimesAreUtc) {
  setenv("TZ", "Asia/Shanghai", 1);
  tzset();
  const keymaker::Identity identity = keymaker::Make({});
  X509* const certificate = identity.certificate.get();
  ASN1_TIME_set_string(X509_getm_notBefore(certificate), "240229235958Z");
  ASN1_TIME_set_string(X509_getm_notAfter(certificate), "20500101000000Z");
  X509_sign(certificate, identity.key.get(), EVP_sha256());
  const auto facts = velcrypto::FactsOf(certificate);
  const SYSTEMTIME& from = facts->record.EffectiveInfo;
  EXPECT_EQ(from.wYear, 2024);
  EXPECT_EQ(from.wMonth, 2);
  EXPECT_EQ(from.wDay, 29);
  EXPECT_EQ(from.wDayOfWeek, 4);
  EXPECT_EQ(from.wHour, 23);
  EXPECT_EQ(from.wMinute, 59);
  EXPECT_EQ(from.wSecond, 58);
  EXPECT_EQ(facts->record.ExpiredInfo.wYear, 2050);
  EXPECT_EQ(facts->notBefore, 1709251198);
  EXPECT_EQ(facts->notAfter, 2524608000);
  setenv("TZ", "UTC", 1);
  tzset();
}

TEST(CertFacts, KeyUsageBit0IsDigitalSignature) {
  keymaker::Request request;
  const std::pair<const char*, DWORD> cases[] = {
      {"digitalSignature", 1}, {"nonRepudiation", 2},
      {"keyEncipherment", 4},  {"dataEncipherment", 8},
      {"keyAgreement", 16},    {"keyCertSign", 32},
      {"cRLSign", 64},         {"encipherOnly", 128},
      {"decipherOnly", 256},   {"digitalSignature,decipherOnly", 257}};
  for (const auto& item : cases) {
    request.keyUsage = item.first;
    const auto facts = FactsFor(request);
    EXPECT_TRUE(facts->hasKeyUsage);
    EXPECT_EQ(DWORD{facts->record.KeyUsage}, item.second) << item.first;
  }
  request.keyUsage.clear();
  EXPECT_FALSE(FactsFor(request)->hasKeyUsage);
  EXPECT_EQ(FactsFor(request)->record.KeySpec, VEL_KEY_SPEC_SIGNATURE_AND_EXCHANGE);
}

TEST(CertFacts, AlgorithmsAreToldApart) {
  keymaker::Request request;
  EXPECT_EQ(FactsFor(request)->record.AsymmAlg, VEL_ASYMM_ALG_RSA);
  request.kind = keymaker::Kind::kSm2;
  EXPECT_EQ(FactsFor(request)->record.AsymmAlg, VEL_ASYMM_ALG_SM2);
  request.kind = keymaker::Kind::kP256;
  EXPECT_EQ(FactsFor(request)->record.AsymmAlg, VEL_ASYMM_ALG_UNKNOWN);
  EXPECT_EQ(Text(FactsFor(request)->record.Version), L"3");
}

// Newer certificates name the key's algorithm by the SM2 identifier instead of id-ecPublicKey.
TEST(CertFacts, BothIdentifiersOfSm2KeysAreKnown) {
  keymaker::Request request;
  request.kind = keymaker::Kind::kSm2;
  Bytes der = keymaker::Make(request).Der();
  const Bytes usual = {0x30, 0x13, 0x06, 0x07, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x02, 0x01};
  const Bytes newer = {0x30, 0x14, 0x06, 0x08, 0x2A, 0x81, 0x1C, 0xCF, 0x55, 0x01, 0x82, 0x2D};
  const auto found = std::search(der.begin(), der.end(), usual.begin(), usual.end());
  ASSERT_NE(found, der.end());
  const auto at = found - der.begin();
  ++der[static_cast<size_t>(at) - 1];  // the lengths around: key, body, certificate
  ASSERT_EQ(der[1], 0x82);
  ++der[3];
  ASSERT_EQ(der[5], 0x81);
  ++der[6];
  der.erase(der.begin() + at, der.begin() + at + static_cast<long>(usual.size()));
  der.insert(der.begin() + at, newer.begin(), newer.end());
  const velcrypto::X509Ptr certificate = velcrypto::ParseCertificate(der.data(), der.size());
  ASSERT_NE(certificate, nullptr);
  EXPECT_EQ(velcrypto::FactsOf(certificate.get())->record.AsymmAlg, VEL_ASYMM_ALG_SM2);
}

TEST(CertFacts, EmailComesFromTheSubjectElseFromTheAlternativeNames) {
  keymaker::Request request;
  EXPECT_EQ(Text(FactsFor(request)->record.SubjectEmail), L"");
  request.altName = "DNS:example.cn,email:alt@example.cn";
  EXPECT_EQ(Text(FactsFor(request)->record.SubjectEmail), L"alt@example.cn");
  request.subject.emplace_back("emailAddress", "zs@example.cn");
  EXPECT_EQ(Text(FactsFor(request)->record.SubjectEmail), L"zs@example.cn");
  EXPECT_EQ(FactsFor(request)->emails.size(), 2u);
}
