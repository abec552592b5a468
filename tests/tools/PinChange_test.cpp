#include <gmock/gmock.h>

#include "Terminal.h"
#include "Vctk.h"

using ::testing::HasSubstr;

namespace {

class PinChange : public Vctk {
 protected:
  PinChange() { PlugIn(SharedIdentities().Rsa()); }

  int SignWith(const std::string& pin) const {
    return Run({"sign", Have("document", "text")}, pin + "\n").exitCode;
  }
};

}  // namespace

TEST_F(PinChange, MakesTheNewPinTheOnlyOne) {
  const Outcome outcome = Run({"pin", "change"}, "12345678\nnewPIN-99\n");
  EXPECT_EQ(outcome.exitCode, kDone) << outcome.err;
  EXPECT_EQ(SignWith("newPIN-99"), kDone);
  EXPECT_EQ(SignWith("12345678"), kPinFault);
}

TEST_F(PinChange, TakesBothPinsFromAFile) {
  const std::string file = Have("pins", "12345678\nnewPIN-99\n");
  EXPECT_EQ(Run({"pin", "change", "--pin-file", file}).exitCode, kDone);
  EXPECT_EQ(SignWith("newPIN-99"), kDone);
}

TEST_F(PinChange, OfTheNamedCertificateLeavesTheOthers) {
  PlugIn(SharedIdentities().Sm2());
  EXPECT_EQ(Run({"pin", "change"}, "12345678\nnewPIN-99\n").exitCode, kNoCertificate);
  const std::string serial = SharedIdentities().Sm2().serial;
  EXPECT_EQ(Run({"pin", "change", "--cert", serial}, "12345678\nnewPIN-99\n").exitCode, kDone);
  const std::string document = Have("document", "text");
  EXPECT_EQ(Run({"sign", document, "--cert", serial}, "newPIN-99\n").exitCode, kDone);
  EXPECT_EQ(
      Run({"sign", document, "--cert", SharedIdentities().Rsa().serial}, "12345678\n").exitCode,
      kDone);
}

TEST_F(PinChange, WithAWrongPinChangesNothing) {
  const Outcome outcome = Run({"pin", "change"}, "87654321\nnewPIN-99\n");
  EXPECT_EQ(outcome.exitCode, kPinFault);
  EXPECT_THAT(outcome.err, HasSubstr("0xE0000056"));
  EXPECT_EQ(SignWith("12345678"), kDone);
}

TEST_F(PinChange, WithoutANewPinChangesNothing) {
  for (const char* input : {"12345678\n", "12345678\n\n", "12345678"}) {
    EXPECT_EQ(Run({"pin", "change"}, input).exitCode, kPinFault) << input;
  }
  EXPECT_EQ(SignWith("12345678"), kDone);
}

TEST_F(PinChange, OnTheTerminalAsksForTheNewPinTwice) {
  Terminal terminal(Command({"pin", "change"}));
  terminal.WaitFor("Current PIN: ");
  terminal.Type("12345678\n");
  terminal.WaitFor("New PIN: ");
  terminal.Type("newPIN-99\n");
  terminal.WaitFor("New PIN again: ");
  EXPECT_FALSE(terminal.Echoes());
  terminal.Type("newPIN-99\n");
  const Outcome outcome = terminal.Finish();
  EXPECT_EQ(outcome.exitCode, kDone);
  EXPECT_THAT(outcome.out, HasSubstr("PIN changed."));
  EXPECT_EQ(SignWith("newPIN-99"), kDone);
}

TEST_F(PinChange, OnTheTerminalTwoDifferentNewPinsChangeNothing) {
  Terminal terminal(Command({"pin", "change"}));
  terminal.WaitFor("Current PIN: ");
  terminal.Type("12345678\n");
  terminal.WaitFor("New PIN: ");
  terminal.Type("newPIN-99\n");
  terminal.WaitFor("New PIN again: ");
  terminal.Type("newPIN-98\n");
  EXPECT_EQ(terminal.Finish().exitCode, kPinFault);
  EXPECT_EQ(SignWith("12345678"), kDone);
}
