#include "Pinentry.h"

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <thread>

#include "KeyMaker.h"
#include "PinentryScript.h"
#include "Traces.h"

using namespace velcrypto;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

const PinTexts kTexts = {"title", "description", "PIN:", "OK", "Cancel", ""};

class PinentryTest : public ::testing::Test {
 protected:
  struct Asked {
    Outcome outcome;
    std::string pin;
  };

  // One conversation with one question, unless it fails before.
  Asked Ask(const std::vector<std::string>& script, const PinTexts& texts = kTexts,
            const Pinentry::Patience& patience = {}) {
    m_script.Play(script);
    Pinentry pinentry(patience);
    Asked asked;
    asked.outcome = pinentry.Start(FAKE_PINENTRY_PATH);
    Secret pin;
    if (asked.outcome.ok()) asked.outcome = pinentry.Ask(texts, &pin);
    asked.pin = pin.c_str();
    return asked;
  }
  ULONG CodeOf(const std::vector<std::string>& script) { return Ask(script).outcome.code; }

  // Whatever comes is waited for a moment only.
  ULONG CodeInAHurry(const std::vector<std::string>& script) {
    const Pinentry::Patience hurry = {std::chrono::milliseconds(100),
                                      std::chrono::milliseconds(100)};
    return Ask(script, kTexts, hurry).outcome.code;
  }

  NoTraces m_noTraces;
  keymaker::TemporaryFolder m_folder;
  PinentryScript m_script{m_folder.path()};
};

}  // namespace

TEST_F(PinentryTest, GivesWhatTheUserTyped) {
  for (const std::string pin : {"1234", "12%34", "密码 12", "%0A", " 1 ", "D x"}) {
    const Asked asked = Ask({"GETPIN pin " + pin});
    EXPECT_EQ(asked.outcome.code, kOk);
    EXPECT_EQ(asked.pin, pin);
  }
}

TEST_F(PinentryTest, AnEmptyPinIsAnAnswer) {
  const Asked asked = Ask({"GETPIN ok"});
  EXPECT_EQ(asked.outcome.code, kOk);
  EXPECT_EQ(asked.pin, "");
}

TEST_F(PinentryTest, DataInSeveralLinesAmongOthersAreOnePin) {
  const Asked asked = Ask({"GETPIN raw # hm\\nS BUTTON_INFO x\\nD 12\\nS Y\\nD 34\\nOK yes\\n"});
  EXPECT_EQ(asked.outcome.code, kOk);
  EXPECT_EQ(asked.pin, "1234");
}

TEST_F(PinentryTest, ALongPinArrivesWhole) {
  const std::string part(900, 'x');
  const Asked asked = Ask({"GETPIN raw D " + part + "\\nD " + part + "\\nOK\\n"});
  EXPECT_EQ(asked.outcome.code, kOk);
  EXPECT_EQ(asked.pin, part + part);
}

TEST_F(PinentryTest, AQuestionOfTheProgramIsDeclined) {
  const Asked asked = Ask({"GETPIN raw INQUIRE QUALITY 1234\\n", "CAN raw D 1234\\nOK\\n"});
  EXPECT_EQ(asked.outcome.code, kOk);
  EXPECT_EQ(asked.pin, "1234");
}

TEST_F(PinentryTest, TellsTitleTextsAndTimeAndNothingThatKeepsThePin) {
  ASSERT_EQ(CodeOf({"GETPIN pin 1234"}), kOk);
  EXPECT_THAT(m_script.Told("SETTITLE"), ElementsAre("title"));
  EXPECT_THAT(m_script.Told("SETDESC"), ElementsAre("description"));
  EXPECT_THAT(m_script.Told("SETPROMPT"), ElementsAre("PIN:"));
  EXPECT_THAT(m_script.Told("SETOK"), ElementsAre("OK"));
  EXPECT_THAT(m_script.Told("SETCANCEL"), ElementsAre("Cancel"));
  EXPECT_THAT(m_script.Told("SETTIMEOUT"), ElementsAre("120"));
  EXPECT_THAT(m_script.Told("SETERROR"), ElementsAre());
  EXPECT_THAT(m_script.Told("SETKEYINFO"), ElementsAre());
  EXPECT_THAT(m_script.Told("ARGUMENTS"), ElementsAre(""));
  const std::vector<std::string> options = m_script.Told("OPTION");
  EXPECT_THAT(options, Contains("lc-ctype=C.UTF-8"));
  EXPECT_THAT(options, Contains("lc-messages=C.UTF-8"));
  EXPECT_THAT(options, Contains(StartsWith("owner=" + std::to_string(getpid()) + "/")));
  EXPECT_THAT(options, Not(Contains(HasSubstr("cache"))));
  EXPECT_EQ(m_script.Log().back(), "BYE");
}

TEST_F(PinentryTest, LineEndsAndPercentSignsInTextsAreEscaped) {
  PinTexts texts = kTexts;
  texts.description = "100%\r\nBYE";
  ASSERT_EQ(Ask({}, texts).outcome.code, kOk);
  EXPECT_THAT(m_script.Told("SETDESC"), ElementsAre("100%25%0D%0ABYE"));
}

TEST_F(PinentryTest, LongTextsAreCutBetweenCharacters) {
  for (size_t shift = 0; shift < 4; ++shift) {
    PinTexts texts = kTexts;
    texts.title = std::string(shift, 'x');
    for (int i = 0; i < 1000; ++i) texts.title += i % 50 == 0 ? "\n" : "证";
    ASSERT_EQ(Ask({}, texts).outcome.code, kOk);
    const std::string told = m_script.Told("SETTITLE").back();
    EXPECT_LT(told.size(), 950u);
    EXPECT_GT(told.size(), 850u);
    ASSERT_THAT(told, ::testing::EndsWith("..."));
    const std::string kept = told.substr(0, told.size() - 3);
    EXPECT_TRUE(kept.substr(kept.size() - 3) == "证" || kept.substr(kept.size() - 3) == "%0A")
        << kept.substr(kept.size() - 6);
  }
}

TEST_F(PinentryTest, AsksAgainInTheSameDialog) {
  m_script.Play({"GETPIN pin first", "GETPIN pin second"});
  {
    Pinentry pinentry({});
    ASSERT_EQ(pinentry.Start(FAKE_PINENTRY_PATH).code, kOk);
    Secret pin;
    ASSERT_EQ(pinentry.Ask(kTexts, &pin).code, kOk);
    PinTexts again = kTexts;
    again.error = "no";
    ASSERT_EQ(pinentry.Ask(again, &pin).code, kOk);
    EXPECT_STREQ(pin.c_str(), "second") << "without the first";
  }
  EXPECT_THAT(m_script.Told("SETERROR"), ElementsAre("no"));
  EXPECT_EQ(m_script.Told("PID").size(), 1u);
}

TEST_F(PinentryTest, KnowsAPinThatTheUserDidNotType) {
  m_script.Play({"GETPIN raw S PASSWORD_FROM_CACHE\\nD 1234\\nOK\\n", "GETPIN pin 1234"});
  Pinentry pinentry({});
  ASSERT_EQ(pinentry.Start(FAKE_PINENTRY_PATH).code, kOk);
  Secret pin;
  ASSERT_EQ(pinentry.Ask(kTexts, &pin).code, kOk);
  EXPECT_TRUE(pinentry.FromStore());
  ASSERT_EQ(pinentry.Ask(kTexts, &pin).code, kOk);
  EXPECT_FALSE(pinentry.FromStore());
}

TEST_F(PinentryTest, RefusedOptionsAndTextsAreNoFailure) {
  EXPECT_EQ(CodeOf({"OPTION err 83886254 Unknown option", "OPTION err 83886254 Unknown option",
                    "SETTITLE err 536871187 Unknown IPC command",
                    "SETTIMEOUT err 536871187 Unknown IPC command", "GETPIN pin 1234"}),
            kOk);
}

TEST_F(PinentryTest, ALocaleThatTheProgramLacksIsReplaced) {
  const Asked asked = Ask({"GETPIN err 83886246 Locale problem", "GETPIN pin 1234"});
  EXPECT_EQ(asked.outcome.code, kOk);
  EXPECT_EQ(asked.pin, "1234");
  EXPECT_EQ(m_script.Told("OPTION").back(), "lc-ctype=C.UTF-8");
  EXPECT_EQ(CodeOf({"GETPIN err 83886246 x", "GETPIN err 83886246 x"}), kFailed);
}

TEST_F(PinentryTest, EndsOfTheDialogAreToldApart) {
  const std::pair<unsigned long, ULONG> cases[] = {
      {83886179, kCancelled},    // cancelled
      {83886278, kCancelled},    // window closed
      {83886194, kCancelled},    // "not ok"
      {99, kCancelled},          // whatever the source
      {83886142, kTimeout},      // nobody there
      {83886165, kNotLoggedIn},  // no pinentry
      {83918950, kNotLoggedIn},  // no terminal: ENOTTY of the system
      {83918850, kNotLoggedIn},  // ENOENT
      {536871187, kFailed},      // unknown command
      {83886081, kFailed},       // general error
      {0, kFailed},
  };
  for (const auto& [number, code] : cases) {
    const Asked asked = Ask({"GETPIN raw S ERROR x\\nERR " + std::to_string(number) + " text\\n"});
    EXPECT_EQ(asked.outcome.code, code) << number;
    EXPECT_EQ(asked.outcome.native, number);
    EXPECT_EQ(asked.pin, "");
    EXPECT_EQ(m_script.Log().back(), "BYE");
  }
}

TEST_F(PinentryTest, WithoutTheProgramThereIsNoDialog) {
  for (const char* name :
       {"/nonexistent/pinentry", "no-such-pinentry", "", "/tmp", "/etc/passwd"}) {
    Pinentry pinentry({});
    const Outcome outcome = pinentry.Start(name);
    EXPECT_EQ(outcome.code, kNotLoggedIn) << name;
    EXPECT_EQ(outcome.native, static_cast<unsigned long>(ENOENT)) << name;
  }
}

TEST_F(PinentryTest, AFileThatIsNoProgramGivesNoDialog) {
  const std::string path = m_folder / "program";
  keymaker::WriteFile(path, {'x'});
  chmod(path.c_str(), 0700);
  Pinentry pinentry({});
  const Outcome outcome = pinentry.Start(path);
  EXPECT_EQ(outcome.code, kNotLoggedIn);
  EXPECT_EQ(outcome.native, static_cast<unsigned long>(ENOEXEC));
}

TEST_F(PinentryTest, AProgramThatEndsAtItsStartGivesNoDialog) {
  EXPECT_EQ(CodeOf({"GREETING exit 1"}), kNotLoggedIn);
  EXPECT_EQ(CodeOf({"GREETING exit 0"}), kNotLoggedIn);
  EXPECT_EQ(CodeOf({"GREETING kill 6"}), kNotLoggedIn) << "as Qt does without a display";
}

TEST_F(PinentryTest, OneThatDiesAtAnyStepHasFailed) {
  for (const char* step : {"OPTION", "SETTITLE", "SETDESC", "SETPROMPT", "SETOK", "SETCANCEL",
                           "SETTIMEOUT", "GETPIN"}) {
    EXPECT_EQ(CodeOf({std::string(step) + " exit 0"}), kFailed) << step;
    EXPECT_EQ(CodeOf({std::string(step) + " kill 9"}), kFailed) << step;
  }
}

TEST_F(PinentryTest, OneThatTheInterruptKeyEndsIsCancelled) {
  EXPECT_EQ(CodeOf({"GETPIN kill 2"}), kCancelled);
  EXPECT_EQ(CodeOf({"GETPIN kill 15"}), kFailed);
}

TEST_F(PinentryTest, OneThatSaysNothingAtAnyStepTimesOut) {
  for (const char* step : {"GREETING", "OPTION", "SETDESC", "GETPIN"}) {
    EXPECT_EQ(CodeInAHurry({std::string(step) + " hang"}), kTimeout) << step;
  }
  EXPECT_EQ(CodeInAHurry({"GETPIN raw D 12"}), kTimeout) << "half a line";
}

TEST_F(PinentryTest, NonsenseIsAFailure) {
  EXPECT_EQ(CodeOf({"GREETING raw Hello\\n"}), kFailed);
  EXPECT_EQ(CodeOf({"GREETING err 1 x"}), kFailed);
  EXPECT_EQ(CodeOf({"OPTION raw Hello\\n"}), kFailed);
  EXPECT_EQ(CodeOf({"GETPIN raw END\\n"}), kFailed);
  EXPECT_EQ(CodeOf({"GETPIN raw D 12%0034\\nOK\\n"}), kFailed) << "a zero byte";
  EXPECT_EQ(CodeOf({"GETPIN raw D " + std::string(2000, 'x') + "\\nOK\\n"}), kFailed)
      << "an over-long line";
}

TEST_F(PinentryTest, EndlessTalkIsAFailure) {
  EXPECT_EQ(CodeOf({"GREETING flood"}), kFailed);
  EXPECT_EQ(CodeOf({"GETPIN flood"}), kFailed);
  std::string much = "GETPIN raw ";
  for (int i = 0; i < 6; ++i) much += "D " + std::string(900, 'x') + "\\n";
  EXPECT_EQ(CodeOf({much + "OK\\n"}), kFailed);
}

TEST_F(PinentryTest, OneThatStopsListeningRaisesNoSignal) {
  signal(SIGPIPE, SIG_DFL);
  EXPECT_EQ(CodeOf({"OPTION deaf"}), kFailed);
  sigset_t blocked, before, pending;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  EXPECT_EQ(CodeOf({"OPTION deaf"}), kFailed);
  sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0) << "none is left for the host";
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(PinentryTest, HostsMayTreatEndedChildrenAsTheyLike) {
  signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(CodeOf({"GETPIN pin 1234"}), kOk);
  EXPECT_EQ(CodeOf({"GETPIN kill 9"}), kFailed);
  signal(SIGCHLD, [](int) {
    const int kept = errno;
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    errno = kept;
  });
  EXPECT_EQ(CodeOf({"GETPIN pin 1234"}), kOk);
  EXPECT_EQ(CodeOf({"GETPIN kill 9"}), kFailed);
  signal(SIGCHLD, SIG_DFL);
  struct sigaction action = {};
  sigaction(SIGPIPE, nullptr, &action);
  EXPECT_EQ(action.sa_handler, SIG_DFL) << "the host's disposition is its own";
}

TEST_F(PinentryTest, TheProgramGetsNoDescriptorOfTheHost) {
  const int file = open("/dev/null", O_RDONLY);  // would be inherited
  ASSERT_EQ(CodeOf({"GETPIN pin 1234"}), kOk);
  close(file);
  EXPECT_THAT(m_script.Told("DESCRIPTORS"), ElementsAre("0 1 2"));
}

TEST_F(PinentryTest, ManyThreadsEachHaveTheirOwn) {
  m_script.Play({"GETPIN pin 1234"});
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([] {
      Pinentry pinentry({});
      Secret pin;
      EXPECT_EQ(pinentry.Start(FAKE_PINENTRY_PATH).code, kOk);
      EXPECT_EQ(pinentry.Ask(kTexts, &pin).code, kOk);
      EXPECT_STREQ(pin.c_str(), "1234");
    });
  }
  for (std::thread& thread : threads) thread.join();
}
