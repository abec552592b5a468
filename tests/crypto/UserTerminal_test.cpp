// The real pinentry programs for terminals, and which terminal they are told.
#include "UserTerminal.h"

#include <gmock/gmock.h>
#include <stdlib.h>

#include "Terminal.h"

using ::testing::ContainsRegex;
using ::testing::HasSubstr;

namespace {

class UserTerminalTest : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (OutputOf({"sh", "-c", std::string("command -v ") + GetParam() + " || true"}).empty()) {
      GTEST_SKIP() << "there is no " << GetParam();
    }
  }

  static Invocation Asking(const std::string& seconds) {
    Invocation invocation;
    invocation.command = {ASKS_PINENTRY, GetParam(), seconds};
    invocation.environment = {{"TERM", "xterm"}, {"LC_ALL", "C.UTF-8"}};
    return invocation;
  }
  static Invocation InShell(const std::string& script) {
    Invocation invocation = Asking("120");
    invocation.command.insert(invocation.command.begin(), {"/bin/sh", "-c", script});
    return invocation;
  }
};

INSTANTIATE_TEST_SUITE_P(Flavours, UserTerminalTest,
                         ::testing::Values("pinentry-curses", "pinentry-tty"),
                         [](const auto& each) { return std::string(each.param).substr(9); });

}  // namespace

TEST_P(UserTerminalTest, IsAskedOnAndKeepsItsEcho) {
  Terminal terminal(Asking("120"));
  EXPECT_THAT(terminal.WaitFor("PIN: "), ContainsRegex("terminal \"/dev/pts/[0-9]+\""));
  terminal.Type("密码 12%\r");
  EXPECT_THAT(terminal.Finish().out, HasSubstr("result 0x00000000 \"密码 12%\""));
  EXPECT_TRUE(terminal.Echoes());
}

TEST_P(UserTerminalTest, NobodyThereIsATimeout) {
  Terminal terminal(Asking("1"));
  EXPECT_THAT(terminal.Finish().out, HasSubstr("result 0xE0000016 \"\""));
  EXPECT_TRUE(terminal.Echoes());
}

TEST_P(UserTerminalTest, IsFoundBehindRedirectedStreams) {
  Terminal terminal(InShell("\"$0\" \"$1\" \"$2\" </dev/null | cat"));
  terminal.WaitFor("PIN: ");
  terminal.Type("1234\r");
  const std::string shown = terminal.Finish().out;
  EXPECT_THAT(shown, HasSubstr("result 0x00000000 \"1234\""));
}

// A dialog there would be stopped by its first look at the keyboard.
TEST_P(UserTerminalTest, IsNotAskedOnFromTheBackground) {
  Terminal terminal(InShell("set -m; \"$0\" \"$1\" \"$2\" & wait"));
  const std::string shown = terminal.Finish().out;
  EXPECT_THAT(shown, HasSubstr("terminal \"\""));
  EXPECT_THAT(shown, HasSubstr("result 0xE000005A"));
}

TEST_P(UserTerminalTest, WithoutOneThereIsNoDialog) {
  Invocation invocation = Asking("120");
  invocation.command.insert(invocation.command.begin(), {"setsid", "-w"});
  const Outcome outcome = RunProgram(invocation);
  EXPECT_THAT(outcome.out, HasSubstr("terminal \"\""));
  EXPECT_THAT(outcome.out, HasSubstr("result 0xE000005A"));
}
