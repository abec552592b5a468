// PKCS#11 modules that do what modules should not: print, take their time. They are looked into
// beside the key store.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "Terminal.h"
#include "Vctk.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

const char kNotice[] = "Looking for keys; a key, or its driver, takes its time ...";

class OddModules : public Vctk {
 protected:
  OddModules() { PlugIn(SharedIdentities().Rsa()); }

  // The module does what `orders` say (tests/fakes/pkcs11_module).
  Invocation With(const std::string& orders, const std::vector<std::string>& arguments) const {
    Invocation invocation = Command(arguments);
    invocation.environment["VEL_PKCS11_MODULE"] = FAKE_PKCS11_PATH;
    invocation.environment["FAKE_PKCS11"] = orders;
    return invocation;
  }
};

}  // namespace

TEST_F(OddModules, WhatAModulePrintsIsNoPartOfTheOutput) {
  const std::string orders = "C_Initialize print NOISE; C_GetSlotList print NOISE";
  const Outcome listed = RunProgram(With(orders, {"certs", "--json"}));
  ASSERT_EQ(listed.exitCode, kDone) << listed.err;
  EXPECT_EQ(nlohmann::json::parse(listed.out).size(), 1u);
  EXPECT_THAT(listed.err, HasSubstr("NOISE"));
  for (const char* form : {"--p7", "--p1"}) {
    const std::string document = Have("document", "text");
    const std::vector<std::string> sign = {"sign", document, form, "--pin-file", PinFile()};
    const Outcome loud = RunProgram(With(orders, sign));
    ASSERT_EQ(loud.exitCode, kDone) << loud.err;
    EXPECT_THAT(loud.err, HasSubstr("NOISE"));
    EXPECT_EQ(loud.out, RunProgram(With("", sign)).out);
  }
}

TEST_F(OddModules, OnATerminalTheUserSeesThatASlowModuleIsWaitedFor) {
  Terminal terminal(With("C_GetSlotList await " + Folder().File("go"), {"certs"}));
  terminal.WaitFor(kNotice);
  Have("go", "");
  const Outcome outcome = terminal.Finish();
  EXPECT_EQ(outcome.exitCode, kDone);
  const size_t wiped = outcome.out.find("\r\x1B[K");
  const size_t table = outcome.out.find("SERIAL");
  ASSERT_NE(wiped, std::string::npos);
  ASSERT_NE(table, std::string::npos) << "the other keys are listed";
  EXPECT_LT(wiped, table);
}

TEST_F(OddModules, ElsewhereNothingIsSaidOfIt) {
  const Outcome outcome = RunProgram(With("C_GetSlotList sleep 1200", {"certs"}));
  EXPECT_EQ(outcome.exitCode, kDone);
  EXPECT_EQ(outcome.err, "");
}

TEST_F(OddModules, AModuleWithoutATokenIsTold) {
  const Outcome outcome = RunProgram(With("", {"doctor"}));
  EXPECT_EQ(outcome.exitCode, kDone);
  EXPECT_THAT(outcome.out, HasSubstr("0xE0000043 no token is plugged in"));
}
