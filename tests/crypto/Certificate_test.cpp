// The certificate object, through the factories.
#include <gmock/gmock.h>
#include <openssl/pem.h>

#include "Library.h"

using keymaker::Bytes;

namespace {

keymaker::Identity Sample() {
  keymaker::Request root;
  root.subject = {{"C", "CN"},
                  {"ST", "北京"},
                  {"L", "海淀"},
                  {"O", "机构"},
                  {"OU", "认证中心"},
                  {"CN", "根"},
                  {"emailAddress", "ca@example.cn"}};
  const keymaker::Identity issuer = keymaker::Make(root);
  keymaker::Request request;
  request.kind = keymaker::Kind::kSm2;
  request.serial = "0A1B2C";
  request.keyUsage = "digitalSignature";
  request.altName = "email:zs@example.cn";
  return keymaker::Make(request, &issuer);
}

}  // namespace

TEST(Certificate, ReadsDerAndPem) {
  Library library;
  auto certificate = library.NewCertificate();
  const keymaker::Identity identity = Sample();
  const Bytes der = identity.Der();
  ASSERT_EQ(certificate->CreateFromMemory(der.data(), der.size(), nullptr), 0u);
  EXPECT_STREQ(certificate->GetSubjectCN(), "张三");
  BIO* const pem = BIO_new(BIO_s_mem());
  PEM_write_bio_X509(pem, identity.certificate.get());
  char* text = nullptr;
  const long size = BIO_get_mem_data(pem, &text);
  EXPECT_EQ(certificate->CreateFromMemory(reinterpret_cast<BYTE*>(text), static_cast<DWORD>(size),
                                          nullptr),
            0u);
  BIO_free(pem);
  Bytes raw(der.size());
  EXPECT_EQ(certificate->GetRawCertData(raw.data(), raw.size()), 0u);
  EXPECT_EQ(raw, der);
  EXPECT_EQ(certificate->GetRawCertData(raw.data(), raw.size() - 1), 0xE0000004u);
}

TEST(Certificate, TellsItsFields) {
  Library library;
  auto certificate = library.NewCertificate();
  const Bytes der = Sample().Der();
  ASSERT_EQ(certificate->CreateFromMemory(der.data(), der.size(), nullptr), 0u);
  EXPECT_STREQ(certificate->GetSubject(FALSE), "CN=张三,C=CN");
  EXPECT_STREQ(certificate->GetSubject(TRUE), "C=CN,CN=张三");
  EXPECT_STREQ(certificate->GetSerialNumber('\0'), "0A1B2C");
  EXPECT_STREQ(certificate->GetSerialNumber(' '), "0A 1B 2C");
  EXPECT_STREQ(certificate->GetIssuerC(), "CN");
  EXPECT_STREQ(certificate->GetIssuerS(), "北京");
  EXPECT_STREQ(certificate->GetIssuerL(), "海淀");
  EXPECT_STREQ(certificate->GetIssuerO(), "机构");
  EXPECT_STREQ(certificate->GetIssuerOU(), "认证中心");
  EXPECT_STREQ(certificate->GetIssuerCN(), "根");
  EXPECT_STREQ(certificate->GetIssuerEmail(), "ca@example.cn");
  EXPECT_STREQ(certificate->GetSubjectEmail(), "zs@example.cn");
  EXPECT_STREQ(certificate->GetVersion(), "3");
  EXPECT_STREQ(certificate->GetKeyAlgorithm(), "SM2");
  EXPECT_EQ(certificate->GetAsymmAlg(), VEL_ASYMM_ALG_SM2);
  EXPECT_EQ(certificate->GetPublicKeyLength(), 256u);
  EXPECT_EQ(certificate->GetKeyUsage(), 1u);
  EXPECT_TRUE(certificate->IsSignatureCert());
  EXPECT_FALSE(certificate->IsEncryptionCert());
  EXPECT_FALSE(certificate->IsRootCert());
  EXPECT_TRUE(certificate->IsValid());
  EXPECT_FALSE(certificate->IsExpired());
  EXPECT_THAT(std::string(certificate->GetEffectiveDate()),
              testing::MatchesRegex("20..-..-.. ..:..:.."));
}

TEST(Certificate, TheSm2PublicKeyHasTheIdentifiersOfTheStandard) {
  Library library;
  auto certificate = library.NewCertificate();
  const Bytes der = Sample().Der();
  ASSERT_EQ(certificate->CreateFromMemory(der.data(), der.size(), nullptr), 0u);
  EXPECT_THAT(std::string(certificate->GetPublicKey('\0')),
              testing::StartsWith("3059301306072A8648CE3D020106082A811CCF5501822D03420004"));
  ULONG size = 0;
  ASSERT_EQ(certificate->GetPublicKey(nullptr, 0, &size), 0u);
  EXPECT_EQ(size, 91u);
}

TEST(Certificate, RubbishIsRefusedAndAnEmptyOneTellsNothing) {
  Library library;
  auto certificate = library.NewCertificate();
  const BYTE rubbish[] = {0x30, 0x82, 1};
  EXPECT_EQ(certificate->CreateFromMemory(rubbish, sizeof(rubbish), nullptr), 0xE0000003u);
  EXPECT_EQ(certificate->CreateFromMemory(nullptr, 3, nullptr), 0xE0000003u);
  EXPECT_STREQ(certificate->GetSubject(FALSE), "");
  EXPECT_STREQ(certificate->GetIssuerO(), "");
  EXPECT_STREQ(certificate->GetPublicKey('\0'), "");
  EXPECT_EQ(certificate->GetPublicKeyLength(), 0u);
  EXPECT_FALSE(certificate->IsValid());
  SYSTEMTIME time;
  EXPECT_EQ(certificate->GetEffectiveDate(&time), 0xE0000006u);
}
