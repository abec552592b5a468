#include <gmock/gmock.h>

#include <filesystem>

#include "Vctk.h"

using ::testing::HasSubstr;

namespace {

const char kNoKeys[] = "<authinfo><liblist></liblist></authinfo>";
const char kStore[] =
    "<authinfo><liblist><lib type=\"CSP\" version=\"1\">"
    "<algid val=\"SHA1\" sm2_hashalg=\"SM3\"/></lib></liblist></authinfo>";

class WhichKeyList : public Vctk {
 protected:
  WhichKeyList() { PlugIn(SharedIdentities().Rsa()); }

  // A list that is rejected by name shows which one was taken.
  std::string Rejected(const std::string& name) const {
    std::filesystem::create_directories(std::filesystem::path(Folder().File(name)).parent_path());
    return Have(name, "<rejected>");
  }

  static void ExpectRejected(const Outcome& outcome, const std::string& file) {
    EXPECT_EQ(outcome.exitCode, kNoSession);
    EXPECT_THAT(outcome.err, HasSubstr(file + " is no key list"));
  }
};

}  // namespace

TEST_F(WhichKeyList, WithoutAnyIsTheKeyStore) {
  const Outcome outcome = Run({"certs"});
  EXPECT_EQ(outcome.exitCode, kDone);
  EXPECT_THAT(outcome.out, HasSubstr("张三"));
}

TEST_F(WhichKeyList, OfTheOptionComesFirst) {
  Invocation invocation = Command({"certs", "--key-list", Have("good.xml", kStore)});
  invocation.environment["VCTK_KEY_LIST"] = Rejected("environment.xml");
  EXPECT_EQ(RunProgram(invocation).exitCode, kDone);
}

TEST_F(WhichKeyList, OfTheEnvironmentComesSecond) {
  Invocation invocation = Command({"certs"});
  invocation.environment["VCTK_KEY_LIST"] = Have("good.xml", kStore);
  Rejected(".config/vel/keylist.xml");
  EXPECT_EQ(RunProgram(invocation).exitCode, kDone);
}

TEST_F(WhichKeyList, OfTheUserLiesInTheConfigurationFolder) {
  const std::string inHome = Rejected(".config/vel/keylist.xml");
  ExpectRejected(Run({"certs"}), inHome);

  Invocation invocation = Command({"certs"});
  invocation.environment["XDG_CONFIG_HOME"] = Folder().File("elsewhere");
  EXPECT_EQ(RunProgram(invocation).exitCode, kDone);
  const std::string elsewhere = Rejected("elsewhere/vel/keylist.xml");
  ExpectRejected(RunProgram(invocation), elsewhere);

  invocation.environment["XDG_CONFIG_HOME"] = "elsewhere";
  invocation.folder = Folder().Path();
  ExpectRejected(RunProgram(invocation), inHome);
}

TEST_F(WhichKeyList, OfTheSystemIsTheLast) {
  const std::string list = Rejected("etc/vel/keylist.xml");
  Invocation invocation = Command({"certs"});
  const std::string program = invocation.command[0];
  invocation.command = {"unshare",
                        "-rm",
                        "bash",
                        "-c",
                        "mount --bind \"$0\" /etc || exit 77; \"$@\"",
                        Folder().File("etc"),
                        program,
                        "certs"};
  const Outcome outcome = RunProgram(invocation);
  if (outcome.exitCode == 77 || outcome.err.find("unshare") != std::string::npos) {
    GTEST_SKIP() << "no namespaces here";
  }
  ExpectRejected(outcome, "/etc/vel/keylist.xml");
}

TEST_F(WhichKeyList, ThatIsNamedAndMissingIsAnErrorOfTheFile) {
  const Outcome outcome = Run({"certs", "--key-list", Folder().File("none.xml")});
  EXPECT_EQ(outcome.exitCode, kFile);
  EXPECT_THAT(outcome.err, HasSubstr("none.xml: No such file or directory"));
}

TEST_F(WhichKeyList, WithZeroBytesIsAnErrorOfTheFile) {
  const std::string file = Have("zero.xml", std::string(kStore) + '\0');
  EXPECT_EQ(Run({"certs", "--key-list", file}).exitCode, kFile);
}

TEST_F(WhichKeyList, ThatIsEmptyOrLacksItsElementsIsRejected) {
  for (const char* text : {"", "rubbish", "<authinfo></authinfo>", "<liblist></liblist>"}) {
    const std::string file = Have("list.xml", text);
    ExpectRejected(Run({"certs", "--key-list", file}), file);
  }
}

TEST_F(WhichKeyList, WithoutKeysListsNothing) {
  EXPECT_EQ(Run({"certs", "--key-list", Have("list.xml", kNoKeys)}).exitCode, kNoCertificate);
}

TEST_F(WhichKeyList, IsNotBlamedForADeviceLibraryThatCannotBeLoaded) {
  for (const char* variant :
       {"cannot_be_loaded", "lacks_container_factory", "gives_no_call_queue"}) {
    Invocation invocation = Command({"certs", "--json"});
    invocation.environment["LD_LIBRARY_PATH"] = std::string(getenv("FAKES")) + "/" + variant;
    // The record of the fake library is not meant to be given back.
    invocation.environment["ASAN_OPTIONS"] = "detect_leaks=0";
    const Outcome outcome = RunProgram(invocation);
    EXPECT_EQ(outcome.exitCode, kNoSession) << variant;
    EXPECT_THAT(outcome.err, HasSubstr("libVELCrypto64.so cannot be loaded")) << variant;
    EXPECT_EQ(outcome.out, "") << "what libraries print is no output of the program";
  }
}
