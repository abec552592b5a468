// Signing with the dialogs of the device library: fake programs in the place of the windows.
#include <gmock/gmock.h>
#include <signal.h>

#include <filesystem>

#include "Terminal.h"
#include "Vctk.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

class SignByDialog : public Vctk {
 protected:
  SignByDialog() {
    PlugIn(SharedIdentities().Rsa());
    PlugIn(SharedIdentities().Sm2());
  }

  // The dialogs follow the scripts; standard input gives nothing.
  Invocation Signing(const std::vector<std::string>& arguments, const std::string& certificates,
                     const std::string& pins) const {
    Invocation invocation = Command({"sign", "--dialog"});
    invocation.command.insert(invocation.command.end(), arguments.begin(), arguments.end());
    invocation.environment["VEL_CERT_DIALOG"] = FAKE_CERT_DIALOG;
    invocation.environment["FAKE_DIALOG"] = certificates;
    invocation.environment["FAKE_DIALOG_LISTS"] = Folder().File("lists");
    invocation.environment["VEL_PINENTRY"] = FAKE_PINENTRY_PATH;
    invocation.environment["FAKE_PINENTRY"] = Folder().Path();
    Have("script", pins);
    return invocation;
  }

  size_t TimesAsked(const std::string& file, const std::string& word) const {
    if (!std::filesystem::exists(Folder().File(file))) return 0;
    const std::string text = ReadText(Folder().File(file));
    size_t count = 0;
    for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1))
      ++count;
    return count;
  }

  static void ExpectVerified(const std::string& kind, const std::string& signature,
                             const std::string& document, const Identity& identity) {
    Invocation invocation;
    invocation.command = {VERIFY_SCRIPT,
                          kind,
                          signature,
                          document,
                          identity.certificate,
                          SharedIdentities().Authority()};
    invocation.environment["LC_ALL"] = "C.UTF-8";
    const Outcome verified = RunProgram(invocation);
    EXPECT_EQ(verified.exitCode, 0) << verified.err;
  }

  std::string Document() const { return Have("document", "text"); }
};

// keystore order: rsa.p12, sm2.p12
const char kTakeRsa[] = "read ready choose=0";
const char kTakeSm2[] = "read ready choose=1";
const char kRightPin[] = "GETPIN pin 12345678\n";

}  // namespace

TEST_F(SignByDialog, TheUserChoosesAndGivesThePin) {
  const std::string file = Folder().File("signature");
  for (const char* kind : {"p7", "detached", "p1"}) {
    std::vector<std::string> arguments = {Document(), "--binary", "-o", file};
    if (kind != std::string("p7")) arguments.push_back("--" + std::string(kind));
    const Outcome outcome = RunProgram(Signing(arguments, kTakeSm2, kRightPin));
    ASSERT_EQ(outcome.exitCode, kDone) << outcome.err;
    ExpectVerified(kind, file, Document(), SharedIdentities().Sm2());
  }
}

TEST_F(SignByDialog, ABareSignatureMayTakeAnotherDigestThen) {
  const std::string file = Folder().File("signature");
  const Outcome outcome = RunProgram(Signing(
      {Document(), "--p1", "--digest", "SHA512", "--binary", "-o", file}, kTakeRsa, kRightPin));
  ASSERT_EQ(outcome.exitCode, kDone) << outcome.err;
  OutputOf({"openssl", "x509", "-in", SharedIdentities().Rsa().certificate, "-noout", "-pubkey",
            "-out", Folder().File("key")});
  EXPECT_THAT(OutputOf({"openssl", "dgst", "-sha512", "-verify", Folder().File("key"), "-signature",
                        file, Document()}),
              HasSubstr("Verified OK"));
}

TEST_F(SignByDialog, SeveralFilesTakeOneChoiceAndOnePin) {
  for (const char* kind : {"--p7", "--p1"}) {
    std::filesystem::remove(Folder().File("lists"));
    std::filesystem::remove(Folder().File("log"));
    const std::vector<std::string> files = {Have("a", "first"), Have("b", "second"),
                                            Have("c", "third")};
    const Outcome outcome =
        RunProgram(Signing({files[0], files[1], files[2], kind, "--binary"}, kTakeSm2, kRightPin));
    ASSERT_EQ(outcome.exitCode, kDone) << outcome.err;
    EXPECT_EQ(TimesAsked("lists", "\"certificates\""), 1u) << kind;
    EXPECT_EQ(TimesAsked("log", "GETPIN"), 1u) << kind;
    for (const std::string& file : files) {
      const std::string signature = file + "." + (kind + 2);
      ExpectVerified(kind + 2, signature, file, SharedIdentities().Sm2());
    }
  }
}

TEST_F(SignByDialog, CancellingEitherDialogExitsWith7) {
  EXPECT_EQ(RunProgram(Signing({Document()}, "read ready cancel", kRightPin)).exitCode, kCancelled);
  const Outcome outcome =
      RunProgram(Signing({Document()}, kTakeRsa, "GETPIN err 83886179 cancelled\n"));
  EXPECT_EQ(outcome.exitCode, kCancelled);
  EXPECT_EQ(outcome.out, "");
}

TEST_F(SignByDialog, ACrashOfTheDialogIsAFailure) {
  const Outcome outcome = RunProgram(Signing({Document()}, "read ready kill=9", kRightPin));
  EXPECT_EQ(outcome.exitCode, kFailed);
  EXPECT_THAT(outcome.err, HasSubstr("0xE0000001"));
}

TEST_F(SignByDialog, AWrongPinIsAskedForAgain) {
  const Outcome outcome =
      RunProgram(Signing({Document()}, kTakeRsa, "GETPIN pin 87654321\nGETPIN pin 12345678\n"));
  EXPECT_EQ(outcome.exitCode, kDone) << outcome.err;
}

TEST_F(SignByDialog, WithoutAWayToAskSaysSo) {
  Invocation invocation = Signing({Document()}, "", "");
  invocation.environment["VEL_CERT_DIALOG"] = "none";
  const Outcome outcome = RunProgram(invocation);
  EXPECT_EQ(outcome.exitCode, kNoCertificate);
  EXPECT_THAT(outcome.err, HasSubstr("certificate dialogs are off"));
  EXPECT_THAT(outcome.err, HasSubstr("--cert SERIAL"));
}

TEST_F(SignByDialog, WithoutAKeySaysSoAndAsksNothing) {
  Invocation invocation = Signing({Document()}, kTakeRsa, kRightPin);
  invocation.environment["VEL_KEYSTORE"] = Folder().Path() + "/none";
  EXPECT_EQ(RunProgram(invocation).exitCode, kNoCertificate);
  EXPECT_EQ(TimesAsked("lists", "certificates"), 0u);
}

TEST_F(SignByDialog, ExcludesWhatItAsksFor) {
  EXPECT_EQ(RunProgram(Signing({Document(), "--cert", "1"}, kTakeRsa, "")).exitCode, kUsage);
  EXPECT_EQ(RunProgram(Signing({Document(), "--pin-file", "-"}, kTakeRsa, "")).exitCode, kUsage);
}

TEST_F(SignByDialog, OnATerminalWithoutOtherProgramsBothAreAskedThere) {
  Invocation invocation = Command({"sign", Document(), "-o", Folder().File("signature")});
  invocation.environment["VEL_CERT_DIALOG"] = "/nonexistent";
  Terminal terminal(invocation);
  EXPECT_THAT(terminal.WaitFor("cancel): "), HasSubstr("  2  李四"));
  terminal.Type("2\n");
  EXPECT_THAT(terminal.WaitFor("PIN: "), HasSubstr("CN=李四"));
  terminal.Type("12345678\n");
  EXPECT_EQ(terminal.Finish().exitCode, kDone);
  EXPECT_NE(ReadText(Folder().File("signature")), "");
}
