// The loader with libraries that lack something. The variant is chosen by the folder.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "FakeDevice.h"
#include "VELUsbKeyDll.h"

namespace {

const DWORD kLoadFailed = ~0ul;

// The bare name is what the toolkit uses; with a "/" the loader opens the path, which lets one
// program see several variants.
class FaultyLibrary : public testing::Test {
 protected:
  void SetUp() override {
    Fake() = FakeDevice();
    ASSERT_EQ(chdir(FAKES), 0);
  }

  CVELUsbKey m_loader;
};

TEST_F(FaultyLibrary, WithoutTheLastFactoryTheFirstElevenStayUsable) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(m_loader.LoadDll(L"lacks_container_factory/libVELCrypto64.so"), kLoadFailed);
  fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_NE(m_loader.m_hDllInstance, nullptr);
  EXPECT_EQ(Fake().unloads, 0);
  EXPECT_NE(m_loader.CreateDeviceSetInstance(VEL_CRYPTO_INTERFACE_TYPE_CSP), nullptr);
  EXPECT_NE(m_loader.CreateHashKeyInstance(nullptr), nullptr);
  EXPECT_EQ(m_loader.CreateContainerInstance(nullptr, nullptr, nullptr), nullptr);
}

TEST_F(FaultyLibrary, StopsAtTheFirstMissingFactory) {
  EXPECT_EQ(m_loader.LoadDll(L"lacks_device_set_factory/libVELCrypto64.so"), kLoadFailed);
  EXPECT_NE(m_loader.m_hDllInstance, nullptr);
  EXPECT_EQ(m_loader.CreateDeviceSetInstance(VEL_CRYPTO_INTERFACE_TYPE_CSP), nullptr);
  EXPECT_EQ(m_loader.CreateCertificateInstance(), nullptr);
  EXPECT_EQ(m_loader.CreateContainerInstance(nullptr, nullptr, nullptr), nullptr);
}

TEST_F(FaultyLibrary, WhatIsNoLibraryIsReportedAndNothingStaysOpen) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(m_loader.LoadDll(L"cannot_be_loaded/libVELCrypto64.so"), kLoadFailed);
  fflush(stdout);
  EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::StartsWith("err "));
  EXPECT_EQ(m_loader.m_hDllInstance, nullptr);
}

// dlsym finds nothing in the second library, so the pointer of the first one must not survive.
TEST_F(FaultyLibrary, AFactoryOfAnEarlierLibraryIsNotLeftInPlaceOfAMissingOne) {
  ASSERT_EQ(m_loader.LoadDll(L"complete/libVELCrypto64.so"), 0u);
  ASSERT_EQ(m_loader.LoadDll(L"lacks_container_factory/libVELCrypto64.so"), kLoadFailed);
  EXPECT_EQ(m_loader.CreateContainerInstance(nullptr, nullptr, nullptr), nullptr);
}

TEST_F(FaultyLibrary, AFactoryThatGivesNothingGivesNull) {
  ASSERT_EQ(m_loader.LoadDll(L"gives_no_call_queue/libVELCrypto64.so"), 0u);
  EXPECT_EQ(m_loader.CreateCallQueueInstance(), nullptr);
}

}  // namespace
