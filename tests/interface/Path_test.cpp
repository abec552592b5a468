#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "VELInterface.h"

namespace {

class Path : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/path_test.XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    folder_ = name;
    ASSERT_EQ(chdir(name), 0);
    ASSERT_EQ(mkdir("folder", 0700), 0);
    std::ofstream("file") << "content";
    ASSERT_EQ(symlink("file", "toFile"), 0);
    ASSERT_EQ(symlink("folder", "toFolder"), 0);
    ASSERT_EQ(symlink("nowhere", "dangling"), 0);
    ASSERT_EQ(symlink("loop", "loop"), 0);
  }
  void TearDown() override {
    ASSERT_EQ(chdir("/"), 0);
    ASSERT_EQ(system(("rm -rf " + folder_).c_str()), 0);
  }
  std::wstring Absolute(const wchar_t* below) const {
    return std::wstring(folder_.begin(), folder_.end()) + below;
  }
  static bool IsFolder(const char* path) {
    struct stat info;
    return stat(path, &info) == 0 && S_ISDIR(info.st_mode);
  }
  std::string folder_;
};

TEST_F(Path, ExistenceAndKindHaveTheirErrors) {
  const std::wstring tooLong(5000, L'x');
  const std::wstring exactly4096(4096, L'/');
  const std::wstring longName(300, L'x');
  const wchar_t surrogate[] = {static_cast<wchar_t>(0xD800), 0};
  struct Case {
    const wchar_t* path;
    DWORD existsError, folderError;  // 0: TRUE
  };
  const Case cases[] = {
      {L"file", 0, 3},
      {L"folder", 0, 0},
      {L"folder/", 0, 0},
      {L".", 0, 0},
      {L"/", 0, 0},
      {L"toFile", 0, 3},
      {L"toFolder", 0, 0},
      {L"/dev/null", 0, 3},
      {L"dangling", 2, 2},
      {L"missing", 2, 2},
      {L"missing/below", 2, 2},
      {L"file/below", 3, 3},
      {L"file/", 3, 3},
      {L"loop", 5, 5},
      {L"", 2, 2},
      {nullptr, 87, 87},
      {longName.c_str(), 206, 206},
      {tooLong.c_str(), 206, 206},
      {exactly4096.c_str(), 206, 206},
      {exactly4096.c_str() + 1, 0, 0},
      {surrogate, 1113, 1113},
  };
  for (const Case& c : cases) {
    CloseHandle(nullptr);  // leaves error 6
    EXPECT_EQ(PathFileExistsW(c.path), c.existsError == 0) << testing::PrintToString(c.path);
    EXPECT_EQ(GetLastError(), c.existsError == 0 ? 6 : c.existsError)
        << testing::PrintToString(c.path);
    CloseHandle(nullptr);
    EXPECT_EQ(PathIsDirectoryW(c.path), c.folderError == 0) << testing::PrintToString(c.path);
    EXPECT_EQ(GetLastError(), c.folderError == 0 ? 6 : c.folderError)
        << testing::PrintToString(c.path);
  }
}

TEST_F(Path, NamesAreUtf8OnTheDisk) {
  ASSERT_EQ(SHCreateDirectoryExW(nullptr, L"\u7B7E\u540D", nullptr), 0);
  EXPECT_TRUE(IsFolder("\xE7\xAD\xBE\xE5\x90\x8D"));
  EXPECT_TRUE(PathIsDirectoryW(L"\u7B7E\u540D"));
}

TEST(PathText, RemoveFileSpecCutsTheLastComponent) {
  struct Case {
    const wchar_t *path, *left;
    BOOL cut;
  };
  const Case cases[] = {
      {L"/tmp/PILog.txt", L"/tmp", TRUE},
      {L"/a", L"/", TRUE},
      {L"/a/b", L"/a", TRUE},
      {L"/a//b", L"/a", TRUE},
      {L"/a////b", L"/a", TRUE},
      {L"/a/", L"/a", TRUE},
      {L"/a//", L"/a", TRUE},
      {L"//a", L"/", TRUE},
      {L"//", L"/", TRUE},
      {L"/", L"/", FALSE},
      {L"a/b", L"a", TRUE},
      {L"a", L"", TRUE},
      {L"", L"", FALSE},
      {L" /tmp/PILog.txt.2024", L" /tmp", TRUE},
      {L"/\u7B7E/\u540D", L"/\u7B7E", TRUE},
      {L"a\\b", L"", TRUE},
  };
  for (const Case& c : cases) {
    std::wstring path = c.path;
    EXPECT_EQ(PathRemoveFileSpecW(path.data()), c.cut) << testing::PrintToString(c.path);
    EXPECT_STREQ(path.c_str(), c.left);
  }
  EXPECT_FALSE(PathRemoveFileSpecW(nullptr));
  EXPECT_EQ(GetLastError(), 87u);
}

TEST_F(Path, FoldersAreCreatedWithThoseAboveForTheirOwnerOnly) {
  struct Case {
    std::wstring path;
    const char *folder, *above;
  };
  const Case cases[] = {
      {L"one", "one", "."},           {L"a/b/c", "a/b/c", "a/b"},
      {L"slash/", "slash", "."},      {L"d/e//", "d/e", "d"},
      {L"f//g", "f/g", "f"},          {L"./h/i", "h/i", "h"},
      {L"folder/../j/k", "j/k", "j"}, {L"toFolder/l/m", "folder/l/m", "folder/l"},
      {L" /n", " /n", " "},           {Absolute(L"/x/y/z"), "x/y/z", "x/y"},
  };
  const mode_t old = umask(0);
  for (const Case& c : cases) {
    EXPECT_EQ(SHCreateDirectoryExW(nullptr, c.path.c_str(), nullptr), 0)
        << testing::PrintToString(c.path);
    for (const char* folder : {c.folder, c.above}) {
      struct stat info;
      ASSERT_EQ(stat(folder, &info), 0) << folder;
      EXPECT_TRUE(S_ISDIR(info.st_mode));
      EXPECT_EQ(info.st_mode & 0777, 0700u) << folder;
    }
    EXPECT_EQ(SHCreateDirectoryExW(nullptr, c.path.c_str(), nullptr), 183);
    EXPECT_EQ(GetLastError(), 183u);
  }
  umask(old);
}

TEST_F(Path, CreationFailuresHaveTheirNumbers) {
  const std::wstring tooLong(5000, L'x');
  const std::wstring longName(300, L'x');
  struct Case {
    const wchar_t* path;
    int error;
  };
  const Case cases[] = {
      {L"folder", 183},   {L"folder/", 183},      {L"/", 183},
      {L".", 183},        {L"toFolder", 183},     {L"/tmp", 183},
      {L"file", 80},      {L"toFile", 80},        {L"dangling", 80},
      {L"file/below", 3}, {L"file/below/it", 3},  {L"dangling/below", 3},
      {L"", 3},           {nullptr, 87},          {longName.c_str(), 206},
      {L"loop/below", 5}, {tooLong.c_str(), 206}, {L"/proc/none", 3},
  };
  for (const Case& c : cases) {
    CloseHandle(nullptr);
    EXPECT_EQ(SHCreateDirectoryExW(nullptr, c.path, nullptr), c.error)
        << testing::PrintToString(c.path);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(c.error));
  }
  EXPECT_FALSE(IsFolder("nowhere"));
}

TEST_F(Path, ManyCreatorsOfOneChainAllFindItThere) {
  for (int round = 0; round < 50; ++round) {
    const std::wstring path = L"race" + std::to_wstring(round) + L"/b/c/d";
    std::atomic<int> created{0}, existed{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        const int result = SHCreateDirectoryExW(nullptr, path.c_str(), nullptr);
        if (result == 0) ++created;
        if (result == 183) ++existed;
      });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_EQ(created, 1);
    ASSERT_EQ(existed, 3);
  }
}

}  // namespace
