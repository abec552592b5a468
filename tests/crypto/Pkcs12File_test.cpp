#include "keystore/Pkcs12File.h"

#include <gtest/gtest.h>

#include "KeyMaker.h"

using keymaker::Bytes;
using velcrypto::KeyPtr;
using velcrypto::Secret;

namespace {

const char kPin[] = "12345678";

class Pkcs12File : public testing::TestWithParam<keymaker::Kind> {
 protected:
  Pkcs12File() {
    keymaker::Request request;
    request.kind = GetParam();
    m_identity = keymaker::Make(request);
    m_certificate = m_identity.Der();
  }
  ULONG Open(const Bytes& file, const char* pin) {
    KeyPtr key;
    const velcrypto::Outcome outcome = velcrypto::OpenPkcs12Key(
        file, Secret(pin), m_certificate.data(), m_certificate.size(), &key);
    EXPECT_EQ(key != nullptr, outcome.ok());
    EXPECT_TRUE(key == nullptr || EVP_PKEY_eq(key.get(), m_identity.key.get()) == 1);
    return static_cast<ULONG>(outcome.code);
  }

  keymaker::Identity m_identity;
  Bytes m_certificate;
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Keys, Pkcs12File,
                         testing::Values(keymaker::Kind::kRsa, keymaker::Kind::kSm2));

TEST_P(Pkcs12File, OnlyTheRightPinOpensTheKey) {
  const Bytes file = keymaker::Pkcs12(m_identity, kPin);
  EXPECT_EQ(Open(file, kPin), 0u);
  EXPECT_EQ(Open(file, "1234567"), 0xE0000056u);
  EXPECT_EQ(Open(file, "123456789"), 0xE0000056u);
  EXPECT_EQ(Open(file, ""), 0xE0000056u);
}

TEST_P(Pkcs12File, AKeyThatIsNotTheCertificatesIsNotFound) {
  const Bytes file = keymaker::Pkcs12(m_identity, kPin);
  keymaker::Request request;
  request.kind = GetParam();
  m_certificate = keymaker::Make(request, nullptr, true).Der();
  EXPECT_EQ(Open(file, kPin), 0xE000002Cu);
}

TEST_P(Pkcs12File, AFileWithoutKeyHasNone) {
  keymaker::Pkcs12Options options;
  options.withKey = false;
  EXPECT_EQ(Open(keymaker::Pkcs12(m_identity, kPin, options), kPin), 0xE000002Cu);
}

TEST_P(Pkcs12File, DamageUnderTheMacIsNoRightPin) {
  const Bytes file = keymaker::Pkcs12(m_identity, kPin);
  for (size_t at = 40; at < file.size(); at += 97) {
    Bytes damaged = file;
    damaged[at] ^= 0x01;
    EXPECT_NE(Open(damaged, kPin), 0u) << at;
  }
}

TEST_P(Pkcs12File, ANewPinChangesNothingElse) {
  for (const bool encryptCertificates : {false, true}) {
    keymaker::Pkcs12Options options;
    options.encryptCertificates = encryptCertificates;
    options.issuers = {keymaker::Make({})};
    const Bytes file = keymaker::Pkcs12(m_identity, kPin, options);
    Bytes changed;
    ASSERT_TRUE(velcrypto::WithNewPin(file, Secret(kPin), Secret("新的口令"), &changed).ok());
    EXPECT_EQ(Open(changed, "新的口令"), 0u);
    EXPECT_EQ(Open(changed, kPin), 0xE0000056u);
    EXPECT_NE(keymaker::OpenPkcs12(changed, "新的口令"), nullptr) << "OpenSSL opens it too";
    velcrypto::Pkcs12Content before, after;
    ASSERT_TRUE(velcrypto::ReadPkcs12(file, &before).ok());
    ASSERT_TRUE(velcrypto::ReadPkcs12(changed, &after).ok());
    EXPECT_EQ(after.certificate == nullptr, encryptCertificates);
    EXPECT_EQ(after.hasKey, before.hasKey);
    EXPECT_EQ(after.issuers, before.issuers);
    Bytes again;
    ASSERT_TRUE(velcrypto::WithNewPin(changed, Secret("新的口令"), Secret(kPin), &again).ok())
        << "and it can be changed again";
    EXPECT_EQ(Open(again, kPin), 0u);
  }
}

TEST_P(Pkcs12File, AWrongOldPinGivesNoNewFile) {
  Bytes changed;
  EXPECT_FALSE(velcrypto::WithNewPin(keymaker::Pkcs12(m_identity, kPin), Secret("wrong"),
                                     Secret("87654321"), &changed)
                   .ok());
  EXPECT_TRUE(changed.empty());
}
