#include "Secret.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

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

TEST(Secret, ManyAtOnceAreAllLockedAndApart) {
  std::vector<Secret> secrets;
  for (int i = 0; i < 100; ++i) secrets.emplace_back(std::to_string(10000000 + i).c_str());
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(secrets[i].c_str(), std::to_string(10000000 + i));
    EXPECT_THAT(FlagsOf(secrets[i].c_str()), testing::HasSubstr(" dd"));
  }
}

TEST(Secret, WhatOneLeavesIsWipedBeforeTheNext) {
  const char* first = nullptr;
  {
    const Secret secret("12345678");
    first = secret.c_str();
  }
  const Secret next("1");
  ASSERT_EQ(next.c_str(), first) << "the same place";
  EXPECT_EQ(std::string(first, 8), std::string("1\0\0\0\0\0\0\0", 8));
}

TEST(Secret, AForkedChildHasNoneOfItsParentsAndLocksItsOwn) {
  const Secret secret("12345678");
  const pid_t child = fork();
  if (child == 0) {
    const Secret own("87654321");
    const bool locked = FlagsOf(own.c_str()).find(" lo") != std::string::npos;
    _exit((secret.c_str()[0] == '\0' ? 1 : 0) + (own.c_str() != std::string("87654321") ? 4 : 0) +
          (locked ? 2 : 0));
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)  // they make mlock do nothing
  EXPECT_EQ(WEXITSTATUS(status) & ~2, 1);
#else
  EXPECT_EQ(WEXITSTATUS(status), 3);
#endif
  EXPECT_STREQ(secret.c_str(), "12345678");
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
