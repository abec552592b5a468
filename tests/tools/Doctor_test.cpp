// "vctk doctor" and "vctk calls".
#include <gmock/gmock.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "Vctk.h"

using ::testing::HasSubstr;
using ::testing::Not;
using Json = nlohmann::json;

namespace {

class Doctor : public Vctk {
 protected:
  Json Report(const Outcome& outcome) const {
    const Json report = Json::parse(outcome.out, nullptr, false);
    EXPECT_TRUE(report.is_object()) << outcome.out << outcome.err;
    return report;
  }

  std::string List(const std::string& families) const {
    return Have("list.xml", "<authinfo><liblist>" + families + "</liblist></authinfo>");
  }
};

std::string Canonical(const std::string& path) {
  return std::filesystem::weakly_canonical(path);
}

}  // namespace

TEST_F(Doctor, TellsWhatIsLoadedPluggedInAndSignedWith) {
  PlugIn(SharedIdentities().Rsa());
  const Outcome outcome = Run({"doctor", "--json"});
  EXPECT_EQ(outcome.exitCode, kDone);
  const Json report = Report(outcome);
  EXPECT_EQ(Canonical(report["libraries"]["device"]), Canonical(DEVICE_LIBRARY));
  EXPECT_EQ(Canonical(report["libraries"]["toolkit"]), Canonical(TOOLKIT_LIBRARY));
  EXPECT_THAT(report["libraries"]["compatibility"].get<std::string>(),
              HasSubstr("libVELInterface64.so"));
  EXPECT_EQ(report["libraries"]["device_fault"], "");
  EXPECT_EQ(report["key_list"]["origin"], "the built-in key list");
  EXPECT_EQ(report["key_list"]["families"][0]["type"], "CSP");
  ASSERT_EQ(report["tokens"].size(), 1u);
  EXPECT_EQ(report["tokens"][0]["token"], KeyStore());
  EXPECT_EQ(report["tokens"][0]["certificates"], 1);
  EXPECT_EQ(report["tokens"][0]["keys"], 1);
  EXPECT_EQ(report["certificates"][0]["serial"], SharedIdentities().Rsa().serial);
  EXPECT_EQ(report["signing"]["possible"], true);
  EXPECT_EQ(report["signing"]["type"], "RSA");
  EXPECT_EQ(report["signing"]["digest"], "SHA256");
}

TEST_F(Doctor, TheTextSaysTheSame) {
  PlugIn(SharedIdentities().Rsa());
  const Outcome outcome = Run({"doctor"});
  EXPECT_EQ(outcome.exitCode, kDone);
  for (const std::string& part :
       {std::string("libVELCrypto64.so\n"), std::string("Key list: the built-in key list\n"),
        KeyStore() + ": 1 certificate, 1 key\n",
        "can sign  " + SharedIdentities().Rsa().serial + "  CN=张三",
        "with " + SharedIdentities().Rsa().serial, std::string("RSA, SHA256\n")}) {
    EXPECT_THAT(outcome.out, HasSubstr(part));
  }
}

TEST_F(Doctor, WithSeveralTheUserChooses) {
  PlugIn(SharedIdentities().Rsa());
  PlugIn(SharedIdentities().Sm2());
  const Outcome outcome = Run({"doctor", "--json"});
  EXPECT_EQ(outcome.exitCode, kDone);
  EXPECT_EQ(Report(outcome)["signing"]["choice"], true);
  EXPECT_THAT(Run({"doctor"}).out, HasSubstr("one of the 2 certificates, as the user chooses"));
}

TEST_F(Doctor, WithoutAKeyExitsWith5) {
  const Outcome outcome = Run({"doctor", "--json"});
  EXPECT_EQ(outcome.exitCode, kNoCertificate);
  EXPECT_EQ(Report(outcome)["signing"]["possible"], false);
}

TEST_F(Doctor, TellsWhyTheDeviceLibraryFails) {
  const std::string fakes = getenv("FAKES");
  const std::pair<const char*, const char*> cases[] = {
      {"cannot_be_loaded", "libVELCrypto64.so"},
      {"lacks_container_factory", "lacks CreateUsbKeyInstance_Container"}};
  for (const auto& [variant, words] : cases) {
    Invocation invocation = Command({"doctor", "--json"});
    invocation.environment["LD_LIBRARY_PATH"] = fakes + "/" + variant;
    // What the fake's globals hold counts as leaked when it is loaded and unloaded again.
    invocation.environment["ASAN_OPTIONS"] = "detect_leaks=0";
    const Outcome outcome = RunProgram(invocation);
    EXPECT_EQ(outcome.exitCode, kNoSession) << variant;
    EXPECT_THAT(Report(outcome)["libraries"]["device_fault"].get<std::string>(), HasSubstr(words));
    EXPECT_EQ(Report(outcome)["key_list"]["fault"], "");
  }
}

TEST_F(Doctor, TellsWhatTheKeyListSaysAndWhichFamiliesFail) {
  PlugIn(SharedIdentities().Rsa());
  const std::string list = List(
      "<!-- <lib type=\"PM\"/> --><lib type=\"CSP\" version=\"1\"><algid val=\"SHA1\" "
      "sm2_hashalg=\"SM3\"/></lib><lib type='SKF' dllname='bm9uZS5zbw=='/>");
  const Outcome outcome = Run({"doctor", "--json", "--key-list", list});
  EXPECT_EQ(outcome.exitCode, kDone);
  const Json report = Report(outcome);
  EXPECT_EQ(report["key_list"]["origin"], list);
  ASSERT_EQ(report["key_list"]["families"].size(), 2u);
  EXPECT_EQ(report["key_list"]["families"][0]["digest"], "SHA1");
  EXPECT_EQ(report["key_list"]["families"][1]["type"], "SKF");
  EXPECT_EQ(report["key_list"]["families"][1]["library"], "none.so");
  ASSERT_EQ(report["skipped"].size(), 1u);
  EXPECT_EQ(report["skipped"][0]["device"], "none.so");
  EXPECT_EQ(report["signing"]["digest"], "SHA1");
}

TEST_F(Doctor, ADigestThatHasToBeNamedIsTold) {
  PlugIn(SharedIdentities().Rsa());
  const std::string list =
      List("<lib type=\"CSP\"><algid val=\"SHA512\" sm2_hashalg=\"SM3\"/></lib>");
  const Outcome outcome = Run({"doctor", "--key-list", list});
  EXPECT_EQ(outcome.exitCode, kFailed);
  EXPECT_THAT(outcome.out, HasSubstr("vctk sign --digest SHA512"));
  EXPECT_EQ(Report(Run({"doctor", "--json", "--key-list", list}))["signing"]["possible"], false);
  const std::vector<std::string> sign = {
      "sign",  Have("document", "text"), "--key-list", list, "--pin-file", PinFile(), "--digest",
      "SHA512"};
  EXPECT_EQ(Run(sign).exitCode, kDone) << "as it says";
  EXPECT_EQ(Run({sign.begin(), sign.end() - 2}).exitCode, kFailed);
}

TEST_F(Doctor, ABrokenKeyListIsTold) {
  for (const char* text : {"nonsense", "<authinfo></authinfo>", "<a b=\"", "<<<>>>", "<!--"}) {
    const Outcome outcome = Run({"doctor", "--json", "--key-list", Have("broken", text)});
    EXPECT_EQ(outcome.exitCode, kNoSession) << text;
    EXPECT_NE(Report(outcome)["key_list"]["fault"], "") << text;
  }
}

TEST_F(Doctor, CallsShowsTheRecord) {
  PlugIn(SharedIdentities().Rsa());
  const Outcome outcome = Run({"calls"});
  ASSERT_EQ(outcome.exitCode, kDone) << outcome.err;
  std::istringstream lines(outcome.out);
  std::vector<std::string> operations;
  for (std::string line; std::getline(lines, line);) {
    operations.push_back(Json::parse(line).value("operation", "head"));
  }
  EXPECT_EQ(operations.front(), "head");
  EXPECT_EQ(operations.back(), "GetCertList");
}

TEST_F(Doctor, CallsHoldsWhatFailed) {
  const Outcome outcome =
      Run({"calls", "--key-list", List("<lib type=\"SKF\" dllname=\"bm9uZS5zbw==\"/>")});
  EXPECT_EQ(outcome.exitCode, kDone);
  EXPECT_THAT(outcome.out, HasSubstr("none.so"));
}
