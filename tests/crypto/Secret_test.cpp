#include "Secret.h"

#include <gmock/gmock.h>

#include <cstring>
#include <fstream>
#include <sstream>

using velcrypto::Secret;

namespace {

// The flags that the kernel shows for the pages at this address.
std::string FlagsOf(const void* address) {
  std::ifstream maps("/proc/self/smaps");
  const auto wanted = reinterpret_cast<unsigned long>(address);
  bool inside = false;
  for (std::string line; std::getline(maps, line);) {
    unsigned long from = 0;
    unsigned long to = 0;
    if (sscanf(line.c_str(), "%lx-%lx ", &from, &to) == 2) inside = from <= wanted && wanted < to;
    if (inside && line.rfind("VmFlags:", 0) == 0) return line;
  }
  return "";
}

}  // namespace

TEST(Secret, HoldsNarrowAndWideTextAsUtf8) {
  EXPECT_STREQ(Secret("12345678").c_str(), "12345678");
  EXPECT_STREQ(Secret(L"口令").c_str(), "口令");
  EXPECT_EQ(Secret(L"口令").size(), 6u);
  for (const auto& empty : {Secret(), Secret(""), Secret(L""), Secret(static_cast<LPCSTR>(nullptr)),
                            Secret(static_cast<LPCWSTR>(nullptr))}) {
    EXPECT_TRUE(empty.empty());
    EXPECT_STREQ(empty.c_str(), "");
  }
}

TEST(Secret, MovesLeaveNothingBehind) {
  Secret first("12345678");
  Secret second(std::move(first));
  EXPECT_TRUE(first.empty());  // NOLINT: what a move leaves is part of the promise
  first = std::move(second);
  EXPECT_STREQ(first.c_str(), "12345678");
}

TEST(Secret, LivesInPagesThatAreLockedAndNotDumped) {
  const Secret secret("12345678");
  const std::string flags = FlagsOf(secret.c_str());
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they make mlock do nothing
  EXPECT_THAT(flags, testing::HasSubstr(" lo"));
#endif
  EXPECT_THAT(flags, testing::HasSubstr(" dd"));
  EXPECT_THAT(flags, testing::HasSubstr(" wf"));
}

TEST(Secret, LongOnesHaveRoom) {
  const std::string text(100000, 'x');
  EXPECT_EQ(Secret(text.c_str()).c_str(), text);
}

TEST(Secret, GrowsByPieces) {
  Secret secret;
  secret.Append("1234", 4);
  secret.Append("", 0);
  secret.Append("5678", 4);
  EXPECT_STREQ(secret.c_str(), "12345678");
  EXPECT_EQ(secret.size(), 8u);
  EXPECT_THAT(FlagsOf(secret.c_str()), testing::HasSubstr(" dd"));
}
