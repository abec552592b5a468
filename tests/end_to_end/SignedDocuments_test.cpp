// Whole signatures through the exported functions, the real device library and a key store; each
// is verified by the openssl program and by Botan.
#include <gmock/gmock.h>
#include <stdlib.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "BotanVerifier.h"
#include "Identities.h"
#include "Program.h"
#include "vctk.h"

using ::testing::HasSubstr;

namespace {

const char kKeyList[] =
    "<authinfo><liblist><lib type=\"CSP\" version=\"1\">"
    "<algid val=\"SHA256\" sm2_hashalg=\"SM3\"/></lib></liblist></authinfo>";

std::string Decoded(const std::string& base64) {
  return OutputOf({"openssl", "base64", "-d", "-A"}, base64);
}

std::string Encoded(const std::string& bytes) {
  return OutputOf({"openssl", "base64", "-A"}, bytes);
}

// A host with a key store of its own that holds an RSA and an SM2 identity.
class SignedDocuments : public ::testing::Test {
 protected:
  SignedDocuments() {
    PutInto(m_folder.File("keystore"), SharedIdentities().Rsa());
    PutInto(m_folder.File("keystore"), SharedIdentities().Sm2());
    setenv("VEL_KEYSTORE", m_folder.File("keystore").c_str(), 1);
    m_handle = VCTK_Initialize(kKeyList);
  }

  ~SignedDocuments() override { VCTK_Finalize(m_handle); }

  void SetUp() override { ASSERT_NE(m_handle, nullptr); }

  using Getter = int (*)(HANDLE, char*, int*);

  std::string Get(Getter getter) const {
    int length = 0;
    EXPECT_EQ(getter(m_handle, nullptr, &length), 0);
    std::string text(static_cast<size_t>(length), '\0');
    EXPECT_EQ(getter(m_handle, &text[0], &length), 0);
    text.resize(static_cast<size_t>(length));
    return text;
  }

  // The bare signature, in bytes.
  std::string Pkcs1(const Identity& identity, const std::string& content) const {
    EXPECT_EQ(VCTK_P1SignWithPin(m_handle, identity.serial.c_str(), Identities::kPin,
                                 Encoded(content).c_str(), 1),
              0);
    const auto answer = nlohmann::json::parse(Get(VCTK_GetP1SignResultWithPin));
    EXPECT_EQ(answer["result"], 0);
    return Decoded(answer["signdata"]);
  }

  // The structure in DER.
  std::string Pkcs7(const Identity& identity, const std::string& content, bool attached) const {
    EXPECT_EQ(VCTK_SetCert(m_handle, identity.serial.c_str()), 1);
    EXPECT_EQ(VCTK_SetPinCode(m_handle, Identities::kPin), 1);
    EXPECT_EQ(VCTK_P7SignStrEx(m_handle, Encoded(content).c_str(), 1, attached ? 0 : 1, 1), 0);
    return Decoded(Get(VCTK_GetP7SignResult));
  }

  void ExpectVerifiedByOpenSsl(const std::string& kind, const std::string& signature,
                               const std::string& content, const Identity& identity) const {
    WriteText(m_folder.File("signature"), signature);
    WriteText(m_folder.File("content"), content);
    EXPECT_NO_THROW(
        OutputOf({VERIFY_SCRIPT, kind, m_folder.File("signature"), m_folder.File("content"),
                  identity.certificate, SharedIdentities().Authority()}));
  }

  HANDLE Handle() const { return m_handle; }

 private:
  TemporaryFolder m_folder;
  HANDLE m_handle = nullptr;
};

const Identity& Rsa() {
  return SharedIdentities().Rsa();
}

const Identity& Sm2() {
  return SharedIdentities().Sm2();
}

// Chinese text, a line end, a zero byte and bytes that are no text.
const char kContractBytes[] = "甲方与乙方同意。\r\n\0\xFF\xFE";
const std::string kContract(kContractBytes, sizeof(kContractBytes) - 1);

}  // namespace

TEST_F(SignedDocuments, RsaPkcs1) {
  const std::string signature = Pkcs1(Rsa(), kContract);
  ExpectVerifiedByOpenSsl("p1", signature, kContract, Rsa());
  EXPECT_NO_THROW(VerifyBare(signature, kContract, ReadText(Rsa().certificate), "SHA-1"));
}

TEST_F(SignedDocuments, Sm2Pkcs1) {
  const std::string signature = Pkcs1(Sm2(), kContract);
  ExpectVerifiedByOpenSsl("p1", signature, kContract, Sm2());
  EXPECT_NO_THROW(VerifyBare(signature, kContract, ReadText(Sm2().certificate), ""));
}

TEST_F(SignedDocuments, RsaPkcs7Attached) {
  const std::string structure = Pkcs7(Rsa(), kContract, true);
  ExpectVerifiedByOpenSsl("p7", structure, kContract, Rsa());
  EXPECT_NO_THROW(VerifyPkcs7(structure, kContract, ReadText(Rsa().certificate), "SHA-256", true));
}

TEST_F(SignedDocuments, RsaPkcs7Detached) {
  const std::string structure = Pkcs7(Rsa(), kContract, false);
  ExpectVerifiedByOpenSsl("detached", structure, kContract, Rsa());
  EXPECT_NO_THROW(VerifyPkcs7(structure, kContract, ReadText(Rsa().certificate), "SHA-256", false));
}

TEST_F(SignedDocuments, Sm2Pkcs7Attached) {
  const std::string structure = Pkcs7(Sm2(), kContract, true);
  ExpectVerifiedByOpenSsl("p7", structure, kContract, Sm2());
  EXPECT_NO_THROW(VerifyPkcs7(structure, kContract, ReadText(Sm2().certificate), "", true));
}

TEST_F(SignedDocuments, Sm2Pkcs7Detached) {
  const std::string structure = Pkcs7(Sm2(), kContract, false);
  ExpectVerifiedByOpenSsl("detached", structure, kContract, Sm2());
  EXPECT_NO_THROW(VerifyPkcs7(structure, kContract, ReadText(Sm2().certificate), "", false));
}

TEST_F(SignedDocuments, RsaPkcs7WithEachDigest) {
  for (const auto& [name, botanName] : {std::pair("SHA1", "SHA-1"), std::pair("SHA512", "SHA-512"),
                                        std::pair("sha256", "SHA-256")}) {
    ASSERT_EQ(VCTK_SetDigestAlg(Handle(), name), 0);
    const std::string structure = Pkcs7(Rsa(), kContract, true);
    ExpectVerifiedByOpenSsl("p7", structure, kContract, Rsa());
    EXPECT_NO_THROW(VerifyPkcs7(structure, kContract, ReadText(Rsa().certificate), botanName, true))
        << name;
  }
}

TEST_F(SignedDocuments, PlainTextIsItsBytes) {
  ASSERT_EQ(VCTK_SetCert(Handle(), Rsa().serial.c_str()), 1);
  ASSERT_EQ(VCTK_SetPinCode(Handle(), Identities::kPin), 1);
  ASSERT_EQ(VCTK_P7SignStrEx(Handle(), "I agree.", 0, 0, 1), 0);
  ExpectVerifiedByOpenSsl("p7", Decoded(Get(VCTK_GetP7SignResult)), "I agree.", Rsa());
}

TEST_F(SignedDocuments, OfAMegabyte) {
  std::string content(1 << 20, '\0');
  for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * i >> 7);
  for (const Identity* identity : {&Rsa(), &Sm2()}) {
    EXPECT_EQ(VCTK_ClearFilter(Handle()), 0);
    const std::string signature = Pkcs1(*identity, content);
    ExpectVerifiedByOpenSsl("p1", signature, content, *identity);
  }
  ExpectVerifiedByOpenSsl("p7", Pkcs7(Sm2(), content, true), content, Sm2());
}

TEST_F(SignedDocuments, TheChosenCertificateIsTheOneInTheStore) {
  ASSERT_EQ(VCTK_SetCert(Handle(), Sm2().serial.c_str()), 1);
  const std::string der =
      OutputOf({"openssl", "x509", "-in", Sm2().certificate, "-outform", "DER"});
  EXPECT_EQ(Decoded(Get(VCTK_GetSignCert)), der);
  EXPECT_STREQ(Get(VCTK_GetSignCertType).c_str(), "SM2");
  EXPECT_EQ(Get(VCTK_GetDigestAlg), "SM3");
}

TEST_F(SignedDocuments, TheVerifiersSeeAnyChange) {
  const std::string bare = Pkcs1(Sm2(), kContract);
  const std::string structure = Pkcs7(Rsa(), kContract, true);
  const std::string sm2 = ReadText(Sm2().certificate);
  const std::string rsa = ReadText(Rsa().certificate);
  EXPECT_ANY_THROW(VerifyBare(bare, kContract + " ", sm2, ""));
  EXPECT_ANY_THROW(VerifyBare(bare, kContract, rsa, "SHA-1"));
  EXPECT_ANY_THROW(VerifyPkcs7(structure, kContract + " ", rsa, "SHA-256", true));
  EXPECT_ANY_THROW(VerifyPkcs7(structure, kContract, sm2, "", true));
  EXPECT_ANY_THROW(VerifyPkcs7(structure, kContract, rsa, "SHA-256", false));
  for (const size_t at : {structure.size() - 1, structure.size() / 2, size_t(30)}) {
    std::string changed = structure;
    changed[at] = static_cast<char>(changed[at] ^ 1);
    EXPECT_ANY_THROW(VerifyPkcs7(changed, kContract, rsa, "SHA-256", true)) << at;
  }
}

TEST_F(SignedDocuments, AWrongPinSignsNothingAndTellsTheTriesLeft) {
  ASSERT_EQ(VCTK_SetCert(Handle(), Rsa().serial.c_str()), 1);
  ASSERT_EQ(VCTK_SetPinCode(Handle(), "87654321"), 1);
  EXPECT_EQ(static_cast<unsigned>(VCTK_P7SignStrEx(Handle(), "text", 0, 0, 1)), 0xE0000056u);
  EXPECT_EQ(Get(VCTK_GetLastErrorMessage), "您输入的PIN码错误，请重新输入,您还有9次机会");
  int length = 0;
  EXPECT_EQ(VCTK_GetP7SignResult(Handle(), nullptr, &length), 9);
}

TEST_F(SignedDocuments, APinThatNeedsADialogIsToldSo) {
  ASSERT_EQ(VCTK_AddFilter(Handle(), 1, Rsa().serial.c_str()), 0);
  ASSERT_EQ(VCTK_SetChooseSingleCert(Handle(), 1), 0);
  EXPECT_EQ(static_cast<unsigned>(VCTK_P1Sign(Handle(), "text", 0)), 0xE000005Au);
  EXPECT_EQ(static_cast<unsigned>(VCTK_P7SignFromP1(Handle(), "text", 0, 0)), 0xE000005Au);
}
