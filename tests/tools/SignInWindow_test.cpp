// "vctk sign" with the programs that a desktop has: the window, in which the certificate is chosen
// by keyboard, and then pinentry.
#include <gmock/gmock.h>
#include <unistd.h>

#include "Screen.h"
#include "Terminal.h"
#include "Vctk.h"

using ::testing::HasSubstr;

namespace {

const char kTitle[] = "Choose.a.Certificate";  // a dot stands for a blank

Screen& TheScreen() {
  static Screen screen;
  return screen;
}

class SignInWindow : public Vctk {
 protected:
  void SetUp() override {
    if (OutputOf({"sh", "-c", "command -v pinentry-curses || true"}).empty()) {
      GTEST_SKIP() << "there is no pinentry-curses";
    }
    PlugIn(SharedIdentities().Rsa());
    PlugIn(SharedIdentities().Sm2());
  }

  Invocation Signing(const std::string& document, const std::string& signature) const {
    Invocation invocation = Command({"sign", document, "--binary", "-o", signature});
    invocation.environment["VEL_CERT_DIALOG"] = CERT_DIALOG;
    invocation.environment["VEL_PINENTRY"] = "pinentry-curses";
    invocation.environment["DISPLAY"] = TheScreen().Name();
    invocation.environment["QT_QPA_PLATFORM"] = "xcb";
    invocation.environment["TERM"] = "xterm";
    return invocation;
  }

  // Until the window has gone: it takes no keys while it is fresh.
  static void Press(const std::string& keys) {
    TheScreen().WaitForWindow(kTitle);
    EXPECT_TRUE(Eventually([&] {
      if (TheScreen().HasWindow(kTitle)) TheScreen().Press(keys);
      return !TheScreen().HasWindow(kTitle);
    }));
  }
};

}  // namespace

TEST_F(SignInWindow, TheCertificateIsChosenThePinGivenAndTheSignatureHolds) {
  const std::string document = Have("document", "text");
  const std::string signature = Folder().File("signature");
  Terminal terminal(Signing(document, signature));
  Press("End Return");
  EXPECT_THAT(terminal.WaitFor("<Cancel>"), HasSubstr("李四"));
  terminal.Type(std::string(Identities::kPin) + "\r");
  const Outcome outcome = terminal.Finish();
  ASSERT_EQ(outcome.exitCode, kDone) << outcome.out;
  EXPECT_NO_THROW(OutputOf({VERIFY_SCRIPT, "p7", signature, document,
                            SharedIdentities().Sm2().certificate, SharedIdentities().Authority()}));
}

TEST_F(SignInWindow, EscapeLeavesEverythingAsItWas) {
  const std::string signature = Folder().File("signature");
  Terminal terminal(Signing(Have("document", "text"), signature));
  Press("Escape");
  EXPECT_EQ(terminal.Finish().exitCode, kCancelled);
  EXPECT_NE(access(signature.c_str(), F_OK), 0);
  EXPECT_TRUE(terminal.Echoes());
}
