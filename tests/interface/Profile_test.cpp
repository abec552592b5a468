#include <gtest/gtest.h>
#include <limits.h>
#include <locale.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "VELInterface.h"

namespace {

constexpr const char* kFile = "/var/log.ini";
constexpr INT kDefault = 77;

void Lay(const std::string& content) {
  std::ofstream(kFile, std::ios::binary | std::ios::trunc) << content;
}

UINT Level(const std::string& content) {
  Lay(content);
  return GetPrivateProfileIntA("loginfo", "logLevel", kDefault, kFile);
}

UINT LevelOf(const std::string& value) {
  return Level("[loginfo]\nlogLevel=" + value + "\n");
}

class Profile : public testing::Test {
 protected:
  void TearDown() override { unlink(kFile); }
};

TEST_F(Profile, ValuesAreReadAsWin32ReadsThem) {
  struct Case {
    const char* value;
    UINT result;
  };
  const Case cases[] = {
      {"3", 3},
      {"0", 0},
      {"+4", 4},
      {"-1", 4294967295u},
      {"-4294967297", 4294967295u},
      {"2147483648", 2147483648u},
      {"4294967295", 4294967295u},
      {"4294967296", 0},
      {"4294967297", 1},
      {"007", 7},
      {"010", 10},
      {"0x1F", 31},
      {"0XfF", 255},
      {"0x", 0},
      {"-0x10", 4294967280u},
      {"1F", 1},
      {"42A94967297", 42},
      {"B4294967297", 0},
      {"3 ; errors only", 3},
      {"3;errors only", 3},
      {"3.9", 3},
      {"3=4", 3},
      {"  3  ", 3},
      {"\t3\t", 3},
      {"\"3\"", 3},
      {"'3'", 3},
      {"\" 3 \"", 3},
      {"\"0x10\"", 16},
      {"\"3", 0},
      {"\"", 0},
      {"\"3'", 0},
      {"", 0},
      {"none", 0},
      {"--3", 0},
      {"\xE4\xB8\x89", 0},
  };
  for (const Case& c : cases) EXPECT_EQ(LevelOf(c.value), c.result) << c.value;
}

TEST_F(Profile, FilesOfEveryShapeAreRead) {
  struct Case {
    const char* what;
    std::string content;
    UINT result;
  };
  const Case cases[] = {
      {"no final newline", "[loginfo]\nlogLevel=3", 3},
      {"CRLF", "[loginfo]\r\nlogLevel=3\r\n", 3},
      {"CR alone", "[loginfo]\rlogLevel=3\r", 3},
      {"byte-order mark", "\xEF\xBB\xBF[loginfo]\nlogLevel=3\n", 3},
      {"part of a byte-order mark", "\xEF\xBB[other]\n[loginfo]\nlogLevel=3\n", 3},
      {"case", "[LOGINFO]\nLOGLEVEL=3\n", 3},
      {"blanks", " [ loginfo ] \n\t logLevel \t = \t 3 \n", 3},
      {"comments", "; [loginfo]\n[loginfo]\n;logLevel=2\n  ; logLevel=4\nlogLevel=3\n", 3},
      {"a comment behind the section", "[loginfo] ; [other]\nlogLevel=3\n", 3},
      {"other sections around", "[a]\nlogLevel=1\n[loginfo]\nlogLevel=3\n[b]\nlogLevel=2\n", 3},
      {"the first key", "[loginfo]\nlogLevel=3\nlogLevel=4\n", 3},
      {"the section twice", "[loginfo]\nother=1\n[b]\nlogLevel=2\n[loginfo]\nlogLevel=3\n", 3},
      {"longer names", "[loginfo2]\nlogLevel=1\n[loginfo]\nlogLevel2=2\nlogLevel=3\n", 3},
      {"shorter names", "[loginf]\nlogLevel=1\n[loginfo]\nlogLeve=2\nlogLevel=3\n", 3},
      {"a zero byte", std::string("[x\0]\n[loginfo]\nk\0=1\nlogLevel=3\n", 31), 3},
      {"no bracket closed", "[loginfo\nlogLevel=1\n", kDefault},
      {"no section", "logLevel=1\n", kDefault},
      {"another section", "[other]\nlogLevel=1\n", kDefault},
      {"no key", "[loginfo]\nother=1\n", kDefault},
      {"no equals sign", "[loginfo]\nlogLevel 3\nlogLevel\n", kDefault},
      {"an empty file", "", kDefault},
      {"line ends only", "\n\n\r\n", kDefault},
      {"a byte-order mark only", "\xEF\xBB\xBF", kDefault},
      {"UTF-16", std::string("\xFF\xFE[\0l\0o\0g\0", 10), kDefault},
  };
  for (const Case& c : cases) EXPECT_EQ(Level(c.content), c.result) << c.what;
}

TEST_F(Profile, VeryLongLinesHideNothing) {
  const std::string longText(10 << 20, 'x');
  EXPECT_EQ(Level(longText + "\n[loginfo]\n;" + longText + "\nother=" + longText + "\nlogLevel=3 " +
                  longText),
            3u);
  EXPECT_EQ(Level("[loginfo]\n" + longText + "=1\n" + longText), static_cast<UINT>(kDefault));
  EXPECT_EQ(LevelOf(std::string(4000, ' ') + "3"), 3u);
  EXPECT_EQ(LevelOf(std::string(5000, ' ') + "3"), 0u);
}

TEST_F(Profile, AHugeFileIsReadToItsEnd) {
  std::string content;
  for (int i = 0; i < 500000; ++i) content += "[section" + std::to_string(i) + "]\nlogLevel=1\n";
  EXPECT_EQ(Level(content + "[loginfo]\nlogLevel=3\n"), 3u);
}

TEST_F(Profile, WhatIsMissingGivesTheDefault) {
  unlink(kFile);
  EXPECT_EQ(GetPrivateProfileIntA("loginfo", "logLevel", 1, kFile), 1u);
  EXPECT_EQ(GetLastError(), 2u);
  EXPECT_EQ(GetPrivateProfileIntA("loginfo", "logLevel", -1, kFile), UINT_MAX);
  Lay("[other]\nlogLevel=3\n");
  CloseHandle(nullptr);
  EXPECT_EQ(GetPrivateProfileIntA("loginfo", "logLevel", 1, kFile), 1u);
  EXPECT_EQ(GetLastError(), 2u);
  EXPECT_EQ(GetPrivateProfileIntA("loginfo", "logLevel", 5, "/var"), 5u);
  EXPECT_EQ(GetPrivateProfileIntA("loginfo", "logLevel", 5, ""), 5u);
}

TEST_F(Profile, ACommentIsNoKey) {
  Lay("[loginfo]\n;logLevel=3\n");
  EXPECT_EQ(GetPrivateProfileIntA("loginfo", ";logLevel", 5, kFile), 5u);
}

TEST_F(Profile, NullNamesGiveTheDefault) {
  Lay("[loginfo]\nlogLevel=3\n");
  EXPECT_EQ(GetPrivateProfileIntA(nullptr, "logLevel", 5, kFile), 5u);
  EXPECT_EQ(GetPrivateProfileIntA("loginfo", nullptr, 5, kFile), 5u);
  EXPECT_EQ(GetPrivateProfileIntA("loginfo", "logLevel", 5, nullptr), 5u);
  EXPECT_EQ(GetLastError(), 87u);
}

TEST_F(Profile, TheLocaleIsNotAsked) {
  for (const char* locale : {"C.UTF-8", "tr_TR.UTF-8", "zh_CN.GB18030", "C"}) {
    if (setlocale(LC_ALL, locale) == nullptr) continue;
    EXPECT_EQ(Level("[LOGINFO]\nLOGLEVEL=3\n"), 3u) << locale;
    EXPECT_EQ(Level("[loginfo]\n\xB5\x5C=1\nlogLevel=0xA\n"), 10u) << locale;
  }
  setlocale(LC_ALL, "C");
}

TEST_F(Profile, ManyThreadsReadAtOnce) {
  Lay("[loginfo]\nlogLevel=3\n");
  std::atomic<int> right{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&right] {
      for (int n = 0; n < 200; ++n) {
        if (GetPrivateProfileIntA("loginfo", "logLevel", 1, kFile) == 3) ++right;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(right, 800);
}

}  // namespace
