// The words of the prompt for what a token says about its PIN.
#include "PinPrompt.h"

#include <gmock/gmock.h>

#include <utility>

#include "KeyMaker.h"
#include "PinentryScript.h"

using namespace velcrypto;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

PinState State(unsigned maxTries, unsigned triesLeft, unsigned minLength, unsigned maxLength) {
  PinState state;
  state.maxTries = maxTries;
  state.triesLeft = triesLeft;
  state.minLength = minLength;
  state.maxLength = maxLength;
  return state;
}

class PinPromptTest : public ::testing::Test {
 protected:
  PinPromptTest() {
    CertFacts facts;
    facts.record.SubjectCN = L"张三";
    m_identity.facts = std::make_shared<const CertFacts>(std::move(facts));
    m_identity.device = "token";
    m_identity.application = "token";
    m_identity.container = "key 1";
  }

  // What the prompt says after a wrong PIN with this state.
  std::string ErrorFor(const PinState& state) {
    m_script.Play({"GETPIN pin 1234", "GETPIN pin 1234"});
    PinPrompt prompt(m_identity);
    Secret pin;
    EXPECT_EQ(prompt.Ask(State(0, 9, 0, 0), &pin).code, kOk);
    prompt.Refuse();
    EXPECT_EQ(prompt.Ask(state, &pin).code, kOk);
    return m_script.Told("SETERROR").back();
  }

  keymaker::TemporaryFolder m_folder;
  PinentryScript m_script{m_folder.path()};
  Identity m_identity;
};

}  // namespace

TEST_F(PinPromptTest, ExactNumbersAndBoundsAreToldApart) {
  EXPECT_EQ(ErrorFor(State(5, 3, 0, 0)), "Wrong PIN, 3 tries left");
  EXPECT_EQ(ErrorFor(State(5, 1, 0, 0)), "Wrong PIN, 1 try left: another wrong one locks the key");
  EXPECT_EQ(ErrorFor(State(0, 2, 0, 0)), "Wrong PIN, at least 2 tries left");
  EXPECT_EQ(ErrorFor(State(0, 1, 0, 0)), "Wrong PIN, another wrong one may lock the key");
}

TEST_F(PinPromptTest, TriesThatAreGoneAlreadyAreToldAtOnceWhereTheyAreKnown) {
  m_script.Play({"GETPIN pin 1234"});
  Secret pin;
  ASSERT_EQ(PinPrompt(m_identity).Ask(State(5, 2, 0, 0), &pin).code, kOk);
  EXPECT_THAT(m_script.Told("SETDESC").back(), HasSubstr("%0ATries left: 2"));
  ASSERT_EQ(PinPrompt(m_identity).Ask(State(5, 5, 0, 0), &pin).code, kOk);
  EXPECT_THAT(m_script.Told("SETDESC").back(), Not(HasSubstr("Tries left")));
  ASSERT_EQ(PinPrompt(m_identity).Ask(State(0, 2, 0, 0), &pin).code, kOk);
  EXPECT_THAT(m_script.Told("SETDESC").back(), Not(HasSubstr("Tries left")));
}

TEST_F(PinPromptTest, NamesThatRepeatAreShownOnce) {
  m_script.Play({"GETPIN pin 1234"});
  Secret pin;
  ASSERT_EQ(PinPrompt(m_identity).Ask(State(0, 2, 0, 0), &pin).code, kOk);
  EXPECT_THAT(m_script.Told("SETDESC").back(), HasSubstr("%0AKey: token / key 1"));
}

TEST_F(PinPromptTest, LengthsWithoutABoundLetAllBytesPass) {
  const std::string longPin(2000, '1');
  m_script.Play(
      {"GETPIN ok", "GETPIN pin " + std::string("1"),
       "GETPIN raw D " + longPin.substr(0, 900) + "\\nD " + longPin.substr(0, 900) + "\\nOK\\n"});
  PinPrompt prompt(m_identity);
  Secret pin;
  ASSERT_EQ(prompt.Ask(State(0, 2, 2, 0), &pin).code, kOk);
  EXPECT_EQ(pin.size(), 1800u);
  EXPECT_THAT(m_script.Told("SETERROR"),
              ElementsAre("A PIN has 2 characters or more", "A PIN has 2 characters or more"));
}
