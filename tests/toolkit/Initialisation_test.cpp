// The start of a session with a device library that can be loaded.
#include <fcntl.h>

#include <cstdio>
#include <filesystem>

#include "Session.h"

namespace {

using testing::ElementsAre;
using testing::StartsWith;

class Initialisation : public NoSession {
 protected:
  void SetUp() override {
    NoSession::SetUp();
    Fake() = FakeDevice();
  }
  void TearDown() override {
    m_toolkit.Finalize();
    EXPECT_EQ(Fake().liveObjects, 0);
    EXPECT_EQ(Fake().unloads, Fake().loads);
  }
};

TEST_F(Initialisation, LoadsTheLibraryReadsTheKeysAndTakesTheQueue) {
  m_toolkit.m_LastError = 7;
  EXPECT_TRUE(m_toolkit.Initialize(kKeyList));
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
  EXPECT_EQ(Fake().loads, 1);
  EXPECT_EQ(m_toolkit.m_KeyInfoList.GetCount(), 1);
  EXPECT_TRUE(m_toolkit.m_soCallQueue != nullptr);
  EXPECT_THAT(Fake().TakeCalls(), ElementsAre("CreateCallQueueInstance()"));
}

TEST_F(Initialisation, WithAnEmptyLiblistHasNoKeys) {
  EXPECT_TRUE(m_toolkit.Initialize("<authinfo><liblist></liblist></authinfo>"));
  EXPECT_EQ(m_toolkit.m_KeyInfoList.GetCount(), 0);
}

TEST_F(Initialisation, ARefusedKeyListReleasesTheLibrary) {
  for (const char* text : {static_cast<const char*>(nullptr), "", "<authinfo>", "<a/>"}) {
    Fake() = FakeDevice();
    EXPECT_FALSE(m_toolkit.Initialize(text));
    EXPECT_EQ(m_toolkit.m_LastError, 0xE0000001u);
    EXPECT_EQ(m_toolkit.m_pVelUsbKey, nullptr);
    EXPECT_EQ(Fake().loads, 1);
    EXPECT_EQ(Fake().unloads, 1);
    EXPECT_THAT(Fake().calls, ElementsAre());
  }
}

TEST_F(Initialisation, ASecondOneReleasesTheFirstSession) {
  ASSERT_TRUE(m_toolkit.Initialize(kKeyList));
  int liveObjects = -1;
  int unloads = -1;
  Fake().onLoad = [&] {
    liveObjects = Fake().liveObjects;
    unloads = Fake().unloads;
  };
  ASSERT_TRUE(m_toolkit.Initialize(kKeyList));
  EXPECT_EQ(Fake().loads, 2);
  EXPECT_EQ(liveObjects, 0);
  EXPECT_EQ(unloads, 1);
  EXPECT_EQ(m_toolkit.m_KeyInfoList.GetCount(), 2);
}

TEST_F(Initialisation, SessionsAreIndependent) {
  CVELClientTKImp other;
  ASSERT_TRUE(m_toolkit.Initialize(kKeyList));
  ASSERT_TRUE(other.Initialize("<authinfo><liblist/></authinfo>"));
  EXPECT_EQ(other.m_KeyInfoList.GetCount(), 0);
  EXPECT_EQ(m_toolkit.m_KeyInfoList.GetCount(), 1);
  EXPECT_EQ(Fake().loads, 1);
  other.Finalize();
  EXPECT_EQ(Fake().unloads, 0);
  EXPECT_TRUE(m_toolkit.CallQueueClear());
}

// The folder of the first try stands before the complete library in the search path and goes away
// while the library in it is being loaded.
class SecondTry : public Initialisation {
 protected:
  void SetUp() override {
    Initialisation::SetUp();
    std::filesystem::copy_file(FAKES "/lacks_container_factory/libVELCrypto64.so", m_first,
                               std::filesystem::copy_options::overwrite_existing);
    Fake().onLoad = [this] { std::filesystem::remove(m_first); };
  }
  void TearDown() override {
    std::filesystem::remove(m_first);
    Initialisation::TearDown();
  }
  const std::string m_first = FAKES "/first_try/libVELCrypto64.so";
};

TEST_F(SecondTry, AfterAFailedLoadSucceeds) {
  EXPECT_TRUE(m_toolkit.Initialize(kKeyList));
  EXPECT_EQ(m_toolkit.m_LastError, 0u);
  EXPECT_EQ(Fake().loads, 2);
  EXPECT_NE(m_toolkit.m_pVelUsbKey->CreateContainerInstance(nullptr, nullptr, nullptr), nullptr);
}

}  // namespace
