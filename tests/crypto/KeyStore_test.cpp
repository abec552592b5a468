// PINs of the key store on the disk: crashes, other processes, full disks, damaged files.
#include "keystore/KeyStore.h"

#include <gmock/gmock.h>
#include <openssl/pkcs12.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "Eventually.h"
#include "KeyMaker.h"

using keymaker::Bytes;
using velcrypto::Secret;

namespace {

const char kPin[] = "12345678";
const char kNewPin[] = "87654321";

class KeyStore : public testing::Test {
 protected:
  void SetUp() override {
    keymaker::Request request;
    request.kind = keymaker::Kind::kSm2;
    m_made = keymaker::Make(request);
    Fill(m_folder.path());
  }
  void Fill(const std::string& folder) {
    m_path = folder + "/key.p12";
    keymaker::WriteFile(m_path, keymaker::Pkcs12(m_made, kPin));
    m_backend = velcrypto::OpenKeyStore(folder, nullptr);
    std::vector<velcrypto::IdentityPtr> identities;
    std::vector<velcrypto::Skipped> skipped;
    ASSERT_TRUE(m_backend->List(&identities, &skipped).ok());
    ASSERT_EQ(identities.size(), 1u);
    m_identity = identities[0];
  }
  ULONG LogIn(const char* pin) { return m_backend->LogIn(*m_identity, Secret(pin)).code; }
  ULONG ChangePin(const char* from, const char* to) {
    return m_backend->ChangePin(*m_identity, Secret(from), Secret(to)).code;
  }
  unsigned TriesLeft() {
    velcrypto::PinState state;
    EXPECT_TRUE(m_backend->GetPinState(*m_identity, &state).ok());
    return state.triesLeft;
  }
  std::string CounterPath() const {
    for (const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::path(m_path).parent_path())) {
      if (entry.path().filename().string().rfind(".tries-", 0) == 0) return entry.path();
    }
    return "";
  }
  // Runs `work` in a child; its exit status.
  template <typename Work>
  static int InChild(Work work) {
    const pid_t child = fork();
    if (child == 0) {
      work();
      _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
  }

  keymaker::TemporaryFolder m_folder;
  std::string m_path;
  keymaker::Identity m_made;
  std::unique_ptr<velcrypto::Backend> m_backend;
  velcrypto::IdentityPtr m_identity;
};

}  // namespace

TEST_F(KeyStore, ATryOfAProcessThatDiesIsSpent) {
  InChild([this] {
    LogIn("wrong pin");
    LogIn("wrong pin");
    raise(SIGKILL);
  });
  EXPECT_EQ(TriesLeft(), 8u);
}

// The file asks for so many rounds that the try cannot end before the process does.
TEST_F(KeyStore, ATryIsSpentBeforeItIsMade) {
  const Bytes good = keymaker::ReadFile(m_path);
  const unsigned char* at = good.data();
  PKCS12* const file = d2i_PKCS12(nullptr, &at, static_cast<long>(good.size()));
  ASSERT_EQ(PKCS12_setup_mac(file, 1 << 30, nullptr, 0, EVP_sha256()), 1);
  unsigned char* der = nullptr;
  const int size = i2d_PKCS12(file, &der);
  keymaker::WriteFile(m_path, Bytes(der, der + size));
  OPENSSL_free(der);
  PKCS12_free(file);
  const pid_t child = fork();
  if (child == 0) _exit(LogIn(kPin) == 0 ? 0 : 1);
  EXPECT_TRUE(Eventually([this] { return TriesLeft() == 9; }));
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, WNOHANG), 0) << "the try is still being made";
  kill(child, SIGKILL);
  waitpid(child, &status, 0);
  EXPECT_EQ(TriesLeft(), 9u);
  keymaker::WriteFile(m_path, good);
  EXPECT_EQ(LogIn(kPin), 0u) << "and the lock is gone";
}

TEST_F(KeyStore, TriesAreSharedByAllProcessesAndThreads) {
  const auto tryTwice = [this] {
    auto other = velcrypto::OpenKeyStore(m_folder.path(), nullptr);
    for (int i = 0; i < 2; ++i) other->LogIn(*m_identity, Secret("wrong pin"));
  };
  InChild(tryTwice);
  std::thread first(tryTwice);
  std::thread second(tryTwice);
  first.join();
  second.join();
  EXPECT_EQ(TriesLeft(), 4u);
  std::thread third(tryTwice);
  std::thread fourth(tryTwice);
  third.join();
  fourth.join();
  EXPECT_EQ(TriesLeft(), 0u);
  EXPECT_EQ(LogIn(kPin), 0xE0000057u);
}

TEST_F(KeyStore, TheCounterBelongsToTheKeyWhateverItsFileIsCalled) {
  for (int i = 0; i < 3; ++i) LogIn("wrong pin");
  std::filesystem::rename(m_path, m_folder / "renamed.p12");
  std::vector<velcrypto::IdentityPtr> identities;
  std::vector<velcrypto::Skipped> skipped;
  ASSERT_TRUE(m_backend->List(&identities, &skipped).ok());
  ASSERT_EQ(identities.size(), 1u);
  m_identity = identities[0];
  EXPECT_EQ(TriesLeft(), 7u);
}

TEST_F(KeyStore, TheCounterIsPrivateAndFollowsNoLink) {
  LogIn("wrong pin");
  struct stat info;
  const std::string counter = CounterPath();
  ASSERT_EQ(stat(counter.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  const std::string target = m_folder / "target";
  keymaker::WriteFile(target, {});
  std::filesystem::remove(counter);
  std::filesystem::create_symlink(target, counter);
  EXPECT_EQ(LogIn(kPin), 0xE000000Au) << "no counter, no try";
  EXPECT_EQ(std::filesystem::file_size(target), 0u);
}

TEST_F(KeyStore, ADamagedCounterAllowsNoTry) {
  LogIn("wrong pin");
  const std::string counter = CounterPath();
  for (const char* text : {"x", "11\n", "99\n", "-1\n", "5", "10"}) {
    std::ofstream(counter, std::ios::trunc) << text;
    EXPECT_EQ(LogIn(kPin), 0xE0000057u) << text;
  }
  std::filesystem::remove(counter);
  EXPECT_EQ(LogIn(kPin), 0u);
}

TEST_F(KeyStore, AFaultThatSaysNothingAboutThePinSpendsNoTry) {
  LogIn("wrong pin");
  std::filesystem::remove(m_path);
  EXPECT_EQ(LogIn(kPin), 0xE0000043u);
  keymaker::WriteFile(m_path, {'x'});
  EXPECT_EQ(LogIn(kPin), 0xE0000089u);
  EXPECT_EQ(TriesLeft(), 9u);
}

TEST_F(KeyStore, AnotherKeyUnderTheSameNameIsNotOpened) {
  keymaker::Request request;
  request.kind = keymaker::Kind::kSm2;
  keymaker::WriteFile(m_path, keymaker::Pkcs12(keymaker::Make(request), kPin));
  EXPECT_EQ(LogIn(kPin), 0xE000002Cu);
  EXPECT_FALSE(m_backend->IsLoggedIn(*m_identity));
}

TEST_F(KeyStore, AChangedFileEndsTheLogin) {
  ASSERT_EQ(LogIn(kPin), 0u);
  EXPECT_TRUE(m_backend->IsLoggedIn(*m_identity));
  keymaker::WriteFile(m_path, keymaker::Pkcs12(m_made, kNewPin));
  EXPECT_FALSE(m_backend->IsLoggedIn(*m_identity));
}

TEST_F(KeyStore, ThePinChangeLeavesAPrivateFileAndNothingBeside) {
  ASSERT_EQ(chmod(m_path.c_str(), 0644), 0);
  ASSERT_EQ(ChangePin(kPin, kNewPin), 0u);
  struct stat info;
  ASSERT_EQ(stat(m_path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(m_folder.path())) {
    names.push_back(entry.path().filename());
  }
  EXPECT_EQ(names.size(), 2u) << testing::PrintToString(names);
}

TEST_F(KeyStore, WhatACrashLeftBesideDoesNotHinderTheNextChange) {
  keymaker::WriteFile(m_folder / ".key.p12.new", Bytes(10, 'x'));
  EXPECT_EQ(ChangePin(kPin, kNewPin), 0u);
  EXPECT_EQ(LogIn(kNewPin), 0u);
  std::filesystem::create_symlink(m_path, m_folder / ".key.p12.new");
  EXPECT_EQ(ChangePin(kNewPin, kPin), 0u) << "a link in its place is removed, not followed";
  EXPECT_EQ(LogIn(kPin), 0u);
}

// The child changes the PIN to and fro until it is killed at some moment.
TEST_F(KeyStore, AProcessKilledWhileItChangesThePinLeavesTheOldOrTheNewFile) {
  for (int round = 0; round < 12; ++round) {
    const pid_t child = fork();
    if (child == 0) {
      for (;;) {
        ChangePin(kPin, kNewPin);
        ChangePin(kNewPin, kPin);
      }
    }
    usleep(static_cast<useconds_t>(20000 + 23000 * round));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const Bytes file = keymaker::ReadFile(m_path);
    const bool old = keymaker::OpenPkcs12(file, kPin) != nullptr;
    const bool fresh = keymaker::OpenPkcs12(file, kNewPin) != nullptr;
    ASSERT_NE(old, fresh) << round;
    ASSERT_EQ(LogIn(old ? kPin : kNewPin), 0u) << "the lock died with the process";
    ASSERT_EQ(fresh ? ChangePin(kNewPin, kPin) : 0u, 0u);
  }
}

TEST_F(KeyStore, AFullDiskAtThePinChangeKeepsTheOldFile) {
  const std::string disk = m_folder / "disk";
  std::filesystem::create_directory(disk);
  ASSERT_EQ(mount("disk", disk.c_str(), "tmpfs", 0, "size=64k"), 0);
  Fill(disk);
  ASSERT_EQ(LogIn(kPin), 0u);  // makes the counter
  {
    std::ofstream filler(disk + "/.filler");
    const std::string block(1024, 'x');
    while (filler << block << std::flush) {
    }
  }
  const Bytes before = keymaker::ReadFile(m_path);
  EXPECT_EQ(ChangePin(kPin, kNewPin), 0xE0000013u);
  EXPECT_EQ(keymaker::ReadFile(m_path), before);
  EXPECT_FALSE(std::filesystem::exists(disk + "/.key.p12.new"));
  EXPECT_EQ(LogIn(kPin), 0u);
  std::filesystem::remove(disk + "/.filler");
  EXPECT_EQ(ChangePin(kPin, kNewPin), 0u);
  m_backend.reset();
  umount(disk.c_str());
}

TEST_F(KeyStore, AReadOnlyStoreListsButAllowsNoTry) {
  const std::string disk = m_folder / "disk";
  std::filesystem::create_directory(disk);
  ASSERT_EQ(mount("disk", disk.c_str(), "tmpfs", 0, "size=1m"), 0);
  Fill(disk);
  ASSERT_EQ(mount("disk", disk.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, "size=1m"), 0);
  EXPECT_EQ(LogIn(kPin), 0xE0000013u);
  EXPECT_EQ(TriesLeft(), 10u);
  std::vector<velcrypto::IdentityPtr> identities;
  std::vector<velcrypto::Skipped> skipped;
  EXPECT_TRUE(m_backend->List(&identities, &skipped).ok());
  EXPECT_EQ(identities.size(), 1u);
  umount(disk.c_str());
}

TEST_F(KeyStore, ThreadsSignAndListAtOnce) {
  ASSERT_EQ(LogIn(kPin), 0u);
  const Bytes digest(32, 7);
  std::vector<std::thread> threads;
  std::atomic<int> failures{0};
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < 20; ++round) {
        Bytes signature;
        std::vector<velcrypto::IdentityPtr> identities;
        std::vector<velcrypto::Skipped> skipped;
        if (i % 2 == 0 && !m_backend->SignDigest(*m_identity, nullptr, digest, &signature).ok()) {
          ++failures;
        }
        if (i % 2 == 1 && !m_backend->List(&identities, &skipped).ok()) ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
}

TEST(KeyStoreFolder, IsTheConfiguredOneElseThatOfTheEnvironmentElseTheUsers) {
  setenv("VEL_KEYSTORE", "/from/variable", 1);
  setenv("XDG_DATA_HOME", "/data", 1);
  setenv("HOME", "/home/zs", 1);
  EXPECT_EQ(velcrypto::KeyStoreFolder("/configured"), "/configured");
  EXPECT_EQ(velcrypto::KeyStoreFolder(""), "/from/variable");
  setenv("VEL_KEYSTORE", "", 1);
  EXPECT_EQ(velcrypto::KeyStoreFolder(""), "/data/vel/keystore");
  setenv("XDG_DATA_HOME", "relative", 1);
  EXPECT_EQ(velcrypto::KeyStoreFolder(""), "/home/zs/.local/share/vel/keystore");
  unsetenv("XDG_DATA_HOME");
  EXPECT_EQ(velcrypto::KeyStoreFolder(""), "/home/zs/.local/share/vel/keystore");
}
