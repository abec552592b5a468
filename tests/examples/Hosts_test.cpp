// The small host in each language, as a newcomer runs it.
#include <gmock/gmock.h>
#include <stdlib.h>

#include <algorithm>

#include "Identities.h"
#include "Program.h"

using ::testing::HasSubstr;

namespace {

struct Host {
  const char* language;
  const char* variable;  // of the environment: the program, or empty where it cannot run
  const char* content;   // what it signs
};

const char* ProgramOf(const Host& host) {
  const char* const program = getenv(host.variable);
  return program == nullptr ? "" : program;
}

std::vector<Host> ThatRun(std::vector<Host> hosts) {
  hosts.erase(std::remove_if(hosts.begin(), hosts.end(),
                             [](const Host& host) { return *ProgramOf(host) == '\0'; }),
              hosts.end());
  return hosts;
}

class Hosts : public ::testing::TestWithParam<Host> {
 protected:
  void SetUp() override { PutInto(m_folder.File("keystore"), Rsa()); }

  Outcome Run(const std::vector<std::string>& arguments, const std::string& pin,
              const std::string& locale = "C.UTF-8") const {
    Invocation invocation;
    invocation.command = {ProgramOf(GetParam())};
    invocation.command.insert(invocation.command.end(), arguments.begin(), arguments.end());
    invocation.environment = {{"VEL_KEYSTORE", m_folder.File("keystore")},
                              {"PYTHONDONTWRITEBYTECODE", "1"},
                              {"LC_ALL", locale}};
    invocation.input = pin + "\n";
    return RunProgram(invocation);
  }

  // By scripts/verify.sh, with the certificate and its chain.
  void ExpectSigned(const std::string& base64, const std::string& content,
                    const Identity& identity) const {
    WriteText(m_folder.File("signature"), OutputOf({"openssl", "base64", "-d", "-A"}, base64));
    WriteText(m_folder.File("content"), content);
    EXPECT_NO_THROW(
        OutputOf({PROJECT "/scripts/verify.sh", "p7", m_folder.File("signature"),
                  m_folder.File("content"), identity.certificate, SharedIdentities().Authority()}));
  }

  static std::string FirstLine(const std::string& text) { return text.substr(0, text.find('\n')); }
  static const Identity& Rsa() { return SharedIdentities().Rsa(); }
  static const Identity& Sm2() { return SharedIdentities().Sm2(); }
  const TemporaryFolder& Folder() const { return m_folder; }

 private:
  TemporaryFolder m_folder;
};

// Hosts on top of a wrapper that sees to the locale.
class WrappedHosts : public Hosts {};

std::string CodeOf(const std::string& readme, const std::string& language) {
  const std::string mark = "```" + language + "\n";
  const size_t start = readme.find(mark);
  if (start == std::string::npos) return "no code in " + language;
  const size_t from = start + mark.size();
  return readme.substr(from, readme.find("```", from) - from);
}

}  // namespace

TEST_P(Hosts, ListsTheCertificates) {
  PutInto(Folder().File("keystore"), Sm2());
  const Outcome outcome = Run({}, "");
  EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
  for (const std::string& text : {Rsa().serial, Rsa().name, Sm2().serial, Sm2().name}) {
    EXPECT_THAT(outcome.out, HasSubstr(text));
  }
}

TEST_P(Hosts, SignsAndLetsOpensslVerify) {
  const Outcome outcome = Run({Rsa().serial}, Identities::kPin);
  EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr("erification successful"));
  ExpectSigned(FirstLine(outcome.out), GetParam().content, Rsa());
}

TEST_P(Hosts, SignsWithSm2ThoughOpensslCannotReadTheStructure) {
  PutInto(Folder().File("keystore"), Sm2());
  const Outcome outcome = Run({Sm2().serial}, Identities::kPin);
  EXPECT_EQ(outcome.exitCode, 1);
  ExpectSigned(FirstLine(outcome.out), GetParam().content, Sm2());
}

TEST_P(Hosts, ShowsTheTextOfAFailure) {
  const Outcome outcome = Run({Rsa().serial}, "87654321");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_THAT(outcome.out, HasSubstr("您还有9次机会"));
}

TEST_P(Hosts, SignsInALocaleThatTheSystemLacks) {
  const Outcome outcome = Run({Rsa().serial}, Identities::kPin, "xx_XX.UTF-8");
  EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
}

TEST_P(Hosts, FailsOnASerialNumberThatNobodyHas) {
  const Outcome outcome = Run({"0123"}, Identities::kPin);
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_FALSE(FirstLine(outcome.out).empty());
}

TEST_P(WrappedHosts, UnderstandTextInAnyLocale) {
  EXPECT_THAT(Run({}, "", "C").out, HasSubstr(Rsa().name));
  for (const char* locale : {"C", "xx_XX.UTF-8"}) {
    const Outcome refused = Run({Rsa().serial}, "wrong PIN", locale);
    EXPECT_THAT(refused.out, HasSubstr("您输入的PIN码错误")) << locale;
  }
}

const Host kC = {"C", "HOST_C", "I agree."};
const Host kCpp = {"Cpp", "HOST_CPP", "我同意。"};
const Host kPython = {"Python", "HOST_PYTHON", "我同意。"};
const auto kLanguage = [](const auto& tested) { return tested.param.language; };
INSTANTIATE_TEST_SUITE_P(Each, Hosts, ::testing::ValuesIn(ThatRun({kC, kCpp, kPython})), kLanguage);
INSTANTIATE_TEST_SUITE_P(Each, WrappedHosts, ::testing::ValuesIn(ThatRun({kCpp, kPython})),
                         kLanguage);

TEST(Readme, ShowsTheCHostAsItIs) {
  const std::string source = ReadText(PROJECT "/examples/c/sign.c");
  EXPECT_EQ(CodeOf(ReadText(PROJECT "/README.md"), "c"), source.substr(source.find("#include")));
}

TEST(Readme, ShowsLinesOfTheOtherHosts) {
  const std::string readme = ReadText(PROJECT "/README.md");
  EXPECT_THAT(ReadText(PROJECT "/examples/cpp/sign.cpp"), HasSubstr(CodeOf(readme, "cpp")));
  EXPECT_THAT(ReadText(PROJECT "/examples/python/sign.py"), HasSubstr(CodeOf(readme, "python")));
}
