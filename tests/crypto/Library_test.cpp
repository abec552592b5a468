// The library as a whole: exports, lifetime, fork, threads, and what its sources include.
#include "Library.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "Traces.h"

namespace {

const char kPin[] = "12345678";

class LibraryTest : public testing::Test {
 protected:
  void SetUp() override {
    keymaker::Request request;
    request.kind = keymaker::Kind::kSm2;
    keymaker::WriteFile(m_store / "key.p12", keymaker::Pkcs12(keymaker::Make(request), kPin));
  }
  static ULONG LogIn(IVELDeviceManager* manager) {
    return manager->KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE_LOGIN, "01",
                                             VEL_PIN_CODE_TYPE_USER, kPin, nullptr, nullptr);
  }
  static ULONG Sign(IVELDeviceManager* manager) {
    auto certificates = CertificatesOf(manager);
    if (certificates.size() != 1) return 1;
    CSmartBuffer signature;
    keymaker::Bytes data = {'x'};
    return manager->P1Sign(&certificates[0], VEL_HASH_ALG_SM3, data.data(), data.size(),
                           &signature);
  }
  // The codes of the operations that a child makes, as one byte.
  template <typename Work>
  static int InChild(Work work) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(200);
      _exit(work());
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  keymaker::TemporaryFolder m_store;
  Library m_library;
};

}  // namespace

TEST_F(LibraryTest, FactoriesHandOutObjectsWithTheCountZero) {
  const auto create = reinterpret_cast<IVELDeviceManager* (*)()>(
      m_library.Symbol("CreateUsbKeyInstance_DeviceManager"));
  IVELDeviceManager* const manager = create();
  EXPECT_EQ(manager->AddRef(), 1u);
  EXPECT_EQ(manager->AddRef(), 2u);
  EXPECT_EQ(manager->Release(), 1u);
  EXPECT_EQ(manager->Release(), 0u);
}

TEST_F(LibraryTest, InterfacesWithoutAPublishedShapeAreNotHandedOut) {
  using Factory = void* (*)();
  for (const char* name : {"SessionKey", "TokenPrivileges"}) {
    const auto create =
        reinterpret_cast<Factory>(m_library.Symbol(std::string("CreateUsbKeyInstance_") + name));
    ASSERT_NE(create, nullptr) << name;
    EXPECT_EQ(create(), nullptr) << name;
  }
  const auto device = reinterpret_cast<PCreateUsbKeyInstance_Device>(
      m_library.Symbol("CreateUsbKeyInstance_Device"));
  EXPECT_EQ(device(nullptr), nullptr);
  const auto container = reinterpret_cast<PCreateUsbKeyInstance_Container>(
      m_library.Symbol("CreateUsbKeyInstance_Container"));
  EXPECT_EQ(container(nullptr, nullptr, nullptr), nullptr);
}

TEST_F(LibraryTest, UnusedOperationsSaySoAndDoNothing) {
  auto manager = m_library.NewManager();
  EXPECT_EQ(manager->RefreshCertList(), 0xE0000008u);
  EXPECT_EQ(manager->RefreshCertList(TRUE), 0xE0000008u);
  EXPECT_EQ(manager->SetDevPinCode(nullptr), 0xE0000008u);
  EXPECT_EQ(
      manager->P7SignEx(nullptr, VEL_HASH_ALG_SM3, TRUE, TRUE, nullptr, 0, nullptr, nullptr, 0),
      0xE0000008u);
  EXPECT_EQ(manager->DeleteKeyEx(nullptr, TRUE), 0xE0000008u);
  EXPECT_EQ(m_library.NewAux()->ConvertPkcs7ToPkcs1(nullptr, 0, nullptr, nullptr), 0xE0000008u);
  const auto create = reinterpret_cast<PCreateUsbKeyInstance_DeviceSet>(
      m_library.Symbol("CreateUsbKeyInstance_DeviceSet"));
  CSmartObjPtr<IVELDeviceSet> set(create(VEL_CRYPTO_INTERFACE_TYPE_SKF));
  EXPECT_EQ(set->GetBaseType(), VEL_CRYPTO_INTERFACE_TYPE_SKF);
  EXPECT_EQ(set->Initialize(), 0xE0000008u);
}

TEST_F(LibraryTest, TheNativeCodeOfAFailureCanBeAskedFor) {
  const auto create = reinterpret_cast<PCreateUsbKeyInstance_DeviceSet>(
      m_library.Symbol("CreateUsbKeyInstance_DeviceSet"));
  CSmartObjPtr<IVELDeviceSet> set(create(VEL_CRYPTO_INTERFACE_TYPE_CSP));
  auto manager = ManagerOf(m_library, {KeyFamily("/nowhere")});
  EXPECT_EQ(LogIn(manager), 0xE0000043u);
  EXPECT_EQ(set->GetOrgErrorCode(), 2u) << "ENOENT";
}

TEST_F(LibraryTest, AForkedChildStartsAfresh) {
  auto manager = ManagerOf(m_library, {KeyFamily(m_store.path())});
  ASSERT_EQ(LogIn(manager), 0u);
  ASSERT_EQ(Sign(manager), 0u);
  EXPECT_EQ(InChild([&] {
              if (Sign(manager) != 0xE000005A) return 1;  // the parent's login is not the child's
              if (LogIn(manager) != 0) return 2;
              if (Sign(manager) != 0) return 3;
              manager.Release();
              auto own = ManagerOf(m_library, {KeyFamily(m_store.path())});
              return Sign(own) == 0 ? 0 : 4;
            }),
            0);
  EXPECT_EQ(Sign(manager), 0u) << "and the parent's lives on";
}

TEST_F(LibraryTest, AGivenPinIsNotTheChilds) {
  auto manager = ManagerOf(m_library, {KeyFamily(m_store.path())});
  tag_VEL_CERT_INFO certificate = CertificatesOf(manager)[0];
  std::wstring pin = L"12345678";
  ASSERT_EQ(manager->SetPinCode(VEL_PIN_CODE_TYPE_USER, pin.data(), &certificate), 0u);
  EXPECT_EQ(InChild([&] { return Sign(manager) == 0xE000005A ? 0 : 1; }), 0);
  VEL_PIN_INFO info = {};
  manager->KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE_GET_PIN_INFO, "01",
                                    VEL_PIN_CODE_TYPE_USER, nullptr, nullptr, &info);
  EXPECT_EQ(info.RemainRetryCount, 10) << "no try was spent on it";
  EXPECT_EQ(Sign(manager), 0u);
}

TEST_F(LibraryTest, AForkWhileOtherThreadsWorkDoesNotHangTheChild) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer's own allocator hangs in such a child";
#endif
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      auto manager = ManagerOf(m_library, {KeyFamily(m_store.path())});
      while (!stop) CertificatesOf(manager);
    });
  }
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(InChild([&] {
                auto manager = ManagerOf(m_library, {KeyFamily(m_store.path())});
                return CertificatesOf(manager).size() == 1 ? 0 : 1;
              }),
              0);
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
}

TEST_F(LibraryTest, ManagersOfSeveralThreadsWorkAtOnce) {
  auto keeper = ManagerOf(m_library, {KeyFamily(m_store.path())});
  ASSERT_EQ(LogIn(keeper), 0u);
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 10; ++round) {
        auto manager = ManagerOf(m_library, {KeyFamily(m_store.path())});
        if (Sign(manager) != 0) ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
}

TEST_F(LibraryTest, AHostMayEndWhileItsThreadsSign) {
  const std::string command =
      std::string(EXITS_WHILE_SIGNING) + " " + VELCRYPTO_PATH + " " + m_store.path() + " " + kPin;
  for (int i = 0; i < 10; ++i) {
    const int status = system(command.c_str());
    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_EQ(WEXITSTATUS(status), 0);
  }
}

TEST_F(LibraryTest, UseLeavesNoDescriptorsBehind) {
  { LogIn(ManagerOf(m_library, {KeyFamily(m_store.path())})); }
  const size_t before = OpenDescriptors();
  for (int i = 0; i < 100; ++i) {
    auto manager = ManagerOf(m_library, {KeyFamily(m_store.path())});
    ASSERT_EQ(LogIn(manager), 0u);
    ASSERT_EQ(Sign(manager), 0u);
  }
  EXPECT_TRUE(DescriptorsAreBackTo(before));
}

TEST_F(LibraryTest, ClosingAndOpeningAgainFindsTheSameLibrary) {
  {
    Library second;
    EXPECT_EQ(CertificatesOf(ManagerOf(second, {KeyFamily(m_store.path())})).size(), 1u);
  }
  EXPECT_EQ(CertificatesOf(ManagerOf(m_library, {KeyFamily(m_store.path())})).size(), 1u);
}

// Toolkit and device library are separate products that share six headers.
TEST(LibrarySources, IncludeNothingOfTheToolkitButTheContract) {
  const std::filesystem::path services = SERVICES_FOLDER;
  std::vector<std::string> contract = {"SmartBuffer.h", "SmartList.h",   "SmartObject.h",
                                       "VelString.h",   "VelKeyTypes.h", "VELUsbKeyDll.h"};
  const std::string include = "#include \"";
  size_t files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(services / "VELCrypto")) {
    if (entry.path().extension() != ".cpp" && entry.path().extension() != ".h") continue;
    ++files;
    std::ifstream source(entry.path());
    for (std::string line; std::getline(source, line);) {
      if (line.rfind(include, 0) != 0) continue;
      const std::string name = line.substr(include.size(), line.rfind('"') - include.size());
      const bool own = std::filesystem::exists(entry.path().parent_path() / name) ||
                       std::filesystem::exists(services / "VELCrypto" / name) ||
                       name == "VELInterface.h";
      EXPECT_TRUE(own || std::count(contract.begin(), contract.end(), name) == 1)
          << entry.path() << " includes " << name;
    }
  }
  EXPECT_GT(files, 30u);
}
