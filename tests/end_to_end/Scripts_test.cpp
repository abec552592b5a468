// The demonstration, as a newcomer runs it.
#include <gmock/gmock.h>
#include <stdlib.h>

#include "Identities.h"
#include "Program.h"

using ::testing::HasSubstr;

namespace {

class Scripts : public ::testing::Test {
 protected:
  Outcome Demo(const std::vector<std::string>& arguments, const std::string& tamper = "") const {
    Invocation invocation;
    invocation.command = {PROJECT "/scripts/demo.sh"};
    invocation.command.insert(invocation.command.end(), arguments.begin(), arguments.end());
    invocation.environment = {{"HOME", m_folder.Path()}, {"VCTK", getenv("VCTK")}};
    if (!tamper.empty()) {
      invocation.environment["VCTK"] = PROJECT "/tests/end_to_end/tampering_vctk.sh";
      invocation.environment["REAL_VCTK"] = getenv("VCTK");
      invocation.environment["TAMPER"] = tamper;
    }
    return RunProgram(invocation);
  }

  const TemporaryFolder& Folder() const { return m_folder; }

 private:
  TemporaryFolder m_folder;
};

}  // namespace

TEST_F(Scripts, DemoSignsTheDefaultDocumentInSixWays) {
  const Outcome outcome = Demo({});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  for (const char* text : {"张三", "李四", "All 6 signatures verified."}) {
    EXPECT_THAT(outcome.out, HasSubstr(text));
  }
}

TEST_F(Scripts, DemoSignsTheFileThatIsNamed) {
  const std::string file = Folder().File("合同 1.bin");
  WriteText(file, std::string("\0\xFF", 2) + std::string(70000, '\n'));
  const Outcome outcome = Demo({file});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr(file));
}

TEST_F(Scripts, DemoFailsOnATamperedSignatureFirstOrLast) {
  for (const char* signature : {"/p1-rsa", "/detached-sm2"}) {
    const Outcome outcome = Demo({}, signature);
    EXPECT_NE(outcome.exitCode, 0) << signature;
    EXPECT_EQ(outcome.out.find("All 6"), std::string::npos) << signature;
    EXPECT_THAT(outcome.err, HasSubstr("NOT verified")) << signature;
  }
}

TEST_F(Scripts, DemoFailsWhenSigningFails) {
  EXPECT_NE(Demo({}, "fail").exitCode, 0);
}

TEST_F(Scripts, DemoFailsOnAMissingFile) {
  const Outcome outcome = Demo({Folder().File("none")});
  EXPECT_NE(outcome.exitCode, 0);
  EXPECT_THAT(outcome.err, HasSubstr("cannot read"));
}
