#include <gmock/gmock.h>

#include <filesystem>

#include "Terminal.h"
#include "Vctk.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

class SignSeveral : public Vctk {
 protected:
  SignSeveral() { PlugIn(SharedIdentities().Rsa()); }

  bool Exists(const std::string& name) const {
    return std::filesystem::exists(Folder().File(name));
  }
};

}  // namespace

TEST_F(SignSeveral, EachSignatureLiesBesideItsFile) {
  struct Case {
    std::vector<std::string> options;
    const char* kind;
    const char* ending;
  };
  const Case cases[] = {
      {{}, "p7", ".p7"}, {{"--detached"}, "detached", ".p7s"}, {{"--p1"}, "p1", ".p1"}};
  for (const Case& each : cases) {
    const std::string first = Have("first", "1");
    const std::string second = Have("第二.pdf", "2");
    std::vector<std::string> arguments = {"sign", first, second, "--binary"};
    arguments.insert(arguments.end(), each.options.begin(), each.options.end());
    const Outcome outcome = Run(arguments, "12345678\n");
    ASSERT_EQ(outcome.exitCode, kDone) << outcome.err;
    EXPECT_EQ(outcome.out, first + each.ending + "\n" + second + each.ending + "\n");
    EXPECT_EQ(outcome.err, "") << "a bar is for terminals";
    for (const std::string& file : {first, second}) {
      OutputOf({VERIFY_SCRIPT, each.kind, file + each.ending, file,
                SharedIdentities().Rsa().certificate, SharedIdentities().Authority()});
    }
  }
}

TEST_F(SignSeveral, OrInTheFolderThatIsNamed) {
  std::filesystem::create_directory(Folder().File("out"));
  EXPECT_EQ(Run({"sign", Have("a", "1"), Have("b", "2"), "-o", Folder().File("out")}, "12345678\n")
                .exitCode,
            kDone);
  EXPECT_TRUE(Exists("out/a.p7") && Exists("out/b.p7"));
}

TEST_F(SignSeveral, WhatCannotGoTogetherIsRefusedBeforeAnythingIsAsked) {
  std::filesystem::create_directory(Folder().File("x"));
  const std::string a = Have("a", "1");
  const std::string twin = Have("x/a", "2");
  EXPECT_EQ(Run({"sign", a, "-"}, "12345678\n").exitCode, kUsage);
  EXPECT_EQ(Run({"sign", a, Have("b", "1"), "-o", a}, "12345678\n").exitCode, kUsage);
  EXPECT_EQ(Run({"sign", a, twin, "-o", Folder().Path()}, "12345678\n").exitCode, kUsage);
  EXPECT_EQ(Run({"sign", a, a}, "12345678\n").exitCode, kUsage);
  EXPECT_EQ(Run({"sign", a, Folder().File("none")}, "12345678\n").exitCode, kFile);
  EXPECT_EQ(Run({"sign", a, Have("empty", "")}, "12345678\n").exitCode, kFile);
  EXPECT_EQ(Run({"sign", a, Folder().File("x")}, "12345678\n").exitCode, kFile);
  EXPECT_FALSE(Exists("a.p7"));
}

TEST_F(SignSeveral, AWrongPinCostsOneTry) {
  const Outcome outcome = Run({"sign", Have("a", "1"), Have("b", "2")}, "87654321\n");
  EXPECT_EQ(outcome.exitCode, kPinFault);
  EXPECT_THAT(outcome.err, HasSubstr("0 of 2 files are signed"));
  EXPECT_THAT(outcome.err, HasSubstr("还有9次"));
  EXPECT_FALSE(Exists("a.p7") || Exists("b.p7"));
}

TEST_F(SignSeveral, AFailureTellsHowFarItCame) {
  std::filesystem::create_directory(Folder().File("b.p7"));
  const std::string b = Have("b", "2");
  const Outcome outcome = Run({"sign", Have("a", "1"), b, Have("c", "3")}, "12345678\n");
  EXPECT_EQ(outcome.exitCode, kFile);
  EXPECT_THAT(outcome.err, HasSubstr("1 of 3 files are signed; " + b));
  EXPECT_TRUE(Exists("a.p7"));
  EXPECT_FALSE(Exists("c.p7"));
}

TEST_F(SignSeveral, ATerminalShowsABarThatIsGoneAtTheEnd) {
  std::vector<std::string> arguments = {"sign", "--pin-file", PinFile()};
  for (int i = 0; i < 4; ++i) arguments.push_back(Have("f" + std::to_string(i), "text"));
  Terminal terminal(Command(arguments));
  const std::string shown = terminal.WaitFor("] 3/4 ");
  EXPECT_THAT(shown, HasSubstr("[######------------------] 1/4 "));
  EXPECT_THAT(shown, HasSubstr("[############------------] 2/4 "));
  const Outcome outcome = terminal.Finish();
  EXPECT_EQ(outcome.exitCode, kDone);
  EXPECT_THAT(outcome.out, HasSubstr("\r\033[K"));
  EXPECT_THAT(outcome.out, HasSubstr("f3.p7"));
}
