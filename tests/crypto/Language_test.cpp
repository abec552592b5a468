#include "Language.h"

#include <gtest/gtest.h>
#include <stdlib.h>

using namespace velcrypto;

namespace {

const char* const kVariables[] = {"LC_ALL", "LC_CTYPE", "LC_MESSAGES", "LANG", "LANGUAGE"};

class Language : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* const name : kVariables) unsetenv(name);
  }
  void TearDown() override {
    SetUp();
    setenv("LC_ALL", "C.UTF-8", 1);
  }
};

}  // namespace

TEST_F(Language, IsEnglishAndUtf8WhereNothingIsSaid) {
  EXPECT_FALSE(SpeaksChinese());
  EXPECT_EQ(CharacterLocale(), "C.UTF-8");
  EXPECT_EQ(MessageLocale(), "C.UTF-8");
  setenv("LANG", "POSIX", 1);
  EXPECT_EQ(CharacterLocale(), "C.UTF-8");
  setenv("LC_ALL", "C", 1);
  EXPECT_EQ(MessageLocale(), "C.UTF-8");
}

TEST_F(Language, TheFirstVariableThatIsSetDecides) {
  setenv("LANG", "zh_CN.UTF-8", 1);
  EXPECT_TRUE(SpeaksChinese());
  EXPECT_EQ(CharacterLocale(), "zh_CN.UTF-8");
  setenv("LC_MESSAGES", "en_US.UTF-8", 1);
  EXPECT_FALSE(SpeaksChinese());
  EXPECT_EQ(MessageLocale(), "en_US.UTF-8");
  EXPECT_EQ(CharacterLocale(), "zh_CN.UTF-8");
  setenv("LC_ALL", "zh_CN.GB18030", 1);
  EXPECT_TRUE(SpeaksChinese());
  EXPECT_EQ(CharacterLocale(), "zh_CN.GB18030");
  setenv("LC_ALL", "", 1);
  EXPECT_FALSE(SpeaksChinese()) << "an empty one is not set";
}

TEST_F(Language, ANamedOneGoesFirst) {
  setenv("LANG", "zh_CN.UTF-8", 1);
  EXPECT_FALSE(SpeaksChinese("en"));
  unsetenv("LANG");
  EXPECT_TRUE(SpeaksChinese("zh"));
  EXPECT_TRUE(SpeaksChinese("zh_TW"));
}

TEST_F(Language, TheListOfLanguagesGoesBeforeALocaleThatIsOne) {
  setenv("LANGUAGE", "zh_CN:en", 1);
  EXPECT_FALSE(SpeaksChinese());
  setenv("LANG", "C", 1);
  EXPECT_FALSE(SpeaksChinese());
  setenv("LANG", "C.UTF-8", 1);
  EXPECT_TRUE(SpeaksChinese());
  EXPECT_EQ(MessageLocale(), "C.UTF-8");
  setenv("LANGUAGE", "en:zh_CN", 1);
  setenv("LANG", "zh_CN.UTF-8", 1);
  EXPECT_FALSE(SpeaksChinese());
}
