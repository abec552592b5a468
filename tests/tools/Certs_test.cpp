#include <gmock/gmock.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "Vctk.h"

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

class Certs : public Vctk {
 protected:
  void PlugInBoth() const {
    PlugIn(SharedIdentities().Rsa());
    PlugIn(SharedIdentities().Sm2());
  }

  static const Identity& EncryptionOnly() {
    static const Identity identity =
        SharedIdentities().Make("encryption", "加密", false, "keyEncipherment");
    return identity;
  }

  // The base64 of the DER form, on one line.
  static std::string Base64Of(const Identity& identity) {
    const std::string der =
        OutputOf({"openssl", "x509", "-in", identity.certificate, "-outform", "DER"});
    std::string text = OutputOf({"openssl", "base64", "-A"}, der);
    return text;
  }
};

}  // namespace

TEST_F(Certs, TableShowsSerialTypeAndSubject) {
  PlugInBoth();
  const Outcome outcome = Run({"certs"});
  EXPECT_EQ(outcome.exitCode, kDone);
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out, StartsWith("SERIAL"));
  EXPECT_THAT(outcome.out, HasSubstr(SharedIdentities().Rsa().serial + "  RSA   CN=张三"));
  EXPECT_THAT(outcome.out, HasSubstr(SharedIdentities().Sm2().serial + "  SM2   CN=李四"));
}

TEST_F(Certs, JsonHasAllOfEachCertificate) {
  PlugInBoth();
  const Outcome outcome = Run({"certs", "--json"});
  EXPECT_EQ(outcome.exitCode, kDone);
  const auto list = nlohmann::json::parse(outcome.out);
  ASSERT_EQ(list.size(), 2u);
  for (const Identity* identity : {&SharedIdentities().Rsa(), &SharedIdentities().Sm2()}) {
    const auto& entry = list[0]["serial"] == identity->serial ? list[0] : list[1];
    EXPECT_EQ(entry["serial"], identity->serial);
    EXPECT_EQ(entry["type"], identity == &SharedIdentities().Rsa() ? "RSA" : "SM2");
    EXPECT_THAT(entry["subject"].get<std::string>(), HasSubstr("CN=" + identity->name));
    EXPECT_EQ(entry["certificate"], Base64Of(*identity));
  }
}

TEST_F(Certs, AnEmptyKeyStoreExitsWith5AndSaysWhatToDo) {
  const Outcome outcome = Run({"certs"});
  EXPECT_EQ(outcome.exitCode, kNoCertificate);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, HasSubstr("Plug in the key"));
  EXPECT_EQ(Run({"certs", "--json"}).out, "[]\n");
}

TEST_F(Certs, ThatCannotSignAreNotListed) {
  PlugIn(EncryptionOnly());
  EXPECT_EQ(Run({"certs"}).exitCode, kNoCertificate);
}

TEST_F(Certs, FiltersGoByName) {
  PlugInBoth();
  const Outcome bySubject = Run({"certs", "--filter", "subject=张三"});
  EXPECT_THAT(bySubject.out, HasSubstr("张三"));
  EXPECT_THAT(bySubject.out, Not(HasSubstr("李四")));
  const Outcome bySerial = Run({"certs", "--filter", "serial=" + SharedIdentities().Sm2().serial});
  EXPECT_THAT(bySerial.out, Not(HasSubstr("张三")));
  EXPECT_THAT(bySerial.out, HasSubstr("李四"));
}

TEST_F(Certs, AllFiltersMustHold) {
  PlugInBoth();
  const Outcome outcome = Run({"certs", "--filter", "name=李四", "--filter", "subject=张三"});
  EXPECT_EQ(outcome.exitCode, kNoCertificate);
}

TEST_F(Certs, AFilterValueThatIsNotUnderstoodIsReported) {
  PlugInBoth();
  const Outcome outcome = Run({"certs", "--filter", "usage=often"});
  EXPECT_EQ(outcome.exitCode, kFailed);
  EXPECT_THAT(outcome.err, HasSubstr("0xE0000003 无效的参数"));
}

TEST_F(Certs, NamesAreUtf8InEveryLocale) {
  PlugInBoth();
  for (const char* locale : {"C", "POSIX", "zh_CN.GB18030", "no_such_locale", ""}) {
    Invocation invocation = Command({"certs"});
    invocation.environment["LC_ALL"] = locale;
    EXPECT_THAT(RunProgram(invocation).out, HasSubstr("CN=李四")) << locale;
  }
}

TEST_F(Certs, ControlCharactersOfANameDoNotReachTheTerminal) {
  PlugIn(SharedIdentities().Make("hostile", "A\x1B[2JB\x07\xC2\x9B", false));
  const Outcome outcome = Run({"certs"});
  EXPECT_EQ(outcome.exitCode, kDone);
  EXPECT_EQ(outcome.out.find_first_of("\x1B\x07"), std::string::npos);
  EXPECT_EQ(outcome.out.find("\xC2\x9B"), std::string::npos);
}

TEST_F(Certs, AFullDiskOrAClosedPipeExitsWith3) {
  PlugInBoth();
  Invocation full = Command({"certs"});
  full.outPath = "/dev/full";
  EXPECT_EQ(RunProgram(full).exitCode, kFile);
  Invocation broken = Command({"certs"});
  broken.outBroken = true;
  const Outcome outcome = RunProgram(broken);
  EXPECT_EQ(outcome.exitCode, kFile);
  EXPECT_THAT(outcome.err, HasSubstr("standard output: Broken pipe"));
}

TEST_F(Certs, AllTellsWhatIsHiddenAndWhy) {
  PlugIn(SharedIdentities().Rsa());
  PlugIn(EncryptionOnly());
  WriteText(KeyStore() + "/broken.p12", "rubbish");
  const Outcome outcome = Run({"certs", "--all"});
  EXPECT_EQ(outcome.exitCode, kDone);
  EXPECT_THAT(outcome.out, HasSubstr(SharedIdentities().Rsa().serial + "  RSA   CN=张三"));
  EXPECT_THAT(outcome.out, HasSubstr("Hidden:\n  " + EncryptionOnly().serial + "  CN=加密"));
  EXPECT_THAT(outcome.out, HasSubstr("not for signing"));
  EXPECT_THAT(outcome.out, HasSubstr("Not looked into:\n  "));
  EXPECT_THAT(outcome.out, HasSubstr("broken.p12: 0xE0000089"));
  EXPECT_THAT(Run({"certs"}).out, Not(HasSubstr("Hidden")));
}

TEST_F(Certs, AllAsJsonHasThreeLists) {
  PlugInBoth();
  const Outcome outcome = Run({"certs", "--all", "--json", "--filter", "subject=李四"});
  EXPECT_EQ(outcome.exitCode, kDone);
  const auto all = nlohmann::json::parse(outcome.out);
  ASSERT_EQ(all["certificates"].size(), 1u);
  EXPECT_EQ(all["certificates"][0]["serial"], SharedIdentities().Sm2().serial);
  ASSERT_EQ(all["hidden"].size(), 1u);
  EXPECT_EQ(all["hidden"][0]["serial"], SharedIdentities().Rsa().serial);
  EXPECT_EQ(all["hidden"][0]["reasons"], nlohmann::json::array({"left out by the filter subject"}));
  EXPECT_THAT(all["skipped"].dump(), Not(HasSubstr(KeyStore())));
}

TEST_F(Certs, AllTellsOfCertificatesWithoutKeysToo) {
  std::filesystem::copy(SharedIdentities().Rsa().certificate, KeyStore() + "/x.crt");
  OutputOf({"openssl", "pkcs12", "-export", "-nokeys", "-in", SharedIdentities().Rsa().certificate,
            "-certpbe", "NONE", "-passout", "pass:12345678", "-out", KeyStore() + "/x.p12"});
  const Outcome outcome = Run({"certs", "--all"});
  EXPECT_EQ(outcome.exitCode, kNoCertificate);
  EXPECT_THAT(outcome.out, HasSubstr("no private key"));
}
