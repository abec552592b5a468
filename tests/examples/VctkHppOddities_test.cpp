// vctk.hpp with a device library whose answers are written down: what dialogs bring, what reaches
// the device, lists with empty names.
#include "vctk.hpp"

#include <gmock/gmock.h>

#include "FakeDevice.h"

using ::testing::Contains;
using ::testing::HasSubstr;

namespace {

const char kKeyList[] =
    "<authinfo><liblist><lib type=\"CSP\"><algid val=\"SHA256\" sm2_hashalg=\"SM3\"/></lib>"
    "</liblist></authinfo>";

FakeCert Cert(const wchar_t* serial, const wchar_t* subject) {
  FakeCert cert;
  cert.serial = serial;
  cert.subject = subject;
  return cert;
}

class VctkHppOddities : public ::testing::Test {
 protected:
  VctkHppOddities() { Fake() = FakeDevice(); }
};

}  // namespace

TEST_F(VctkHppOddities, NothingListedIsAnEmptyList) {
  EXPECT_TRUE(vctk::Session(kKeyList).Certificates().empty());
}

TEST_F(VctkHppOddities, EmptyNamesAndNumbersKeepTheirPlaces) {
  Fake().certs = {Cert(L"01", L""), Cert(L"", L"CN=无名\n; "), Cert(L"03", L"CN=a")};
  vctk::Session session(kKeyList);
  const std::vector<vctk::Certificate> certificates = session.Certificates();
  ASSERT_EQ(certificates.size(), 3u);
  EXPECT_EQ(certificates[0].subject, "");
  EXPECT_EQ(certificates[0].serial, "01");
  EXPECT_EQ(certificates[1].subject, "CN=无名\n; ");
  EXPECT_EQ(certificates[1].serial, "");
  EXPECT_EQ(certificates[2].serial, "03");
}

TEST_F(VctkHppOddities, DialogsSignAndTheirCertificateStays) {
  Fake().certs = {Cert(L"01", L"CN=a")};
  vctk::Session session(kKeyList);
  EXPECT_EQ(session.SignPkcs1ByDialog("text"), "UDEtU0lHTkFUVVJF");
  EXPECT_EQ(session.SignPkcs7ByDialog("text"), "UDctU0lHTkFUVVJF");
  EXPECT_THROW(session.Choose("01"), std::logic_error);
  EXPECT_EQ(session.KeyType(), "RSA");
}

TEST_F(VctkHppOddities, ContentsOfEveryLengthReachTheDeviceAsTheyAre) {
  Fake().certs = {Cert(L"01", L"CN=a")};
  vctk::Session session(kKeyList);
  session.Choose("01");
  std::string content, shown;
  for (const auto& [byte, text] :
       {std::pair(0, "\\x00"), std::pair(255, "\\xFF"), std::pair(13, "\\x0D"),
        std::pair(128, "\\x80"), std::pair(0, "\\x00")}) {
    content += static_cast<char>(byte);
    shown += text;
    Fake().TakeCalls();
    session.SignPkcs7(content, "1234");
    EXPECT_THAT(Fake().TakeCalls(), Contains("P7Sign(01, 3, 0, 1, " + shown + ")"));
  }
}

TEST_F(VctkHppOddities, CodesOfTheDeviceKeepTheirValueAndText) {
  Fake().certs = {Cert(L"01", L"CN=a")};
  vctk::Session session(kKeyList);
  session.Choose("01");
  Fake().codes["P7Sign"] = {0xA00F0001ul, 0xE0000057ul};
  for (const uint32_t code : {0xA00F0001u, 0xE0000057u}) {
    try {
      session.SignPkcs7("text", "1234");
      FAIL();
    } catch (const vctk::Error& error) {
      EXPECT_EQ(error.Code(), code);
      EXPECT_THAT(error.what(), HasSubstr(error.Text()));
      EXPECT_NE(error.Text(), "");
    }
  }
}

TEST_F(VctkHppOddities, TheEndOfEachSessionUnloadsTheDeviceLibrary) {
  {
    vctk::Session first(kKeyList);
    first = vctk::Session(kKeyList);
  }
  EXPECT_EQ(Fake().liveObjects, 0);
  EXPECT_EQ(Fake().loads, Fake().unloads);
  EXPECT_GT(Fake().loads, 0);
}
