// vctk.hpp with the real device library and a key store; scripts/verify.sh verifies with openssl.
#include "vctk.hpp"

#include <gmock/gmock.h>

#include "Identities.h"
#include "Program.h"

using ::testing::HasSubstr;

namespace {

const char kKeyList[] =
    "<authinfo><liblist><lib type=\"CSP\"><algid val=\"SHA256\" sm2_hashalg=\"SM3\"/></lib>"
    "</liblist></authinfo>";
const std::string kContent("合同\0\r\n\xFF", 10);

const Identity& Rsa() {
  return SharedIdentities().Rsa();
}
const Identity& Sm2() {
  return SharedIdentities().Sm2();
}

class VctkHpp : public ::testing::Test {
 protected:
  VctkHpp() {
    PutInto(m_folder.File("keystore"), Rsa());
    PutInto(m_folder.File("keystore"), Sm2());
    setenv("VEL_KEYSTORE", m_folder.File("keystore").c_str(), 1);
  }

  void ExpectSigned(const std::string& kind, const std::string& base64,
                    const Identity& identity) const {
    WriteText(m_folder.File("signature"), OutputOf({"openssl", "base64", "-d", "-A"}, base64));
    WriteText(m_folder.File("content"), kContent);
    EXPECT_NO_THROW(
        OutputOf({PROJECT "/scripts/verify.sh", kind, m_folder.File("signature"),
                  m_folder.File("content"), identity.certificate, SharedIdentities().Authority()}));
  }

 private:
  TemporaryFolder m_folder;
};

// The error of a call that must fail.
template <typename Call>
vctk::Error Failure(Call call) {
  try {
    call();
  } catch (const vctk::Error& error) {
    return error;
  }
  ADD_FAILURE() << "nothing was thrown";
  return vctk::Error("", 0, "");
}

}  // namespace

TEST_F(VctkHpp, ListsNamesAndSerialNumbers) {
  vctk::Session session(kKeyList);
  const std::vector<vctk::Certificate> certificates = session.Certificates();
  ASSERT_EQ(certificates.size(), 2u);
  for (const Identity* identity : {&Rsa(), &Sm2()}) {
    const bool first = certificates[0].serial == identity->serial;
    const vctk::Certificate& certificate = certificates[first ? 0 : 1];
    EXPECT_EQ(certificate.serial, identity->serial);
    EXPECT_THAT(certificate.subject, HasSubstr(identity->name));
  }
}

TEST_F(VctkHpp, FiltersNarrowTheListAndNothingElse) {
  vctk::Session session(kKeyList);
  session.AddFilter(vctk::Filter::kCommonName, Sm2().name);
  ASSERT_EQ(session.Certificates().size(), 1u);
  EXPECT_EQ(session.Certificates()[0].serial, Sm2().serial);
  EXPECT_TRUE(session.Exists(Rsa().serial));
  EXPECT_FALSE(session.Exists("0123"));
  session.AddFilter(vctk::Filter::kSerial, Rsa().serial);
  EXPECT_TRUE(session.Certificates().empty());
  session.ClearFilters();
  EXPECT_EQ(session.Certificates().size(), 2u);
  EXPECT_EQ(Failure([&] { session.AddFilter(vctk::Filter::kSubject, ""); }).Code(), 0xE0000003);
}

TEST_F(VctkHpp, SignaturesOfBothKeysAreVerifiedByOpenssl) {
  for (const auto& [identity, type, digest] :
       {std::tuple(&Rsa(), "RSA", "SHA256"), std::tuple(&Sm2(), "SM2", "SM3")}) {
    vctk::Session session(kKeyList);
    session.Choose(identity->serial);
    EXPECT_EQ(session.KeyType(), type);
    EXPECT_EQ(session.Digest(), digest);
    EXPECT_EQ(OutputOf({"openssl", "base64", "-d", "-A"}, session.Base64Certificate()),
              OutputOf({"openssl", "x509", "-in", identity->certificate, "-outform", "DER"}));
    ExpectSigned("p7", session.SignPkcs7(kContent, Identities::kPin), *identity);
    ExpectSigned("detached",
                 session.SignPkcs7(kContent, Identities::kPin, vctk::Content::kDetached),
                 *identity);
    ExpectSigned("p1", session.SignPkcs1(kContent, identity->serial, Identities::kPin), *identity);
  }
}

TEST_F(VctkHpp, AWrongPinTellsCodeAndText) {
  vctk::Session session(kKeyList);
  session.Choose(Rsa().serial);
  const vctk::Error error = Failure([&] { session.SignPkcs7(kContent, "87654321"); });
  EXPECT_EQ(error.Code(), 0xE0000056);
  EXPECT_EQ(error.Text(), "您输入的PIN码错误，请重新输入,您还有9次机会");
  EXPECT_EQ(error.what(), "VCTK_P7SignStrEx: 0xE0000056 " + error.Text());
  ExpectSigned("p7", session.SignPkcs7(kContent, Identities::kPin), Rsa());
}

TEST_F(VctkHpp, NobodySignsWithAnotherCertificate) {
  vctk::Session session(kKeyList);
  session.Choose(Rsa().serial);
  session.Choose(Rsa().serial);
  EXPECT_THROW(session.Choose(Sm2().serial), std::logic_error);
  ExpectSigned("p7", session.SignPkcs7(kContent, Identities::kPin), Rsa());
}

TEST_F(VctkHpp, AFailedChoiceLeavesTheNextOneFree) {
  vctk::Session session(kKeyList);
  const vctk::Error error = Failure([&] { session.Choose("0123"); });
  EXPECT_EQ(error.Code(), 0xE0000061);
  EXPECT_NE(error.Text(), "");
  session.Choose(Sm2().serial);
  ExpectSigned("p7", session.SignPkcs7(kContent, Identities::kPin), Sm2());
}

TEST_F(VctkHpp, NothingChosenIsAnError) {
  vctk::Session session(kKeyList);
  EXPECT_EQ(Failure([&] { session.Base64Certificate(); }).Code(), 0xE0000001);
  EXPECT_EQ(Failure([&] { session.SignPkcs7(kContent, Identities::kPin); }).Code(), 0xE0000078);
}

TEST_F(VctkHpp, ThePinIsChanged) {
  vctk::Session session(kKeyList);
  session.Choose(Rsa().serial);
  session.ChangePin("", Identities::kPin, "新的PIN码");
  const vctk::Error error =
      Failure([&] { session.ChangePin(Rsa().serial, Identities::kPin, "another1"); });
  EXPECT_EQ(error.Code(), 0xE0000056);
  EXPECT_EQ(error.Text(), "");
  ExpectSigned("p7", session.SignPkcs7(kContent, "新的PIN码"), Rsa());
}

TEST_F(VctkHpp, AMovedSessionGoesOnElsewhere) {
  static_assert(!std::is_copy_constructible_v<vctk::Session>);
  static_assert(!std::is_copy_assignable_v<vctk::Session>);
  static_assert(std::is_nothrow_move_constructible_v<vctk::Session>);
  static_assert(std::is_nothrow_move_assignable_v<vctk::Session>);
  vctk::Session first(kKeyList);
  first.Choose(Rsa().serial);
  vctk::Session second(std::move(first));
  vctk::Session third(kKeyList);
  third = std::move(second);
  ExpectSigned("p7", third.SignPkcs7(kContent, Identities::kPin), Rsa());
  EXPECT_THROW(third.Choose(Sm2().serial), std::logic_error);
  EXPECT_EQ(second.Handle(), nullptr);
  EXPECT_EQ(Failure([&] { second.Certificates(); }).Code(), 0xFFFFFFFF);
  EXPECT_EQ(Failure([&] { second.SignPkcs1(kContent, "1", "1"); }).Code(), 0xFFFFFFFF);
}

TEST_F(VctkHpp, WhatIsNoKeyListBeginsNoSession) {
  for (const char* keyList : {"", "no XML", "<authinfo></authinfo>"}) {
    EXPECT_EQ(Failure([&] { vctk::Session session(keyList); }).Code(), 0xFFFFFFFF) << keyList;
  }
}

TEST_F(VctkHpp, HalfAPinIsNeverTried) {
  vctk::Session session(kKeyList);
  session.Choose(Rsa().serial);
  const std::string pin(Identities::kPin, 9);  // with the terminator
  EXPECT_THROW(session.SignPkcs7(kContent, pin), std::invalid_argument);
  EXPECT_THROW(session.ChangePin("", pin, "87654321"), std::invalid_argument);
}
