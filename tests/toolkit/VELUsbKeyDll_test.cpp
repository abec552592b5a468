#include "VELUsbKeyDll.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FakeDevice.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

const DWORD kLoadFailed = ~0ul;

// The folder of a variant stands in the test's library search path, so the bare file name finds it.
class Loader : public testing::Test {
 protected:
  void SetUp() override { Fake() = FakeDevice(); }

  // Loads and gives what was printed meanwhile.
  std::string PrintedByLoading(const wchar_t* name, DWORD expected) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(m_loader.LoadDll(name), expected);
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
  }

  CVELUsbKey m_loader;
};

bool IsLoaded(const char* name) {
  void* const library = dlopen(name, RTLD_LAZY | RTLD_NOLOAD);
  if (library != nullptr) dlclose(library);
  return library != nullptr;
}

TEST_F(Loader, IsEmptyAtFirst) {
  EXPECT_EQ(m_loader.m_hDllInstance, nullptr);
  EXPECT_EQ(m_loader.m_CreateUsbKeyInstance_DeviceSet, nullptr);
  EXPECT_EQ(m_loader.m_CreateUsbKeyInstance_Container, nullptr);
}

TEST_F(Loader, FieldsLieInTheirOrder) {
  const CVELUsbKey& l = m_loader;
  const void* const fields[] = {&l.m_hDllInstance,
                                &l.m_CreateUsbKeyInstance_DeviceSet,
                                &l.m_CreateUsbKeyInstance_Certificate,
                                &l.m_CreateUsbKeyInstance_AuxClass,
                                &l.m_CreateUsbKeyInstance_CertUI,
                                &l.m_CreateUsbKeyInstance_DeviceManager,
                                &l.m_CreateUsbKeyInstance_CallQueue,
                                &l.m_CreateUsbKeyInstance_SessionKey,
                                &l.m_CreateUsbKeyInstance_TokenPrivileges,
                                &l.m_CreateUsbKeyInstance_Device,
                                &l.m_CreateUsbKeyInstance_Application,
                                &l.m_CreateUsbKeyInstance_HashKey,
                                &l.m_CreateUsbKeyInstance_Container};
  const char* at = reinterpret_cast<const char*>(&m_loader);
  for (const void* field : fields) EXPECT_EQ(field, at += sizeof(void*));
  EXPECT_EQ(sizeof(CVELUsbKey), 14 * sizeof(void*));
}

TEST_F(Loader, EveryFactoryGivesNullBeforeALibraryIsOpen) {
  EXPECT_EQ(m_loader.CreateDeviceSetInstance(VEL_CRYPTO_INTERFACE_TYPE_SKF), nullptr);
  EXPECT_EQ(m_loader.CreateCertificateInstance(), nullptr);
  EXPECT_EQ(m_loader.CreateAuxClassInstance(), nullptr);
  EXPECT_EQ(m_loader.CreateCertUIInstance(), nullptr);
  EXPECT_EQ(m_loader.CreateDeviceManagerInstance(), nullptr);
  EXPECT_EQ(m_loader.CreateCallQueueInstance(), nullptr);
  EXPECT_EQ(m_loader.CreateTokenPrivilegesInstance(), nullptr);
  EXPECT_EQ(m_loader.CreateDeviceInstance(nullptr), nullptr);
  EXPECT_EQ(m_loader.CreateApplicationInstance(nullptr), nullptr);
  EXPECT_EQ(m_loader.CreateHashKeyInstance(nullptr), nullptr);
  EXPECT_EQ(m_loader.CreateContainerInstance(nullptr, nullptr, nullptr), nullptr);
}

TEST_F(Loader, ResolvesTheTwelveFactoriesAndCallsEachAsItself) {
  EXPECT_EQ(PrintedByLoading(L"libVELCrypto64.so", 0), "");
  EXPECT_NE(m_loader.m_hDllInstance, nullptr);
  EXPECT_NE(m_loader.CreateDeviceSetInstance(VEL_CRYPTO_INTERFACE_TYPE_SKF), nullptr);
  EXPECT_NE(m_loader.CreateCertificateInstance(), nullptr);
  {
    CSmartObjPtr<IVELKeyAuxClass> aux(m_loader.CreateAuxClassInstance());
    CSmartObjPtr<IVELKeyDisplayCertUIEx> dialog(m_loader.CreateCertUIInstance());
    CSmartObjPtr<IVELDeviceManager> manager(m_loader.CreateDeviceManagerInstance());
    CSmartObjPtr<IVELCallQueue> queue(m_loader.CreateCallQueueInstance());
    EXPECT_EQ(Fake().liveObjects, 4);
  }
  EXPECT_EQ(Fake().liveObjects, 0);
  EXPECT_NE(m_loader.CreateSessionKeyInstance(), nullptr);
  EXPECT_NE(m_loader.CreateTokenPrivilegesInstance(), nullptr);
  EXPECT_NE(m_loader.CreateDeviceInstance(nullptr), nullptr);
  EXPECT_NE(m_loader.CreateApplicationInstance(nullptr), nullptr);
  EXPECT_NE(m_loader.CreateHashKeyInstance(nullptr), nullptr);
  EXPECT_NE(m_loader.CreateContainerInstance(nullptr, nullptr, nullptr), nullptr);
  EXPECT_THAT(Fake().TakeCalls(),
              ElementsAre("CreateDeviceSetInstance()", "CreateCertificateInstance()",
                          "CreateAuxClassInstance()", "CreateCertUIInstance()",
                          "CreateDeviceManagerInstance()", "CreateCallQueueInstance()",
                          "CreateSessionKeyInstance()", "CreateTokenPrivilegesInstance()",
                          "CreateDeviceInstance()", "CreateApplicationInstance()",
                          "CreateHashKeyInstance()", "CreateContainerInstance()"));
}

TEST_F(Loader, LoadingTwiceClosesTheFirstLibraryFirst) {
  ASSERT_EQ(m_loader.LoadDll(L"libVELCrypto64.so"), 0u);
  int unloadsBefore = -1;
  Fake().onLoad = [&] { unloadsBefore = Fake().unloads; };
  ASSERT_EQ(m_loader.LoadDll(L"libVELCrypto64.so"), 0u);
  EXPECT_EQ(Fake().loads, 2);
  EXPECT_EQ(unloadsBefore, 1);
}

TEST_F(Loader, UnloadingClosesTheLibraryAndKeepsTheFactoryPointers) {
  ASSERT_EQ(m_loader.LoadDll(L"libVELCrypto64.so"), 0u);
  const auto factory = m_loader.m_CreateUsbKeyInstance_CallQueue;
  m_loader.UnloadDll();
  EXPECT_EQ(m_loader.m_hDllInstance, nullptr);
  EXPECT_EQ(m_loader.m_CreateUsbKeyInstance_CallQueue, factory);
  EXPECT_FALSE(IsLoaded("libVELCrypto64.so"));
  m_loader.UnloadDll();
  EXPECT_EQ(Fake().unloads, 1);
}

TEST_F(Loader, DestructionThroughTheInterfaceClosesTheLibrary) {
  CVELUsbKey* const loader = new CVELUsbKey;
  ASSERT_EQ(loader->LoadDll(L"libVELCrypto64.so"), 0u);
  IVELUsbKeyClass* const seenByTheDevice = loader;
  delete seenByTheDevice;
  EXPECT_EQ(Fake().unloads, 1);
  EXPECT_FALSE(IsLoaded("libVELCrypto64.so"));
}

TEST_F(Loader, ALibraryThatCannotBeFoundIsReportedOnStandardOutput) {
  const std::string printed = PrintedByLoading(L"libNoSuchDevice.so", kLoadFailed);
  EXPECT_THAT(printed, StartsWith("err "));
  EXPECT_THAT(printed, HasSubstr("libNoSuchDevice.so"));
  EXPECT_EQ(m_loader.m_hDllInstance, nullptr);
}

TEST_F(Loader, AFailedLoadLeavesTheEarlierLibraryClosed) {
  ASSERT_EQ(m_loader.LoadDll(L"libVELCrypto64.so"), 0u);
  PrintedByLoading(L"libNoSuchDevice.so", kLoadFailed);
  EXPECT_EQ(m_loader.m_hDllInstance, nullptr);
  EXPECT_EQ(Fake().unloads, 1);
}

// The buffer takes 128 bytes with the terminator.
TEST_F(Loader, ALongNameIsCutAndNotWrittenPastItsBuffer) {
  const std::string printed = PrintedByLoading(std::wstring(500, L'n').c_str(), kLoadFailed);
  EXPECT_THAT(printed, StartsWith("err " + std::string(127, 'n')));
  EXPECT_EQ(printed.find(std::string(128, 'n')), std::string::npos);
}

TEST_F(Loader, AStaleErrorOfTheDynamicLoaderIsNotTakenForAMissingFactory) {
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "no_such_symbol_anywhere"), nullptr);
  EXPECT_EQ(m_loader.LoadDll(L"libVELCrypto64.so"), 0u);
}

}  // namespace
