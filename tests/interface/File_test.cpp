#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "VELInterface.h"

namespace {

LARGE_INTEGER At(long long position) {
  LARGE_INTEGER value;
  value.QuadPart = position;
  return value;
}

// A folder of its own for each test; the working directory meanwhile.
class File : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/file_test.XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    folder_ = name;
    ASSERT_EQ(chdir(name), 0);
  }
  void TearDown() override {
    ASSERT_EQ(chdir("/"), 0);
    ASSERT_EQ(system(("rm -rf " + folder_).c_str()), 0);
  }

  static std::string Content(const char* path) {
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
  }
  static void Lay(const char* path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
  }

  std::string folder_;
};

TEST_F(File, AMissingFileIsCreatedForItsOwnerAndTheErrorIsZero) {
  EXPECT_EQ(CloseHandle(nullptr), FALSE);  // leaves another error
  const HANDLE file = VelCreateFile("new");
  EXPECT_EQ(GetLastError(), 0u);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  struct stat info;
  ASSERT_EQ(stat("new", &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0600u);
  EXPECT_EQ(info.st_size, 0);
  EXPECT_TRUE(CloseHandle(file));
}

TEST_F(File, AnExistingFileKeepsItsBytesAndTheErrorIs183) {
  Lay("old", "content");
  const HANDLE file = VelCreateFile("old");
  EXPECT_EQ(GetLastError(), 183u);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  char bytes[16] = {};
  DWORD done = 0;
  EXPECT_TRUE(ReadFile(file, bytes, 16, &done, nullptr));
  EXPECT_EQ(std::string(bytes, done), "content");
  EXPECT_TRUE(CloseHandle(file));
}

TEST_F(File, OneOfManyCreatorsSeesZero) {
  constexpr int kRounds = 1000;
  constexpr int kThreads = 2;
  std::atomic<int> arrived{0}, created{0}, existed{0};
  const auto create = [&] {
    for (int round = 0; round < kRounds; ++round) {
      const std::string path = "raced" + std::to_string(round);
      ++arrived;
      while (arrived < kThreads * (round + 1)) sched_yield();
      const HANDLE file = VelCreateFile(path.c_str());
      if (GetLastError() == 0) ++created;
      if (GetLastError() == 183) ++existed;
      EXPECT_TRUE(CloseHandle(file));
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) threads.emplace_back(create);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(created, kRounds);
  EXPECT_EQ(existed, kRounds * (kThreads - 1));
}

TEST_F(File, CreationGoesOnWhileAnotherRemovesTheFile) {
  std::atomic<bool> stop{false};
  std::thread remover([&] {
    while (!stop) unlink("fleeting");
  });
  for (int i = 0; i < 2000; ++i) {
    const HANDLE file = VelCreateFile("fleeting");
    ASSERT_NE(file, INVALID_HANDLE_VALUE) << GetLastError();
    CloseHandle(file);
  }
  stop = true;
  remover.join();
}

TEST_F(File, ASymbolicLinkIsNotFollowedAtTheEndOfThePath) {
  Lay("target", "content");
  mkdir("folder", 0700);
  ASSERT_EQ(symlink("target", "link"), 0);
  ASSERT_EQ(symlink("nowhere", "dangling"), 0);
  ASSERT_EQ(symlink("folder", "folderLink"), 0);
  for (const char* path : {"link", "dangling"}) {
    EXPECT_EQ(VelCreateFile(path), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), 5u);
  }
  EXPECT_EQ(access("nowhere", F_OK), -1);
  const HANDLE file = VelCreateFile("folderLink/inside");
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  EXPECT_TRUE(CloseHandle(file));
}

TEST_F(File, OpenFailuresHaveTheirNumbers) {
  Lay("plain", "");
  const std::string longName(300, 'x');
  struct Case {
    const char* path;
    DWORD error;
  };
  const Case cases[] = {{"/tmp", 5}, {".", 5},      {"missing/file", 3}, {"plain/file", 3},
                        {"", 3},     {nullptr, 87}, {"trailing/", 5},    {longName.c_str(), 206}};
  for (const Case& c : cases) {
    EXPECT_EQ(VelCreateFile(c.path), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), c.error) << (c.path ? c.path : "null");
  }
}

TEST_F(File, WithoutDescriptorsTheErrorIsFour) {
  rlimit old;
  getrlimit(RLIMIT_NOFILE, &old);
  const rlimit none = {0, old.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_EQ(VelCreateFile("file"), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), 4u);
  setrlimit(RLIMIT_NOFILE, &old);
}

TEST_F(File, TheDescriptorIsClosedOnExec) {
  const int next = dup(0);
  close(next);
  const HANDLE file = VelCreateFile("file");  // takes the lowest descriptor
  struct stat opened, named;
  ASSERT_EQ(fstat(next, &opened), 0);
  ASSERT_EQ(stat("file", &named), 0);
  ASSERT_EQ(opened.st_ino, named.st_ino);
  EXPECT_EQ(fcntl(next, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  EXPECT_TRUE(CloseHandle(file));
  EXPECT_EQ(fcntl(next, F_GETFD), -1);
}

TEST_F(File, DescriptorZeroGivesAUsableHandle) {
  const int keep = fcntl(0, F_DUPFD_CLOEXEC, 10);
  close(0);
  const HANDLE file = VelCreateFile("zero");
  EXPECT_EQ(fcntl(0, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC) << "took another descriptor";
  EXPECT_NE(file, nullptr);
  EXPECT_NE(file, INVALID_HANDLE_VALUE);
  DWORD done = 0;
  EXPECT_TRUE(WriteFile(file, "ab", 2, &done, nullptr));
  EXPECT_TRUE(CloseHandle(file));
  EXPECT_EQ(fcntl(0, F_GETFD), -1);
  if (keep >= 0) {
    dup2(keep, 0);
    close(keep);
  }
  EXPECT_EQ(Content("zero"), "ab");
}

TEST_F(File, EveryOperationRefusesWhatIsNoHandle) {
  const HANDLE closed = VelCreateFile("file");
  ASSERT_TRUE(CloseHandle(closed));
  int local = 0;
  char byte = 0;
  DWORD done = 7;
  LARGE_INTEGER number = At(0);
  for (const HANDLE file : {HANDLE{nullptr}, INVALID_HANDLE_VALUE, HANDLE{&local},
                            reinterpret_cast<HANDLE>(5), closed}) {
    const auto refused = [](BOOL result) {
      const bool yes = result == FALSE && GetLastError() == 6;
      PathFileExistsW(nullptr);  // leaves another error
      return yes;
    };
    EXPECT_TRUE(refused(ReadFile(file, &byte, 1, &done, nullptr)));
    EXPECT_EQ(done, 0u);
    EXPECT_TRUE(refused(WriteFile(file, &byte, 1, &done, nullptr)));
    EXPECT_TRUE(refused(SetFilePointerEx(file, number, nullptr, FILE_BEGIN)));
    EXPECT_TRUE(refused(GetFileSizeEx(file, &number)));
    EXPECT_TRUE(refused(FlushFileBuffers(file)));
    EXPECT_TRUE(refused(SetEndOfFile(file)));
    EXPECT_TRUE(refused(CloseHandle(file)));
  }
}

TEST_F(File, AHandleIsComparedInAllItsBits) {
  const HANDLE file = VelCreateFile("file");
  const HANDLE alias = reinterpret_cast<HANDLE>(reinterpret_cast<uintptr_t>(file) + (4ULL << 32));
  EXPECT_FALSE(CloseHandle(alias));
  EXPECT_EQ(GetLastError(), 6u);
  EXPECT_TRUE(CloseHandle(file));
}

TEST_F(File, WrongArgumentsGiveInvalidParameter) {
  const HANDLE file = VelCreateFile("file");
  char byte = 'x';
  DWORD done = 7;
  const auto refused = [](BOOL result) {
    const bool yes = result == FALSE && GetLastError() == 87;
    CloseHandle(nullptr);  // leaves another error
    return yes;
  };
  EXPECT_TRUE(refused(ReadFile(file, &byte, 1, nullptr, nullptr)));
  EXPECT_TRUE(refused(ReadFile(file, nullptr, 1, &done, nullptr)));
  EXPECT_TRUE(refused(ReadFile(file, &byte, 1, &done, &byte)));
  EXPECT_TRUE(refused(WriteFile(file, &byte, 1, nullptr, nullptr)));
  EXPECT_TRUE(refused(WriteFile(file, nullptr, 1, &done, nullptr)));
  EXPECT_TRUE(refused(WriteFile(file, &byte, 1, &done, &byte)));
  EXPECT_TRUE(refused(SetFilePointerEx(file, At(0), nullptr, 3)));
  EXPECT_TRUE(refused(GetFileSizeEx(file, nullptr)));
  EXPECT_TRUE(WriteFile(file, nullptr, 0, &done, nullptr));
  EXPECT_TRUE(ReadFile(file, nullptr, 0, &done, nullptr));
  EXPECT_EQ(done, 0u);
  EXPECT_TRUE(CloseHandle(file));
  EXPECT_EQ(Content("file"), "");
}

TEST_F(File, ReadsAndWritesMoveThePosition) {
  const HANDLE file = VelCreateFile("file");
  DWORD done = 0;
  LARGE_INTEGER value = At(-1);
  EXPECT_TRUE(WriteFile(file, "0123456789", 10, &done, nullptr));
  EXPECT_EQ(done, 10u);
  EXPECT_TRUE(GetFileSizeEx(file, &value));
  EXPECT_EQ(value.QuadPart, 10);
  EXPECT_TRUE(SetFilePointerEx(file, At(2), &value, FILE_BEGIN));
  EXPECT_EQ(value.QuadPart, 2);
  char bytes[16] = {};
  EXPECT_TRUE(ReadFile(file, bytes, 3, &done, nullptr));
  EXPECT_EQ(std::string(bytes, done), "234");
  EXPECT_TRUE(SetFilePointerEx(file, At(1), &value, FILE_CURRENT));
  EXPECT_EQ(value.QuadPart, 6);
  EXPECT_TRUE(ReadFile(file, bytes, 16, &done, nullptr));
  EXPECT_EQ(std::string(bytes, done), "6789");
  EXPECT_TRUE(ReadFile(file, bytes, 16, &done, nullptr));
  EXPECT_EQ(done, 0u);
  EXPECT_TRUE(SetFilePointerEx(file, At(-4), &value, FILE_END));
  EXPECT_EQ(value.QuadPart, 6);
  EXPECT_TRUE(WriteFile(file, "xy", 2, &done, nullptr));
  EXPECT_TRUE(FlushFileBuffers(file));
  EXPECT_TRUE(CloseHandle(file));
  EXPECT_EQ(Content("file"), "012345xy89");
}

TEST_F(File, APositionBeforeTheBeginningIsRefusedAndKept) {
  Lay("file", "0123456789");
  const HANDLE file = VelCreateFile("file");
  LARGE_INTEGER value = At(77);
  ASSERT_TRUE(SetFilePointerEx(file, At(3), nullptr, FILE_BEGIN));
  struct Case {
    long long distance;
    DWORD method;
  };
  for (const Case& c : {Case{-1, FILE_BEGIN}, Case{-4, FILE_CURRENT}, Case{-11, FILE_END}}) {
    EXPECT_FALSE(SetFilePointerEx(file, At(c.distance), &value, c.method));
    EXPECT_EQ(GetLastError(), 131u);
    EXPECT_EQ(value.QuadPart, 77);
  }
  EXPECT_TRUE(SetFilePointerEx(file, At(0), &value, FILE_CURRENT));
  EXPECT_EQ(value.QuadPart, 3);
  EXPECT_TRUE(CloseHandle(file));
}

TEST_F(File, SetEndOfFileCutsAndExtendsWithZeros) {
  Lay("file", "0123456789");
  const HANDLE file = VelCreateFile("file");
  EXPECT_TRUE(SetFilePointerEx(file, At(4), nullptr, FILE_BEGIN));
  EXPECT_TRUE(SetEndOfFile(file));
  EXPECT_EQ(Content("file"), "0123");
  EXPECT_TRUE(SetFilePointerEx(file, At(6), nullptr, FILE_BEGIN));
  EXPECT_TRUE(SetEndOfFile(file));
  EXPECT_EQ(Content("file"), std::string("0123\0\0", 6));
  EXPECT_TRUE(CloseHandle(file));
}

TEST_F(File, SizesAndPositionsBeyondFourGigabytes) {
  const HANDLE file = VelCreateFile("sparse");
  const long long far = 5LL << 30;
  LARGE_INTEGER value = At(0);
  EXPECT_TRUE(SetFilePointerEx(file, At(far), &value, FILE_BEGIN));
  EXPECT_TRUE(SetEndOfFile(file));
  EXPECT_TRUE(GetFileSizeEx(file, &value));
  EXPECT_EQ(value.QuadPart, far);
  EXPECT_TRUE(CloseHandle(file));
}

TEST_F(File, ASizeLimitIsAFullDiskAndTheBytesBeforeItCount) {
  ASSERT_NE(signal(SIGXFSZ, SIG_IGN), SIG_ERR);
  rlimit old;
  getrlimit(RLIMIT_FSIZE, &old);
  const HANDLE file = VelCreateFile("limited");
  const rlimit limit = {1000, old.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  const std::string bytes(1500, 'x');
  DWORD done = 0;
  const BOOL result = WriteFile(file, bytes.data(), bytes.size(), &done, nullptr);
  const DWORD error = GetLastError();
  const BOOL extended = SetFilePointerEx(file, At(2000), nullptr, FILE_BEGIN) && SetEndOfFile(file);
  const DWORD extendError = GetLastError();
  setrlimit(RLIMIT_FSIZE, &old);
  signal(SIGXFSZ, SIG_DFL);
  EXPECT_FALSE(result);
  EXPECT_EQ(error, 112u);
  EXPECT_EQ(done, 1000u);
  EXPECT_FALSE(extended);
  EXPECT_EQ(extendError, 112u);
  EXPECT_TRUE(CloseHandle(file));
  EXPECT_EQ(Content("limited").size(), 1000u);
}

TEST_F(File, AFullDiskIs112) {
  ASSERT_EQ(mkdir("disk", 0700), 0);
  ASSERT_EQ(mount("full", "disk", "tmpfs", 0, "size=16k"), 0) << strerror(errno);
  const HANDLE file = VelCreateFile("disk/file");
  const std::string bytes(100000, 'x');
  DWORD done = 0;
  EXPECT_FALSE(WriteFile(file, bytes.data(), bytes.size(), &done, nullptr));
  EXPECT_EQ(GetLastError(), 112u);
  EXPECT_GT(done, 0u);
  EXPECT_LE(done, 16384u);
  EXPECT_TRUE(CloseHandle(file));
  EXPECT_EQ(umount("disk"), 0);
}

TEST_F(File, AReadOnlyDiskRefusesCreation) {
  ASSERT_EQ(mkdir("disk", 0700), 0);
  ASSERT_EQ(mount("still", "disk", "tmpfs", MS_RDONLY, ""), 0) << strerror(errno);
  EXPECT_EQ(VelCreateFile("disk/file"), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), 5u);
  EXPECT_EQ(umount("disk"), 0);
}

// A pipe hands out short counts, and the signals interrupt each wait.
TEST_F(File, InterruptedAndShortTransfersAreCompleted) {
  ASSERT_EQ(mkfifo("pipe", 0600), 0);
  const size_t size = 1 << 20;
  struct sigaction action = {};
  struct sigaction old;
  action.sa_handler = [](int) {};
  sigaction(SIGUSR1, &action, &old);
  const HANDLE writerEnd = VelCreateFile("pipe");
  const HANDLE readerEnd = VelCreateFile("pipe");
  std::string sent(size, 0);
  for (size_t i = 0; i < size; ++i) sent[i] = static_cast<char>(i * 31 >> 3);
  std::string received(size, 0);
  std::atomic<int> running{2};
  DWORD written = 0, read = 0;
  std::thread writer([&] {
    EXPECT_TRUE(WriteFile(writerEnd, sent.data(), size, &written, nullptr));
    --running;
  });
  std::thread reader([&] {
    for (size_t at = 0; at < size;) {  // slow, so that the writer waits
      EXPECT_TRUE(ReadFile(readerEnd, received.data() + at, size / 64, &read, nullptr));
      at += read;
      usleep(500);
    }
    --running;
  });
  while (running > 0) {
    if (running == 2) pthread_kill(writer.native_handle(), SIGUSR1);
    pthread_kill(reader.native_handle(), SIGUSR1);
    usleep(100);
  }
  writer.join();
  reader.join();
  sigaction(SIGUSR1, &old, nullptr);
  EXPECT_EQ(written, size);
  EXPECT_TRUE(sent == received);
  EXPECT_TRUE(CloseHandle(writerEnd));
  EXPECT_TRUE(CloseHandle(readerEnd));
}

TEST_F(File, AFailedReadKeepsTheErrorOfTheDevice) {
  const HANDLE file = VelCreateFile("/proc/self/mem");  // nothing is mapped at address 0
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  char byte;
  DWORD done = 7;
  EXPECT_FALSE(ReadFile(file, &byte, 1, &done, nullptr));
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(GetLastError(), 1117u);
  EXPECT_TRUE(CloseHandle(file));
}

TEST_F(File, ADeviceThatKeepsNothingIsFlushed) {
  const HANDLE file = VelCreateFile("/dev/null");
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  EXPECT_TRUE(FlushFileBuffers(file));
  EXPECT_TRUE(CloseHandle(file));
}

TEST_F(File, ASuccessLeavesTheLastErrorAlone) {
  const HANDLE file = VelCreateFile("file");
  CloseHandle(nullptr);
  DWORD done;
  LARGE_INTEGER size;
  EXPECT_TRUE(WriteFile(file, "a", 1, &done, nullptr));
  EXPECT_TRUE(GetFileSizeEx(file, &size));
  EXPECT_TRUE(SetFilePointerEx(file, At(0), nullptr, FILE_BEGIN));
  EXPECT_TRUE(FlushFileBuffers(file));
  EXPECT_TRUE(SetEndOfFile(file));
  EXPECT_TRUE(CloseHandle(file));
  EXPECT_EQ(GetLastError(), 6u);
}

}  // namespace
