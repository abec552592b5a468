#include <gmock/gmock.h>
#include <signal.h>

#include "PinentryScript.h"
#include "Terminal.h"
#include "Vctk.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

class PinEntry : public Vctk {
 protected:
  PinEntry() { PlugIn(SharedIdentities().Rsa()); }

  Invocation Signing() const { return Command({"sign", Have("document", "text")}); }

  // With a PIN dialog that knows the PIN, started as a desktop starts programs.
  Invocation SigningWithDialog(const std::vector<std::string>& options) const {
    PinentryScript script(Folder().Path());
    script.Play({std::string("GETPIN pin ") + Identities::kPin});
    Invocation invocation = Signing();
    invocation.command.insert(invocation.command.end(), options.begin(), options.end());
    invocation.command.insert(invocation.command.begin(),
                              {"setsid", "-w", "sh", "-c", "\"$0\" \"$@\" </dev/null"});
    invocation.environment["VEL_PINENTRY"] = FAKE_PINENTRY_PATH;
    invocation.environment["FAKE_PINENTRY"] = Folder().Path();
    return invocation;
  }

  // All of a file below /proc, zero bytes included.
  static std::string ProcessFile(pid_t process, const std::string& name) {
    return ReadText("/proc/" + std::to_string(process) + "/" + name);
  }
};

}  // namespace

TEST_F(PinEntry, AsksWithoutEchoAndNamesTheCertificate) {
  Terminal terminal(Signing());
  const std::string prompt = terminal.WaitFor("PIN: ");
  EXPECT_THAT(prompt, HasSubstr("CN=张三"));
  EXPECT_FALSE(terminal.Echoes());
  terminal.Type("12345678\n");
  const Outcome outcome = terminal.Finish();
  EXPECT_EQ(outcome.exitCode, kDone);
  EXPECT_THAT(outcome.out, Not(HasSubstr("12345678")));
  EXPECT_THAT(outcome.out, HasSubstr("MII")) << "the signature is shown";
}

TEST_F(PinEntry, TakesKeysThatCorrectTheLine) {
  Terminal terminal(Signing());
  terminal.WaitFor("PIN: ");
  terminal.Type(
      "wrong\x15"
      "1234567x\x7F"
      "8\n");
  EXPECT_EQ(terminal.Finish().exitCode, kDone);
}

TEST_F(PinEntry, ThePinIsInNoArgumentAndNoEnvironment) {
  Invocation invocation = Signing();
  Terminal terminal(invocation);
  terminal.WaitFor("PIN: ");
  terminal.Type("12345678");
  EXPECT_THAT(ProcessFile(terminal.Child(), "cmdline"), Not(HasSubstr("12345678")));
  EXPECT_THAT(ProcessFile(terminal.Child(), "environ"), Not(HasSubstr("12345678")));
  terminal.Type("\n");
  EXPECT_EQ(terminal.Finish().exitCode, kDone);
}

TEST_F(PinEntry, CoreDumpsAreOffOnceAPinIsAskedFor) {
  Terminal terminal(Signing());
  terminal.WaitFor("PIN: ");
  const std::string limits = ProcessFile(terminal.Child(), "limits");
  const std::string line = limits.substr(limits.find("Max core file size"));
  EXPECT_THAT(line.substr(0, line.find('\n')), ::testing::ContainsRegex(" 0 +0 "));
}

TEST_F(PinEntry, AnInterruptGivesTheEchoBackFirst) {
  Terminal terminal(Signing());
  terminal.WaitFor("PIN: ");
  terminal.Type("1234\x03");
  const Outcome outcome = terminal.Finish();
  EXPECT_EQ(outcome.exitCode, 128 + SIGINT);
  EXPECT_TRUE(terminal.Echoes());
}

// A session leader cannot be stopped, so here the program goes on at once.
TEST_F(PinEntry, AsksAgainAfterASuspend) {
  Terminal terminal(Signing());
  terminal.WaitFor("PIN: ");
  terminal.Type("12\x1A");
  terminal.WaitFor("PIN: ");
  EXPECT_FALSE(terminal.Echoes());
  terminal.Type("12345678\n");
  EXPECT_EQ(terminal.Finish().exitCode, kDone);
}

TEST_F(PinEntry, TheEndOfTheInputIsNoPin) {
  Terminal terminal(Signing());
  terminal.WaitFor("PIN: ");
  terminal.Type("\x04");
  const Outcome outcome = terminal.Finish();
  EXPECT_EQ(outcome.exitCode, kPinFault);
  EXPECT_THAT(outcome.out, HasSubstr("no PIN was given"));
}

TEST_F(PinEntry, WithoutATerminalSaysSo) {
  Invocation invocation = Command({"sign", "-"});
  invocation.command.insert(invocation.command.begin(), {"setsid", "-w"});
  invocation.input = "text";
  const Outcome outcome = RunProgram(invocation);
  EXPECT_EQ(outcome.exitCode, kPinFault);
  EXPECT_THAT(outcome.err, HasSubstr("no terminal to ask for the PIN"));
}

TEST_F(PinEntry, BinaryDoesNotGoToTheTerminal) {
  Invocation invocation = Signing();
  invocation.command.push_back("--binary");
  EXPECT_EQ(Terminal(invocation).Finish().exitCode, kUsage);
}

TEST_F(PinEntry, IsLeftToTheDialogOfTheDeviceLibraryWhenNobodyGaveAPin) {
  for (const std::vector<std::string>& options : {std::vector<std::string>{},
                                                  {"--detached"},
                                                  {"--p1"},
                                                  {"--cert", SharedIdentities().Rsa().serial}}) {
    const Outcome outcome = RunProgram(SigningWithDialog(options));
    EXPECT_EQ(outcome.exitCode, kDone) << outcome.err;
    EXPECT_FALSE(outcome.out.empty());
  }
}

TEST_F(PinEntry, AGivenPinLeavesTheDialogOut) {
  const Outcome outcome = RunProgram(SigningWithDialog({"--pin-file", Have("pin", "wrong pin\n")}));
  EXPECT_EQ(outcome.exitCode, kPinFault);
  EXPECT_THAT(outcome.err, HasSubstr("0xE0000056"));
}
