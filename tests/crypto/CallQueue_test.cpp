// The record of device operations, through the factories.
#include <errno.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Library.h"

using Json = nlohmann::json;
using testing::HasSubstr;
using testing::Not;

namespace {

const char kPin[] = "12345678";

class CallQueue : public testing::Test {
 protected:
  void SetUp() override {
    m_queue = m_library.NewQueue();
    keymaker::WriteFile(m_store / "张三.p12", keymaker::Pkcs12(keymaker::Make({}), kPin));
    m_queue->Enable(TRUE, FALSE);
    m_queue->Clear();
  }
  void TearDown() override {
    m_queue->Enable(FALSE, FALSE);
    m_queue->Clear();
  }
  std::vector<Json> Lines() {
    std::istringstream text(m_queue->Get());
    std::vector<Json> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(Json::parse(line));
    return lines;
  }
  CSmartObjPtr<IVELDeviceManager> Manager() {
    return ManagerOf(m_library, {KeyFamily(m_store.path())});
  }

  Library m_library;
  keymaker::TemporaryFolder m_store;
  CSmartObjPtr<IVELCallQueue> m_queue;
};

}  // namespace

TEST_F(CallQueue, IsOffUntilEnabled) {
  EXPECT_EQ(m_queue->Enable(FALSE, TRUE), 0u);
  CertificatesOf(Manager());
  EXPECT_STREQ(m_queue->Get(), "");
}

TEST_F(CallQueue, HoldsOneObjectForEachOperation) {
  CertificatesOf(Manager());
  const std::vector<Json> lines = Lines();
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(lines[0]["operation"], "AddKeyEx");
  EXPECT_EQ(lines[1]["operation"], "Initialize");
  EXPECT_EQ(lines[2]["operation"], "ListFamily");
  EXPECT_EQ(lines[2]["certificates"], "1");
  EXPECT_EQ(lines[3]["operation"], "ListToken");
  EXPECT_EQ(lines[3]["device"], m_store.path());
  EXPECT_EQ(lines[3]["keys"], "1");
  EXPECT_EQ(lines[4]["operation"], "GetCertList");
  EXPECT_EQ(lines[4]["result"], "0x00000000");
  EXPECT_TRUE(lines[4]["ms"].is_number());
  EXPECT_THAT(lines[4]["time"].get<std::string>(),
              testing::MatchesRegex("20..-..-..T..:..:..\\....Z"));
}

TEST_F(CallQueue, TellsDeviceAndNativeCodeOfAFailure) {
  auto manager = Manager();
  manager->KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE_LOGIN, "01", VEL_PIN_CODE_TYPE_USER,
                                    "wrong pin", nullptr, nullptr);
  const Json line = Lines().back();
  EXPECT_EQ(line["operation"], "Login");
  EXPECT_EQ(line["device"], m_store / "张三.p12");
  EXPECT_EQ(line["result"], "0xE0000056");
  EXPECT_NE(line["native"], "0x00000000");
}

TEST_F(CallQueue, TellsWhyFilesAndFamiliesWereLeftOut) {
  keymaker::WriteFile(m_store / "\xFF.txt", {'x'});
  CertificatesOf(ManagerOf(m_library, {KeyFamily(m_store.path()), KeyFamily("/nowhere"),
                                       KeyFamily("none.so", VEL_CRYPTO_INTERFACE_TYPE_SKF)}));
  std::vector<Json> reasons;
  for (const Json& line : Lines()) {
    if (line["operation"] == "ListCertificates") reasons.push_back(line);
  }
  ASSERT_EQ(reasons.size(), 3u);
  EXPECT_EQ(reasons[0]["device"], "\uFFFD.txt");
  EXPECT_THAT(reasons[0]["remark"].get<std::string>(), HasSubstr("no PKCS#12 file"));
  EXPECT_EQ(reasons[1]["result"], "0xE0000043");
  EXPECT_EQ(reasons[1]["native"], "0x00000002");
  EXPECT_EQ(reasons[2]["device"], "none.so");
}

TEST_F(CallQueue, TellsWhichFiltersHideACertificate) {
  keymaker::Request request;
  request.serial = "EE";
  request.keyUsage = "keyEncipherment";
  request.fromSeconds = -7200;
  request.toSeconds = -3600;
  keymaker::WriteFile(m_store / "old.p12", keymaker::Pkcs12(keymaker::Make(request), kPin));
  CertificatesOf(Manager(), {{VEL_CERT_FILTER_KEY_ATTR_TYPE, L"4"},
                             {VEL_CERT_FILTER_KEY_SPEC, L"1"},
                             {VEL_CERT_FILTER_TIME_VALID_TYPE, L"2"}});
  std::vector<Json> hidden;
  for (const Json& line : Lines()) {
    if (line["operation"] == "HideCertificate") hidden.push_back(line);
  }
  ASSERT_EQ(hidden.size(), 1u);
  EXPECT_EQ(hidden[0]["serial"], "EE");
  EXPECT_EQ(hidden[0]["filters"], "5,8");
  EXPECT_EQ(hidden[0]["device"], m_store.path());
}

TEST_F(CallQueue, HoldsNoPinsAndNoData) {
  auto manager = Manager();
  tag_VEL_CERT_INFO certificate = CertificatesOf(manager)[0];
  keymaker::Bytes data = {'S', 'E', 'C', 'R', 'E', 'T'};
  CSmartBuffer signature;
  for (const char* pin : {kPin, "wrong pin", "x"}) {
    manager->KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE_LOGIN, "01", VEL_PIN_CODE_TYPE_USER,
                                      pin, "new pin", nullptr);
  }
  std::wstring pin = L"12345678";
  manager->SetPinCode(VEL_PIN_CODE_TYPE_USER, pin.data(), &certificate);
  ASSERT_EQ(
      manager->P1Sign(&certificate, VEL_HASH_ALG_SHA256, data.data(), data.size(), &signature), 0u);
  const std::string text = m_queue->Get();
  for (const char* secret : {kPin, "wrong pin", "new pin", "SECRET"}) {
    EXPECT_THAT(text, Not(HasSubstr(secret)));
  }
}

TEST_F(CallQueue, TheHeadLineComesFirstAndOnlyWithOthers) {
  m_queue->Enable(TRUE, TRUE);
  EXPECT_STREQ(m_queue->Get(), "");
  Manager();
  const Json head = Lines()[0];
  EXPECT_THAT(head["library"].get<std::string>(), HasSubstr("VELCrypto"));
  EXPECT_EQ(head["process"], program_invocation_short_name);
  EXPECT_EQ(head["pid"], getpid());
  char host[256] = {};
  gethostname(host, sizeof(host) - 1);
  EXPECT_EQ(head["host"], host);
  m_queue->Enable(TRUE, FALSE);
  EXPECT_EQ(Lines()[0]["operation"], "AddKeyEx");
}

TEST_F(CallQueue, IsSharedByAllObjectsOfTheProcess) {
  auto other = m_library.NewQueue();
  Manager();
  EXPECT_STREQ(other->Get(), m_queue->Get());
  EXPECT_EQ(other->Clear(), 0u);
  EXPECT_STREQ(m_queue->Get(), "");
}

TEST_F(CallQueue, KeepsTheNewestMebibyte) {
  m_queue->Enable(TRUE, TRUE);
  auto manager = Manager();
  CSmartList<tag_VEL_KEY_INFO_EX> none;
  for (int i = 0; i < 12000; ++i) manager->AddKeyEx(&none, TRUE);
  manager->AddKeyEx(nullptr, TRUE);
  const std::string text = m_queue->Get();
  EXPECT_LE(text.size(), 1u << 20);
  EXPECT_GT(text.size(), (1u << 20) - 1000);
  const std::vector<Json> lines = Lines();
  EXPECT_TRUE(lines[0].contains("library"));
  EXPECT_EQ(lines[1]["operation"], "AddKeyEx") << "whole lines go";
  EXPECT_EQ(lines.back()["result"], "0xE0000003");
}
