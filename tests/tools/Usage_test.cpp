#include <gmock/gmock.h>

#include "Vctk.h"

using ::testing::HasSubstr;
using ::testing::StartsWith;

using Usage = Vctk;

TEST_F(Usage, VersionIsTheProjects) {
  const Outcome outcome = Run({"--version"});
  EXPECT_EQ(outcome.exitCode, kDone);
  EXPECT_EQ(outcome.out, "vctk " VCTK_VERSION "\n");
  EXPECT_EQ(outcome.err, "");
}

TEST_F(Usage, HelpGoesToStandardOutputAndListsCommandsAndExitCodes) {
  const Outcome outcome = Run({"--help"});
  EXPECT_EQ(outcome.exitCode, kDone);
  EXPECT_EQ(outcome.err, "");
  for (const char* text :
       {"certs", "sign", "pin", "message", "Exit codes: 0 done", "7 cancelled"}) {
    EXPECT_THAT(outcome.out, HasSubstr(text));
  }
}

TEST_F(Usage, EveryCommandHasHelp) {
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"certs"}, {"sign"}, {"pin", "change"}, {"message"}}) {
    std::vector<std::string> arguments = command;
    arguments.push_back("--help");
    EXPECT_EQ(Run(arguments).exitCode, kDone) << command.front();
  }
}

TEST_F(Usage, WrongCommandLinesExitWith2AndPrintNothingOnStandardOutput) {
  const std::vector<std::vector<std::string>> lines = {
      {},
      {"nonsense"},
      {"certs", "--nonsense"},
      {"sign"},
      {"sign", "a", "-"},
      {"doctor", "x"},
      {"calls", "x"},
      {"sign", "a", "--p1", "--p7"},
      {"sign", "a", "--p1", "--detached"},
      {"pin"},
      {"pin", "change", "x"},
      {"message"},
      {"message", "rubbish"},
      {"message", "0x1FFFFFFFF"},
      {"message", ""},
      {"certs", "--filter", "colour=red"},
      {"certs", "--filter", "subject"},
      {"certs", "--filter", "subject="},
  };
  for (const auto& line : lines) {
    const Outcome outcome = Run(line);
    EXPECT_EQ(outcome.exitCode, kUsage) << ::testing::PrintToString(line);
    EXPECT_EQ(outcome.out, "");
    EXPECT_NE(outcome.err, "");
  }
}

TEST_F(Usage, APinIsNoArgument) {
  const std::string file = Have("document", "text");
  for (const char* option : {"--pin", "--pin=12345678", "-p"}) {
    EXPECT_EQ(Run({"sign", file, option, "12345678"}).exitCode, kUsage) << option;
  }
}

TEST_F(Usage, AnUnknownFilterIsAnsweredWithTheKnownOnes) {
  EXPECT_THAT(Run({"certs", "--filter", "colour=red"}).err,
              HasSubstr("issuer, serial, subject, email"));
}
