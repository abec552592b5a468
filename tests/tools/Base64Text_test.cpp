#include <gtest/gtest.h>

#include "Base64.h"

using vctk::DecodeBase64;
using vctk::EncodeBase64;

// RFC 4648, section 10.
const std::pair<const char*, const char*> kVectors[] = {{"", ""},
                                                        {"f", "Zg=="},
                                                        {"fo", "Zm8="},
                                                        {"foo", "Zm9v"},
                                                        {"foob", "Zm9vYg=="},
                                                        {"fooba", "Zm9vYmE="},
                                                        {"foobar", "Zm9vYmFy"}};

TEST(Base64Text, EncodesThePublishedVectors) {
  for (const auto& [bytes, text] : kVectors) EXPECT_EQ(EncodeBase64(bytes), text);
}

TEST(Base64Text, DecodesThePublishedVectors) {
  for (const auto& [bytes, text] : kVectors) {
    std::string decoded;
    EXPECT_TRUE(DecodeBase64(text, decoded)) << text;
    EXPECT_EQ(decoded, bytes);
  }
}

TEST(Base64Text, UsesAllSixtyFourDigits) {
  const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  ASSERT_TRUE(DecodeBase64(digits, bytes));
  ASSERT_EQ(bytes.size(), 48u);
  EXPECT_EQ(bytes.substr(0, 3), std::string("\x00\x10\x83", 3));
  EXPECT_EQ(EncodeBase64(bytes), digits);
}

TEST(Base64Text, RefusesWhatIsNotCompleteBase64) {
  for (const char* text :
       {"Z", "Zg", "Zg=", "Zm9v\n", "Zm 9v===", "====", "Zg==Zg==", "Z===", "Zm9-"}) {
    std::string bytes;
    EXPECT_FALSE(DecodeBase64(text, bytes)) << text;
  }
}
