#include "Filters.h"

#include <gtest/gtest.h>

#include "KeyMaker.h"
#include "Text.h"

using velcrypto::Filters;

namespace {

class FiltersTest : public testing::Test {
 protected:
  FiltersTest() {
    m_authority.subject = {{"C", "CN"}, {"O", "测试 CA, Ltd"}, {"CN", "Test Root"}};
    m_authority.authority = true;
    m_request.serial = "00A1B2";
    m_request.subject = {
        {"C", "CN"}, {"O", "Example"}, {"CN", "Zhang San 张三"}, {"emailAddress", "zs@example.cn"}};
    m_request.altName = "email:Other@Example.cn,DNS:example.cn";
    m_family.CryptoInterfaceType = VEL_CRYPTO_INTERFACE_TYPE_CSP;
    strcpy(m_family.InterfaceLibName, "/Store");
  }

  velcrypto::Listed Make() {
    const keymaker::Identity issuer = keymaker::Make(m_authority);
    const keymaker::Identity made = keymaker::Make(m_request, &issuer);
    auto identity = std::make_shared<velcrypto::Identity>();
    identity->facts = velcrypto::FactsOf(made.certificate.get());
    identity->hasKey = m_hasKey;
    return {identity, &m_family};
  }

  static std::pair<ULONG, bool> Run(const velcrypto::Listed& listed, VEL_CERT_FILTER_TYPE type,
                                    const wchar_t* value) {
    CSmartList<tag_VEL_CERT_FILTER_ITEM> items;
    items.AddItem({type, value});
    Filters filters;
    const ULONG code = filters.Parse(&items).code;
    return {code, code == 0 && filters.Accept(listed)};
  }

  bool Accepts(VEL_CERT_FILTER_TYPE type, const std::wstring& value) {
    const auto result = Run(Make(), type, value.c_str());
    EXPECT_EQ(result.first, 0u) << velcrypto::Narrow(value.c_str());
    return result.second;
  }

  ULONG CodeOf(int type, const wchar_t* value) {
    return Run(Make(), static_cast<VEL_CERT_FILTER_TYPE>(type), value).first;
  }

  keymaker::Request m_authority, m_request;
  tag_VEL_KEY_INFO_EX m_family;
  bool m_hasKey = true;
};

}  // namespace

TEST_F(FiltersTest, NoFilterAcceptsEverything) {
  Filters filters;
  ASSERT_EQ(filters.Parse(nullptr).code, 0u);
  EXPECT_TRUE(filters.Accept(Make()));
  CSmartList<tag_VEL_CERT_FILTER_ITEM> none;
  ASSERT_EQ(filters.Parse(&none).code, 0u);
  EXPECT_TRUE(filters.Accept(Make()));
}

TEST_F(FiltersTest, AllItemsMustHold) {
  CSmartList<tag_VEL_CERT_FILTER_ITEM> items;
  items.AddItem({VEL_CERT_FILTER_SUBJECT_SN, L"A1B2"});
  items.AddItem({VEL_CERT_FILTER_CERTNAME_TYPE, L"张三"});
  Filters both;
  ASSERT_EQ(both.Parse(&items).code, 0u);
  EXPECT_TRUE(both.Accept(Make()));
  items.AddItem({VEL_CERT_FILTER_CERTNAME_TYPE, L"李四"});
  Filters three;
  ASSERT_EQ(three.Parse(&items).code, 0u);
  EXPECT_FALSE(three.Accept(Make()));
}

TEST_F(FiltersTest, IssuerEqualsOrIsContainedInEitherOrderWithoutRegardToCaseAndBlanks) {
  const auto accepts = [this](const wchar_t* value) {
    return Accepts(VEL_CERT_FILTER_ISSUER_DN, value);
  };
  EXPECT_TRUE(accepts(L"CN=Test Root,O=测试 CA\\, Ltd,C=CN"));
  EXPECT_TRUE(accepts(L"C=CN,O=测试 CA\\, Ltd,CN=Test Root"));
  EXPECT_TRUE(accepts(L"c = cn , o = 测试 ca\\, ltd , cn = test root "));
  EXPECT_TRUE(accepts(L"CN=test root"));
  EXPECT_TRUE(accepts(L"测试"));
  EXPECT_FALSE(accepts(L"CN=TestRoot")) << "blanks inside a value count";
  EXPECT_FALSE(accepts(L"CN=Example"));
}

TEST_F(FiltersTest, OneOfTheIssuerAlternativesIsEnough) {
  EXPECT_TRUE(Accepts(VEL_CERT_FILTER_ISSUER_DN, L"CN=Nobody|CN=Test Root"));
  EXPECT_TRUE(Accepts(VEL_CERT_FILTER_ISSUER_DN, L"CN=Test Root|"));
  EXPECT_FALSE(Accepts(VEL_CERT_FILTER_ISSUER_DN, L"CN=Nobody||CN=Somebody"))
      << "an empty alternative is none";
  EXPECT_EQ(CodeOf(VEL_CERT_FILTER_ISSUER_DN, L" | |"), 0xE0000003u);
}

TEST_F(FiltersTest, SerialNumbersAreEqualWithoutLeadingZerosAndCase) {
  for (const wchar_t* same : {L"A1B2", L"00a1b2", L"0A1b2"}) {
    EXPECT_TRUE(Accepts(VEL_CERT_FILTER_SUBJECT_SN, same));
  }
  for (const wchar_t* other : {L"A1B", L"A1B20", L"1B2", L"no such serial", L"A1 B2"}) {
    EXPECT_FALSE(Accepts(VEL_CERT_FILTER_SUBJECT_SN, other));
  }
}

TEST_F(FiltersTest, SubjectAndCertificateNameAreContained) {
  EXPECT_TRUE(Accepts(VEL_CERT_FILTER_SUBJECT_DN, L"o=example"));
  EXPECT_TRUE(Accepts(VEL_CERT_FILTER_SUBJECT_DN, L"张三"));
  EXPECT_FALSE(Accepts(VEL_CERT_FILTER_SUBJECT_DN, L"Test Root"));
  EXPECT_TRUE(Accepts(VEL_CERT_FILTER_CERTNAME_TYPE, L"zhang san"));
  EXPECT_FALSE(Accepts(VEL_CERT_FILTER_CERTNAME_TYPE, L"Example"));
}

TEST_F(FiltersTest, EmailsOfSubjectAndAlternativeNamesAreEqual) {
  EXPECT_TRUE(Accepts(VEL_CERT_FILTER_EMAIL, L"ZS@example.cn"));
  EXPECT_TRUE(Accepts(VEL_CERT_FILTER_EMAIL, L"other@example.cn"));
  EXPECT_FALSE(Accepts(VEL_CERT_FILTER_EMAIL, L"s@example.cn"));
  EXPECT_FALSE(Accepts(VEL_CERT_FILTER_EMAIL, L"example.cn"));
}

TEST_F(FiltersTest, Base64IsTheSameCertificateWhateverTheLineEnds) {
  const velcrypto::Listed listed = Make();
  const std::wstring text = static_cast<const wchar_t*>(listed.identity->facts->record.CertBase64);
  EXPECT_TRUE(Run(listed, VEL_CERT_FILTER_BASE64, text.c_str()).second);
  std::wstring lines = text;
  for (size_t at = 64; at < lines.size(); at += 65) lines.insert(at, L"\n");
  EXPECT_TRUE(Run(listed, VEL_CERT_FILTER_BASE64, lines.c_str()).second);
  EXPECT_FALSE(Accepts(VEL_CERT_FILTER_BASE64, L"AAAA"));
  EXPECT_EQ(CodeOf(VEL_CERT_FILTER_BASE64, L"!!!!"), 0xE0000003u);
  EXPECT_EQ(CodeOf(VEL_CERT_FILTER_BASE64, L"中文"), 0xE0000003u);
}

TEST_F(FiltersTest, KeySpecAndUsageFollowTheKeyUsageBits) {
  const struct {
    const char* usage;
    bool signs, encrypts, both, usageEncrypts, usageSigns;
  } cases[] = {
      {"", true, true, true, true, true},
      {"digitalSignature", true, false, false, false, true},
      {"nonRepudiation", true, false, false, false, true},
      {"keyEncipherment", false, true, false, true, false},
      {"dataEncipherment", false, true, false, true, false},
      {"keyAgreement", false, true, false, true, false},
      {"digitalSignature,keyEncipherment", true, true, true, true, true},
      {"keyCertSign,cRLSign", false, false, false, false, false},
  };
  for (const auto& item : cases) {
    m_request.keyUsage = item.usage;
    EXPECT_EQ(Accepts(VEL_CERT_FILTER_KEY_SPEC, L"1"), item.signs) << item.usage;
    EXPECT_EQ(Accepts(VEL_CERT_FILTER_KEY_SPEC, L"2"), item.encrypts) << item.usage;
    EXPECT_EQ(Accepts(VEL_CERT_FILTER_KEY_SPEC, L"3"), item.both) << item.usage;
    EXPECT_EQ(Accepts(VEL_CERT_FILTER_KEY_USAGE, L"1"), item.usageEncrypts) << item.usage;
    EXPECT_EQ(Accepts(VEL_CERT_FILTER_KEY_USAGE, L"2"), item.usageSigns) << item.usage;
    const auto type = VEL_CERT_FILTER_DOUBLE_ATTR_SIGNATURE_AND_EXCHANGE;
    EXPECT_EQ(Accepts(type, L"1"), item.both) << item.usage;
    EXPECT_TRUE(Accepts(type, L"0"));
  }
}

TEST_F(FiltersTest, KeyAttributeTellsCertificatesWithAKey) {
  EXPECT_TRUE(Accepts(VEL_CERT_FILTER_KEY_ATTR_TYPE, L"4"));
  EXPECT_FALSE(Accepts(VEL_CERT_FILTER_KEY_ATTR_TYPE, L"2"));
  m_hasKey = false;
  EXPECT_FALSE(Accepts(VEL_CERT_FILTER_KEY_ATTR_TYPE, L"4"));
  EXPECT_TRUE(Accepts(VEL_CERT_FILTER_KEY_ATTR_TYPE, L"2"));
}

TEST_F(FiltersTest, LibraryAndInterfaceAreThoseOfTheFamily) {
  EXPECT_TRUE(Accepts(VEL_CERT_FILTER_LIBNAME, L"/store"));
  EXPECT_FALSE(Accepts(VEL_CERT_FILTER_LIBNAME, L"/stor"));
  EXPECT_TRUE(Accepts(VEL_CERT_FILTER_KEY_INTERFACE_TYPE, L"1"));
  EXPECT_FALSE(Accepts(VEL_CERT_FILTER_KEY_INTERFACE_TYPE, L"201"));
}

TEST_F(FiltersTest, TimeTellsCertificatesInsideAndOutsideTheirValidity) {
  const struct {
    long from, to;
    bool inside;
  } cases[] = {{-3600, 3600, true}, {-7200, -3600, false}, {3600, 7200, false}};
  for (const auto& item : cases) {
    m_request.fromSeconds = item.from;
    m_request.toSeconds = item.to;
    EXPECT_TRUE(Accepts(VEL_CERT_FILTER_TIME_VALID_TYPE, L"0"));
    EXPECT_EQ(Accepts(VEL_CERT_FILTER_TIME_VALID_TYPE, L"1"), !item.inside);
    EXPECT_EQ(Accepts(VEL_CERT_FILTER_TIME_VALID_TYPE, L"2"), item.inside);
  }
}

TEST_F(FiltersTest, ValuesThatAreNotUnderstoodAreInvalidParameters) {
  for (const int type : {5, 6, 8, 9, 10, 12}) {
    for (const wchar_t* value : {L"x", L"1x", L" 1", L"1 ", L"-1", L"+1", L"1.0", L"0x1", L"１",
                                 L"99999999999999999999"}) {
      EXPECT_EQ(CodeOf(type, value), 0xE0000003u) << type << " " << velcrypto::Narrow(value);
    }
  }
  EXPECT_EQ(CodeOf(5, L"0"), 0xE0000003u);
  EXPECT_EQ(CodeOf(5, L"4"), 0xE0000003u);
  EXPECT_EQ(CodeOf(8, L"3"), 0xE0000003u);
  EXPECT_EQ(CodeOf(9, L"0"), 0xE0000003u);
  EXPECT_EQ(CodeOf(9, L"3"), 0xE0000003u);
  EXPECT_EQ(CodeOf(12, L"2"), 0xE0000003u);
}

TEST_F(FiltersTest, EmptyValuesAndUnknownTypesAreInvalidParameters) {
  for (int type = 0; type <= 12; ++type) EXPECT_EQ(CodeOf(type, L""), 0xE0000003u) << type;
  EXPECT_EQ(CodeOf(13, L"1"), 0xE0000003u);
  EXPECT_EQ(CodeOf(VEL_CERT_FILTER_UNKNOWN, L"1"), 0xE0000003u);
}
