#pragma once
// The rule by which texts are copied out through (buffer, length), followed step by step.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

struct OutputRules {
  unsigned long tooSmall = 4;  // the code for a short buffer
  int countsTerminator = 0;    // added to the length that a copy reports
  bool leavesLength = false;   // a copy leaves the length as it was given
};

// `read` returns whether it succeeded, `lastError` the stored code; the text must be available.
inline void ExpectCopiedOut(const std::function<bool(char*, int*)>& read,
                            const std::function<unsigned long()>& lastError,
                            const std::string& text, const OutputRules& rules = {}) {
  const int length = static_cast<int>(text.size());
  EXPECT_FALSE(read(nullptr, nullptr));
  EXPECT_EQ(lastError(), 11u);

  int asked = -1;
  EXPECT_TRUE(read(nullptr, &asked));
  EXPECT_EQ(asked, length + 1);
  EXPECT_EQ(lastError(), 0u);

  for (const int given : {length, 1, 0, -1}) {
    std::vector<char> buffer(text.size() + 2, '#');
    int inOut = given;
    EXPECT_FALSE(read(buffer.data(), &inOut)) << given;
    EXPECT_EQ(lastError(), rules.tooSmall);
    EXPECT_EQ(inOut, length + 1);
    EXPECT_EQ(std::string(buffer.begin(), buffer.end()), std::string(text.size() + 2, '#'));
  }

  for (const int spare : {1, 100}) {
    std::vector<char> buffer(text.size() + spare + 1, '#');
    int inOut = length + spare;
    EXPECT_TRUE(read(buffer.data(), &inOut)) << lastError();
    EXPECT_EQ(lastError(), 0u);
    EXPECT_EQ(inOut, rules.leavesLength ? length + spare : length + rules.countsTerminator);
    EXPECT_EQ(std::string(buffer.data()), text);
    EXPECT_EQ(buffer.back(), '#');
  }
}
