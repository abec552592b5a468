#include "OutputBuffer.h"
#include "Session.h"

namespace {

using testing::Contains;

class DigestSelection : public Session {
 protected:
  void ChooseWith(int asymmAlg, int rsaHash, int sm2Hash) {
    m_toolkit.m_SelectCertList.Clear();
    FakeCert cert;
    cert.asymmAlg = asymmAlg;
    cert.rsaHash = rsaHash;
    cert.sm2Hash = sm2Hash;
    Choose(cert);
  }

  std::wstring Name(ULONG expected = 0) {
    CString name;
    EXPECT_EQ(m_toolkit.GetDigestAlgEx(name), expected);
    return static_cast<const wchar_t*>(name);
  }
};

TEST_F(DigestSelection, ASetNameIsKeptAsGiven) {
  for (const char* name : {"MD2", "md5", "Sha1", "SHA256", "sha512", "sm3"}) {
    m_toolkit.m_LastError = 5;
    EXPECT_EQ(m_toolkit.SetDigestAlg(name), TRUE) << name;
    EXPECT_EQ(m_toolkit.m_LastError, 0u);
    EXPECT_EQ(m_toolkit.m_bSetDigestAlg, TRUE);
    EXPECT_EQ(Name(), std::wstring(name, name + strlen(name)));
  }
}

TEST_F(DigestSelection, ASetNameHoldsForEveryCertificate) {
  m_toolkit.SetDigestAlg("SM3");
  ChooseWith(1, 4, 6);
  EXPECT_EQ(Name(), L"SM3");
  m_toolkit.m_SelectCertList.Clear();
  EXPECT_EQ(Name(), L"SM3");
}

TEST_F(DigestSelection, AnRsaCertificateIsAskedForTheDigestThatWasSet) {
  m_toolkit.SetDigestAlg("sm3");
  Fake().certs = {FakeCert()};
  Fake().codes = {{"P1Sign", {0xE0000029}}};
  EXPECT_EQ(m_toolkit.P1Sign("abc", FALSE), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000029u);
  EXPECT_THAT(Fake().calls, Contains("P1Sign(01, 6, abc)"));
}

// It prints as unknown when it comes from a key list, but is understood when it is set.
TEST_F(DigestSelection, Sha512SignsWhenItIsSet) {
  m_toolkit.SetDigestAlg("SHA512");
  Fake().certs = {FakeCert()};
  EXPECT_EQ(m_toolkit.P1Sign("abc", FALSE), TRUE);
  EXPECT_THAT(Fake().calls, Contains("P1Sign(01, 5, abc)"));
}

TEST_F(DigestSelection, Sha512OfAKeyListDoesNotSign) {
  ChooseWith(1, 5, 6);
  EXPECT_EQ(Name(), L"UNKNOWN");
  VEL_HASH_ALG alg = VEL_HASH_ALG_MD5;
  EXPECT_EQ(m_toolkit.GetDigestAlgEnumEx(alg), 0xE0000066u);
  FakeCert cert;
  cert.rsaHash = 5;
  Fake().certs = {cert};
  EXPECT_EQ(m_toolkit.P1Sign("abc", FALSE), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000066u);
}

TEST_F(DigestSelection, AnEmptyNameIsRefused) {
  for (const char* name : {static_cast<const char*>(nullptr), "", "\xFF"}) {
    EXPECT_EQ(m_toolkit.SetDigestAlg(name), FALSE);
    EXPECT_EQ(m_toolkit.m_LastError, 0xE0000003u);
    EXPECT_EQ(m_toolkit.m_bSetDigestAlg, FALSE);
  }
}

TEST_F(DigestSelection, AnUnknownNameLeavesTheEarlierSetting) {
  m_toolkit.SetDigestAlg("SHA256");
  for (const char* name : {"SHA-256", "SHA256 ", "SHA3", "UNKNOWN", "摘要"}) {
    EXPECT_EQ(m_toolkit.SetDigestAlg(name), FALSE) << name;
    EXPECT_EQ(m_toolkit.m_LastError, 0xE0000066u);
    EXPECT_EQ(Name(), L"SHA256");
  }
}

TEST_F(DigestSelection, AnUnknownNameAtFirstLeavesTheAutomaticChoice) {
  m_toolkit.SetDigestAlg("SHA3");
  EXPECT_EQ(m_toolkit.m_bSetDigestAlg, FALSE);
  ChooseWith(2, 4, 6);
  EXPECT_EQ(Name(), L"SM3");
}

TEST_F(DigestSelection, TheKeyAlgorithmChoosesTheHashField) {
  ChooseWith(1, 4, 6);
  EXPECT_EQ(Name(), L"SHA256");
  ChooseWith(2, 4, 6);
  EXPECT_EQ(Name(), L"SM3");
  ChooseWith(3, 4, 2);
  EXPECT_EQ(Name(), L"MD5");
  ChooseWith(0, 4, 6);
  EXPECT_EQ(Name(0xE0000066), L"");
  ChooseWith(9, 4, 6);
  Name(0xE0000066);
}

TEST_F(DigestSelection, AHashThatIsUnknownHasANameButNoNumber) {
  ChooseWith(1, 0, 6);
  EXPECT_EQ(Name(), L"UNKNOWN");
  VEL_HASH_ALG alg = VEL_HASH_ALG_MD5;
  EXPECT_EQ(m_toolkit.GetDigestAlgEnumEx(alg), 0xE0000066u);
}

TEST_F(DigestSelection, WithoutACertificateThereIsNone) {
  m_toolkit.m_LastError = 5;
  Name(0xE0000066);
  VEL_HASH_ALG alg = VEL_HASH_ALG_MD5;
  EXPECT_EQ(m_toolkit.GetDigestAlgEnumEx(alg), 0xE0000066u);
  EXPECT_EQ(m_toolkit.m_LastError, 5u);
}

TEST_F(DigestSelection, TheEnumerationIsThatOfTheName) {
  const std::pair<const char*, VEL_HASH_ALG> cases[] = {
      {"md2", VEL_HASH_ALG_MD2},       {"MD5", VEL_HASH_ALG_MD5},       {"SHA1", VEL_HASH_ALG_SHA1},
      {"SHA256", VEL_HASH_ALG_SHA256}, {"SHA512", VEL_HASH_ALG_SHA512}, {"SM3", VEL_HASH_ALG_SM3}};
  for (const auto& [name, expected] : cases) {
    VEL_HASH_ALG alg = VEL_HASH_ALG_UNKNOWN;
    m_toolkit.SetDigestAlg(name);
    EXPECT_EQ(m_toolkit.GetDigestAlgEnumEx(alg), 0u);
    EXPECT_EQ(alg, expected) << name;
  }
}

TEST_F(DigestSelection, TheNameIsCopiedOut) {
  ChooseWith(1, 4, 6);
  const auto read = [&](char* out, int* length) {
    return m_toolkit.GetSignHash(out, length) != FALSE;
  };
  const auto lastError = [&] { return m_toolkit.m_LastError; };
  ExpectCopiedOut(read, lastError, "SHA256");
  m_toolkit.SetDigestAlg("Sm3");
  ExpectCopiedOut(read, lastError, "Sm3");
}

TEST_F(DigestSelection, WithoutOneTheLengthIsZero) {
  char buffer[8] = "#";
  int length = 8;
  EXPECT_EQ(m_toolkit.GetSignHash(buffer, &length), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 0xE0000066u);
  EXPECT_EQ(length, 0);
  EXPECT_STREQ(buffer, "#");
  EXPECT_EQ(m_toolkit.GetSignHash(buffer, nullptr), FALSE);
  EXPECT_EQ(m_toolkit.m_LastError, 11u);
}

}  // namespace
