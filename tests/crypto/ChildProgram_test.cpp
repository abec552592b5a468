#include "ChildProgram.h"

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "Traces.h"

using namespace velcrypto;
using ::testing::HasSubstr;
using ::testing::Not;
using Io = ChildProgram::Io;

namespace {

constexpr auto kNow = std::chrono::milliseconds(0);
constexpr auto kPatience = std::chrono::seconds(30);

ChildProgram::Deadline Soon() {
  return ChildProgram::Clock::now() + kPatience;
}

ChildProgram::Deadline Already() {
  return ChildProgram::Clock::now() - std::chrono::seconds(1);
}

Outcome StartShell(ChildProgram& program, const std::string& script,
                   const std::vector<std::string>& variables = {}) {
  return program.Start("/bin/sh", {"-c", script}, variables);
}

// All that the program says until it closes its output.
std::string Everything(ChildProgram& program) {
  std::string text;
  char block[256];
  size_t count = 0;
  while (program.Read(block, sizeof(block), &count, Soon()) == Io::kDone) text.append(block, count);
  return text;
}

std::string SaidBy(const std::string& script, const std::vector<std::string>& variables = {}) {
  ChildProgram program;
  EXPECT_EQ(StartShell(program, script, variables).code, kOk);
  const std::string text = Everything(program);
  EXPECT_EQ(program.Stop(kPatience).status, 0);
  return text;
}

bool HasNoChild() {
  return waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
}

// Nothing of a program may remain, however it ended.
class ChildProgramTest : public ::testing::Test {
 protected:
  void SetUp() override { m_descriptors = OpenDescriptors(); }
  void TearDown() override {
    signal(SIGCHLD, SIG_DFL);
    signal(SIGPIPE, SIG_DFL);
    EXPECT_TRUE(HasNoChild());
    EXPECT_TRUE(DescriptorsAreBackTo(m_descriptors));
  }

 private:
  size_t m_descriptors = 0;
};

}  // namespace

TEST_F(ChildProgramTest, TalksBothWays) {
  ChildProgram program;
  ASSERT_EQ(program.Start("/bin/cat", {}, {}).code, kOk);
  EXPECT_EQ(program.Write("one", 3, Soon()), Io::kDone);
  char text[8] = {};
  size_t count = 0;
  ASSERT_EQ(program.Read(text, sizeof(text), &count, Soon()), Io::kDone);
  EXPECT_EQ(std::string(text, count), "one");
  program.CloseInput();
  EXPECT_EQ(program.Read(text, sizeof(text), &count, Soon()), Io::kClosed);
  const ChildProgram::Ending ending = program.Stop(kPatience);
  EXPECT_TRUE(ending.known);
  EXPECT_FALSE(ending.bySignal);
  EXPECT_EQ(ending.status, 0);
}

TEST_F(ChildProgramTest, ArgumentsArriveAsTheyAre) {
  ChildProgram program;
  ASSERT_EQ(program.Start("/usr/bin/printf", {"%s|", "a b", "", "$HOME", "张三"}, {}).code, kOk);
  EXPECT_EQ(Everything(program), "a b||$HOME|张三|");
}

TEST_F(ChildProgramTest, StartsOnce) {
  ChildProgram program;
  ASSERT_EQ(program.Start("/bin/cat", {}, {}).code, kOk);
  EXPECT_EQ(program.Start("/bin/cat", {}, {}).code, kInvalidParameter);
}

TEST_F(ChildProgramTest, WhatCannotBeStartedSaysWhy) {
  ChildProgram program;
  Outcome outcome = program.Start("/nonexistent/program", {}, {});
  EXPECT_EQ(outcome.code, kFailed);
  EXPECT_EQ(outcome.native, static_cast<unsigned long>(ENOENT));
  EXPECT_THAT(outcome.remark, HasSubstr("/nonexistent/program"));
  outcome = program.Start("/tmp", {}, {});
  EXPECT_EQ(outcome.native, static_cast<unsigned long>(EACCES));
  EXPECT_EQ(program.Write("x", 1, Soon()), Io::kClosed);
  EXPECT_FALSE(program.Stop(kNow).known);
}

TEST_F(ChildProgramTest, GetsNoDescriptorOfTheHost) {
  const int file = open("/dev/null", O_RDONLY);  // would be inherited
  EXPECT_EQ(SaidBy("[ -e /proc/$$/fd/" + std::to_string(file) + " ] && echo open || echo closed"),
            "closed\n");
  close(file);
}

TEST_F(ChildProgramTest, ComplainsToNobody) {
  EXPECT_EQ(SaidBy("readlink /proc/$$/fd/2"), "/dev/null\n");
}

TEST_F(ChildProgramTest, SignalsAreAsAProgramExpectsThem) {
  signal(SIGPIPE, SIG_IGN);
  signal(SIGUSR1, SIG_IGN);
  sigset_t blocked, before;
  sigfillset(&blocked);
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  const std::string text = SaidBy("exec grep -E '^Sig(Blk|Ign)' /proc/self/status");
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  signal(SIGUSR1, SIG_DFL);
  EXPECT_THAT(text, HasSubstr("SigBlk:\t0000000000000000"));
  // The C library itself ignores two signals of its own, 32 and 33, in what it starts.
  EXPECT_THAT(text, ::testing::ContainsRegex("SigIgn:\t0000000[0-9a-f]80000000|"
                                             "SigIgn:\t0000000[0-9a-f]00000000"));
}

TEST_F(ChildProgramTest, TheEnvironmentIsTheHostsButForWhatIsReplacedAndPreloading) {
  setenv("CHILD_KEPT", "kept", 1);
  setenv("CHILD_REPLACED", "host", 1);
  const char* const preload = getenv("LD_PRELOAD");
  const std::string before = preload == nullptr ? "" : preload;
  setenv("LD_PRELOAD", "/nonexistent/preload.so", 1);
  const std::string text = SaidBy("env", {"CHILD_REPLACED=program", "CHILD_NEW=a=b"});
  before.empty() ? unsetenv("LD_PRELOAD") : setenv("LD_PRELOAD", before.c_str(), 1);
  EXPECT_THAT(text, HasSubstr("CHILD_KEPT=kept\n"));
  EXPECT_THAT(text, HasSubstr("CHILD_REPLACED=program\n"));
  EXPECT_THAT(text, HasSubstr("CHILD_NEW=a=b\n"));
  EXPECT_THAT(text, Not(HasSubstr("CHILD_REPLACED=host")));
  EXPECT_THAT(text, Not(HasSubstr("LD_PRELOAD")));
}

TEST_F(ChildProgramTest, OneThatSaysNothingTimesOut) {
  ChildProgram program;
  ASSERT_EQ(program.Start("/bin/sleep", {"1000"}, {}).code, kOk);
  char text[8];
  size_t count = 1;
  EXPECT_EQ(program.Read(text, sizeof(text), &count, Already()), Io::kTimedOut);
  EXPECT_EQ(count, 0u);
}

TEST_F(ChildProgramTest, OneThatReadsNothingTimesOut) {
  ChildProgram program;
  ASSERT_EQ(program.Start("/bin/sleep", {"1000"}, {}).code, kOk);
  const std::string much(4 << 20, 'x');
  EXPECT_EQ(program.Write(much.data(), much.size(), Already()), Io::kTimedOut);
}

TEST_F(ChildProgramTest, WritingToOneThatEndedRaisesNoSignal) {
  signal(SIGPIPE, SIG_DFL);
  ChildProgram program;
  ASSERT_EQ(StartShell(program, "exit 0").code, kOk);
  EXPECT_EQ(Everything(program), "");
  const std::string much(4 << 20, 'x');
  EXPECT_EQ(program.Write(much.data(), much.size(), Soon()), Io::kClosed);
}

TEST_F(ChildProgramTest, ASignalThatTheHostHasPendingStaysPending) {
  sigset_t pipe, before, pending;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe, &before);
  pthread_kill(pthread_self(), SIGPIPE);
  {
    ChildProgram program;
    ASSERT_EQ(StartShell(program, "exit 0").code, kOk);
    Everything(program);
    const std::string much(4 << 20, 'x');
    EXPECT_EQ(program.Write(much.data(), much.size(), Soon()), Io::kClosed);
  }
  sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 1);
  const timespec now = {};
  sigtimedwait(&pipe, nullptr, &now);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(ChildProgramTest, TellsTheExitCodeAndKeepsIt) {
  ChildProgram program;
  ASSERT_EQ(StartShell(program, "exit 3").code, kOk);
  Everything(program);
  for (int i = 0; i < 2; ++i) {
    const ChildProgram::Ending ending = program.Stop(kPatience);
    EXPECT_TRUE(ending.known);
    EXPECT_FALSE(ending.bySignal);
    EXPECT_EQ(ending.status, 3);
  }
}

TEST_F(ChildProgramTest, TellsTheSignalThatEndedIt) {
  ChildProgram program;
  ASSERT_EQ(StartShell(program, "kill -SEGV $$").code, kOk);
  Everything(program);
  const ChildProgram::Ending ending = program.Stop(kPatience);
  EXPECT_TRUE(ending.known);
  EXPECT_TRUE(ending.bySignal);
  EXPECT_EQ(ending.status, SIGSEGV);
}

TEST_F(ChildProgramTest, OneThatStaysIsEnded) {
  // What the program does about SIGTERM, and the signal that ends it then.
  const std::pair<const char*, int> cases[] = {{"exec sleep 1000", SIGTERM},
                                               {"trap '' TERM; exec sleep 1000", SIGKILL}};
  for (const auto& [script, signalNumber] : cases) {
    ChildProgram program;
    ASSERT_EQ(StartShell(program, std::string("echo ready; ") + script).code, kOk);
    char text[8];
    size_t count = 0;
    ASSERT_EQ(program.Read(text, sizeof(text), &count, Soon()), Io::kDone);
    // The shell may not have come to its trap yet; the answer is then one of both all the same.
    const ChildProgram::Ending ending = program.Stop(std::chrono::milliseconds(200));
    EXPECT_TRUE(ending.known);
    EXPECT_TRUE(ending.bySignal);
    EXPECT_TRUE(ending.status == signalNumber || ending.status == SIGTERM) << script;
  }
}

TEST_F(ChildProgramTest, AStoppedOneIsEnded) {
  ChildProgram program;
  ASSERT_EQ(StartShell(program, "echo ready; kill -STOP $$; exec sleep 1000").code, kOk);
  char text[8];
  size_t count = 0;
  ASSERT_EQ(program.Read(text, sizeof(text), &count, Soon()), Io::kDone);
  EXPECT_TRUE(program.Stop(kNow).bySignal);
}

TEST_F(ChildProgramTest, AHostThatIgnoresSigchldGetsNoStatusAndNoZombie) {
  signal(SIGCHLD, SIG_IGN);
  ChildProgram program;
  ASSERT_EQ(StartShell(program, "exit 3").code, kOk);
  Everything(program);
  EXPECT_FALSE(program.Stop(kPatience).known);
}

TEST_F(ChildProgramTest, AHostThatWaitsForAllItsChildrenIsCopedWith) {
  signal(SIGCHLD, [](int) {
    const int kept = errno;
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    errno = kept;
  });
  ChildProgram program;
  ASSERT_EQ(StartShell(program, "exit 3").code, kOk);
  Everything(program);
  const ChildProgram::Ending ending = program.Stop(kPatience);
  EXPECT_TRUE(!ending.known || ending.status == 3);
}

TEST_F(ChildProgramTest, AHostWithoutStandardStreamsMayStartOne) {
  const pid_t host = fork();
  ASSERT_GE(host, 0);
  if (host == 0) {
    close(STDIN_FILENO);
    close(STDOUT_FILENO);
    close(STDERR_FILENO);
    ChildProgram program;
    char text[8];
    size_t count = 0;
    const bool echoed = program.Start("/bin/cat", {}, {}).ok() &&
                        program.Write("one", 3, Soon()) == Io::kDone &&
                        program.Read(text, sizeof(text), &count, Soon()) == Io::kDone &&
                        std::string(text, count) == "one";
    program.CloseInput();
    _exit(echoed && program.Stop(kPatience).known ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(host, &status, 0), host);
  EXPECT_EQ(status, 0);
}

TEST_F(ChildProgramTest, ManyThreadsMayEachRunTheirOwn) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([i] {
      for (int round = 0; round < 5; ++round) {
        const std::string word = std::to_string(i * 100 + round);
        EXPECT_EQ(SaidBy("echo " + word), word + "\n");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(FindProgram, TakesTheFirstFolderThatHasIt) {
  EXPECT_EQ(FindProgram("cat", {"", "/nonexistent", "/bin"}), "/bin/cat");
  EXPECT_EQ(FindProgram("/bin/cat", {}), "/bin/cat");
  EXPECT_EQ(FindProgram("/bin/no-such-program", {"/bin"}), "");
  EXPECT_EQ(FindProgram("no-such-program", {"/bin"}), "");
  EXPECT_EQ(FindProgram("", {"/bin"}), "");
  EXPECT_EQ(FindProgram("bin", {"/"}), "") << "a folder is no program";
}

TEST(FindProgram, LooksIntoAbsoluteFoldersOfThePathAlone) {
  const std::string before = getenv("PATH");
  setenv("PATH", "/nonexistent::bin:/usr/bin:", 1);
  EXPECT_EQ(FindProgram("env", {}), "/usr/bin/env");
  const std::filesystem::path folder = std::filesystem::current_path();
  std::filesystem::current_path("/");
  setenv("PATH", "usr/bin::.", 1);
  EXPECT_EQ(FindProgram("env", {}), "");
  std::filesystem::current_path(folder);
  setenv("PATH", before.c_str(), 1);
}

TEST(EnvironmentText, AMissingVariableIsEmpty) {
  unsetenv("CHILD_MISSING");
  EXPECT_EQ(EnvironmentText("CHILD_MISSING"), "");
  setenv("CHILD_THERE", "text", 1);
  EXPECT_EQ(EnvironmentText("CHILD_THERE"), "text");
}
