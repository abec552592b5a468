// Real programs whose users type the PIN into a real pinentry on a pseudo-terminal; and what is
// left of the PIN in them.
#include <gmock/gmock.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "Identities.h"
#include "MemoryScan.h"
#include "PinentryScript.h"
#include "Program.h"
#include "Terminal.h"

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

const char kPin[] = "Kiefernzapfen-47%-Waldweg";
const char kWrongPin[] = "Tannenzapfen-11%-Wiesenweg";
// Parts that are not what freed memory or an escape overwrites.
const char* const kTraces[] = {"Kiefernzapfen", "Waldweg", "Tannenzapfen", "Wiesenweg"};
const char kCancelKeys[] = "\t\t\r";

enum { kDone = 0, kFailed = 1, kPinFault = 6, kCancelled = 7 };

class PinOnTheTerminal : public ::testing::Test {
 protected:
  void SetUp() override {
    if (OutputOf({"sh", "-c", "command -v pinentry-curses || true"}).empty()) {
      GTEST_SKIP() << "there is no pinentry-curses";
    }
    std::filesystem::create_directory(m_folder.File("keystore"));
    const std::string key = OutputOf({"openssl", "pkcs12", "-in", Key().pkcs12, "-nodes", "-passin",
                                      std::string("pass:") + Identities::kPin});
    WriteText(m_folder.File("key.pem"), key);
    WriteText(m_folder.File("password"), std::string(kPin) + "\n");
    OutputOf({"openssl", "pkcs12", "-export", "-certpbe", "NONE", "-in", m_folder.File("key.pem"),
              "-out", KeyFile(), "-passout", "file:" + m_folder.File("password")});
    std::filesystem::remove(m_folder.File("password"));
    WriteText(m_folder.File("document"), "text");
  }

  static const Identity& Key() { return SharedIdentities().Rsa(); }
  std::string KeyFile() const { return m_folder.File("keystore/key.p12"); }

  Invocation Command(const std::string& variable, const std::vector<std::string>& arguments) const {
    Invocation invocation;
    invocation.command = {getenv(variable.c_str())};
    invocation.command.insert(invocation.command.end(), arguments.begin(), arguments.end());
    invocation.environment = {{"HOME", m_folder.Path()},
                              {"VEL_KEYSTORE", m_folder.File("keystore")},
                              {"VEL_PINENTRY", "pinentry-curses"},
                              {"TERM", "xterm"},
                              {"LC_ALL", "C.UTF-8"}};
    return invocation;
  }
  Invocation Signing() const {
    return Command("VCTK", {"sign", m_folder.File("document"), "-o", m_folder.File("signature")});
  }
  // A session that stays open.
  Invocation Host() const { return Command("HOST", {Key().serial, "control-sheep"}); }

  bool Signed() const { return std::filesystem::exists(m_folder.File("signature")); }

  // The dialog, which the program under test has started; waits for it.
  static pid_t DialogOf(pid_t program) {
    const std::string id = std::to_string(program);
    for (;;) {
      std::ifstream children("/proc/" + id + "/task/" + id + "/children");
      pid_t child = 0;
      if (children >> child) return child;
      usleep(5000);
    }
  }

  static std::vector<std::string> Traces() {
    std::vector<std::string> all;
    for (const char* const trace : kTraces) {
      std::vector<std::string> forms = FormsOf(trace);
#ifdef __SANITIZE_ADDRESS__
      // Its allocator keeps what others free, and OpenSSL frees one copy of 2-byte characters
      // unwiped, which the device library wipes by allocating the same memory again.
      forms.erase(forms.begin() + 1);
#endif
      all.insert(all.end(), forms.begin(), forms.end());
    }
    return all;
  }

  static void ExpectNoTraceIn(pid_t process) {
    const std::vector<std::string> control = FormsOf("control-sheep");
    EXPECT_THAT(FoundInMemory(process, {control[0], control[2]}), SizeIs(2)) << "or none is found";
    EXPECT_THAT(FoundInMemory(process, Traces()), IsEmpty());
  }

  static bool HoldsATrace(const std::string& content) {
    const std::vector<std::string> traces = Traces();
    return std::any_of(traces.begin(), traces.end(), [&content](const std::string& trace) {
      return content.find(trace) != std::string::npos;
    });
  }

  // Neither the user's files nor logs beside them.
  void ExpectNoTraceInFiles() const {
    std::vector<std::filesystem::path> files;
    for (const auto& each : std::filesystem::directory_iterator("/tmp")) files.push_back(each);
    for (const auto& each : std::filesystem::recursive_directory_iterator(m_folder.Path())) {
      files.push_back(each);
    }
    for (const auto& file : files) {
      if (std::filesystem::is_regular_file(file)) {
        EXPECT_FALSE(HoldsATrace(ReadText(file))) << file;
      }
    }
    EXPECT_GT(files.size(), 3u);
  }

  TemporaryFolder m_folder;
};

}  // namespace

TEST_F(PinOnTheTerminal, TheRightPinSigns) {
  Terminal terminal(Signing());
  const std::string shown = terminal.WaitFor("<Cancel>");
  EXPECT_THAT(shown, HasSubstr("Certificate: 张三"));
  EXPECT_THAT(shown, HasSubstr("key.p12"));
  terminal.Type(std::string(kPin) + "\r");
  const Outcome outcome = terminal.Finish();
  EXPECT_EQ(outcome.exitCode, kDone) << outcome.out;
  EXPECT_TRUE(Signed());
  EXPECT_TRUE(terminal.Echoes());
}

TEST_F(PinOnTheTerminal, WrongTwiceAndThenRight) {
  Terminal terminal(Signing());
  terminal.WaitFor("<Cancel>");
  terminal.Type("wrong\r");
  EXPECT_THAT(terminal.WaitFor("<Cancel>"), HasSubstr("Wrong PIN, 9 tries left"));
  terminal.Type("wrong too\r");
  EXPECT_THAT(terminal.WaitFor("<Cancel>"), HasSubstr("Wrong PIN, 8 tries left"));
  terminal.Type(std::string(kPin) + "\r");
  EXPECT_EQ(terminal.Finish().exitCode, kDone);
  EXPECT_TRUE(Signed());
}

TEST_F(PinOnTheTerminal, ChineseWhereTheLocaleIs) {
  Invocation invocation = Signing();
  invocation.environment["LC_ALL"] = "zh_CN.UTF-8";
  Terminal terminal(invocation);
  EXPECT_THAT(terminal.WaitFor("取消"), HasSubstr("证书：张三"));
  terminal.Type("123\r");
  EXPECT_THAT(terminal.WaitFor("取消"), HasSubstr("PIN 码长度为 4 到 64 个字符"));
  terminal.Type("wrong\r");
  EXPECT_THAT(terminal.WaitFor("取消"), HasSubstr("PIN 码错误，还可以尝试 9 次"));
  terminal.Type(std::string(kPin) + "\r");
  EXPECT_EQ(terminal.Finish().exitCode, kDone);
}

TEST_F(PinOnTheTerminal, LocksAfterTheLastTry) {
  Terminal terminal(Signing());
  for (int i = 0; i < 10; ++i) {
    const std::string shown = terminal.WaitFor("<Cancel>");
    if (i == 9) {
      EXPECT_THAT(shown, HasSubstr("1 try left"));
    }
    terminal.Type("wrong\r");
  }
  const Outcome outcome = terminal.Finish();
  EXPECT_EQ(outcome.exitCode, kPinFault);
  EXPECT_THAT(outcome.out, HasSubstr("0xE0000057"));
}

TEST_F(PinOnTheTerminal, CancelledAtOnceOrAfterAWrongPin) {
  for (const bool late : {false, true}) {
    Terminal terminal(Signing());
    terminal.WaitFor("<Cancel>");
    if (late) {
      terminal.Type("wrong\r");
      terminal.WaitFor("<Cancel>");
    }
    terminal.Type(kCancelKeys);
    const Outcome outcome = terminal.Finish();
    EXPECT_EQ(outcome.exitCode, kCancelled);
    EXPECT_THAT(outcome.out, HasSubstr("0xE0000002"));
    EXPECT_FALSE(Signed());
    EXPECT_TRUE(terminal.Echoes());
  }
}

TEST_F(PinOnTheTerminal, TheInterruptKeyEndsItAndGivesTheEchoBack) {
  Terminal terminal(Signing());
  terminal.WaitFor("<Cancel>");
  terminal.Type("Kief\x03");
  EXPECT_EQ(terminal.Finish().exitCode, 128 + SIGINT);
  EXPECT_TRUE(terminal.Echoes());
  EXPECT_FALSE(Signed());
}

TEST_F(PinOnTheTerminal, AKilledDialogIsAFailureAndGivesTheEchoBack) {
  Terminal terminal(Signing());
  terminal.WaitFor("<Cancel>");
  EXPECT_FALSE(terminal.Echoes());
  kill(DialogOf(terminal.Child()), SIGKILL);
  const Outcome outcome = terminal.Finish();
  EXPECT_EQ(outcome.exitCode, kFailed);
  EXPECT_THAT(outcome.out, HasSubstr("0xE0000001"));
  EXPECT_TRUE(terminal.Echoes());
}

TEST_F(PinOnTheTerminal, AKeyThatIsRemovedMeanwhileIsMissed) {
  Terminal terminal(Signing());
  terminal.WaitFor("<Cancel>");
  std::filesystem::remove(KeyFile());
  terminal.Type(std::string(kPin) + "\r");
  const Outcome outcome = terminal.Finish();
  EXPECT_EQ(outcome.exitCode, kFailed);
  EXPECT_THAT(outcome.out, HasSubstr("0xE0000042"));
}

TEST_F(PinOnTheTerminal, WithoutATerminalThereIsNoDialog) {
  Invocation invocation = Command("VCTK", {"sign", "-"});
  invocation.command.insert(invocation.command.begin(), {"setsid", "-w"});
  invocation.input = "text";
  const Outcome outcome = RunProgram(invocation);
  EXPECT_EQ(outcome.exitCode, kPinFault);
  EXPECT_THAT(outcome.err, HasSubstr("no terminal to ask for the PIN"));
}

TEST_F(PinOnTheTerminal, APinOnStandardInputIsNotAskedFor) {
  Invocation invocation = Signing();
  invocation.input = std::string(kPin) + "\n";
  EXPECT_EQ(RunProgram(invocation).exitCode, kDone);
}

TEST_F(PinOnTheTerminal, NothingOfThePinStays) {
  Terminal terminal(Host());
  terminal.WaitFor("<Cancel>");
  terminal.Type(std::string(kWrongPin) + "\r");
  terminal.WaitFor("<Cancel>");
  terminal.Type(std::string(kPin) + "\r");
  const std::string shown = terminal.WaitFor("signed 0x00000000");
  EXPECT_THAT(shown, HasSubstr("\"operation\":\"AskPin\""));
  ExpectNoTraceIn(terminal.Child());
  terminal.Type("\n");
  const std::string closed = terminal.WaitFor("closed");
  ExpectNoTraceIn(terminal.Child());
  ExpectNoTraceInFiles();
  terminal.Type("\n");
  const Outcome outcome = terminal.Finish();
  EXPECT_EQ(outcome.exitCode, kDone);
  EXPECT_FALSE(HoldsATrace(shown + closed + outcome.out));
}

TEST_F(PinOnTheTerminal, NothingOfAWrongPinStaysAfterCancelling) {
  Terminal terminal(Host());
  terminal.WaitFor("<Cancel>");
  terminal.Type(std::string(kWrongPin) + "\r");
  terminal.WaitFor("<Cancel>");
  terminal.Type(kCancelKeys);
  terminal.WaitFor("signed 0xE0000002");
  ExpectNoTraceIn(terminal.Child());
}
