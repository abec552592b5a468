// Hosts that give rubbish, and hosts that go on for long. In the sandbox: signing is logged.
#include <malloc.h>
#include <stdint.h>
#include <unistd.h>

#include <fstream>
#include <new>
#include <stdexcept>

#include "Host.h"
#include "Traces.h"

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const bool kSanitized = true;
#else
const bool kSanitized = false;
#endif

using BadInput = Host;

TEST_F(BadInput, KeyListsOfAllSortsGiveNullOrASession) {
  const std::string good = kHostKeyList;
  for (size_t cut = 0; cut < good.size(); ++cut) {
    EXPECT_EQ(VCTK_Initialize(good.substr(0, cut).c_str()), nullptr) << cut;
  }
  for (size_t at = 0; at < good.size(); ++at) {
    for (const char byte : {'<', '>', '"', '\xFF', '&', '/'}) {
      std::string spoilt = good;
      spoilt[at] = byte;
      const HANDLE handle = VCTK_Initialize(spoilt.c_str());
      EXPECT_EQ(VCTK_Finalize(handle), handle == nullptr ? -1 : 0);
    }
  }
}

TEST_F(BadInput, DeeplyNestedAndHugeKeyListsAreReadOrRefused) {
  std::string deep = "<authinfo><liblist>";
  for (int i = 0; i < 20000; ++i) deep += "<lib>";
  EXPECT_EQ(VCTK_Initialize(deep.c_str()), nullptr);
  std::string huge = "<authinfo><liblist><lib dllname=\"" + std::string(4 << 20, 'A') + "\"/>" +
                     "</liblist></authinfo>";
  const HANDLE handle = VCTK_Initialize(huge.c_str());
  if (handle != nullptr) VCTK_Finalize(handle);
}

TEST_F(BadInput, InvalidUtf8IsNoText) {
  const char* const invalid = "\xC3\x28\xA0";
  EXPECT_EQ(VCTK_AddFilter(m_handle, 1, invalid), Code(0xE0000003));
  EXPECT_EQ(VCTK_SetDigestAlg(m_handle, invalid), Code(0xE0000003));
  EXPECT_EQ(VCTK_P1Sign(m_handle, invalid, 0), Code(0xE000000B));
  EXPECT_EQ(VCTK_P7Sign(m_handle, invalid, 1, 0, 0), Code(0xE000000B));
  EXPECT_EQ(VCTK_P1SignWithPin(m_handle, invalid, "1", "abc", 0), Code(0xE000000B));
  EXPECT_EQ(VCTK_SetCert(m_handle, invalid), Code(0xE0000061));
  EXPECT_EQ(VCTK_SetPinCode(m_handle, invalid), 1);
}

TEST_F(BadInput, LengthsBelowZeroAreTooSmall) {
  ASSERT_EQ(VCTK_P1Sign(m_handle, "abc", 0), 0);
  char text[64] = "#";
  for (const int given : {0, -1, -2147483647 - 1}) {
    int length = given;
    EXPECT_EQ(VCTK_GetP1SignResult(m_handle, text, &length), 4);
    EXPECT_EQ(length, 17);
    length = given;
    EXPECT_EQ(VCTK_GetCertList(m_handle, "|", ";", text, &length), 4);
    length = given;
    EXPECT_EQ(VCTK_GetSignCertType(m_handle, text, &length), 4);
    length = given;
    EXPECT_EQ(VCTK_GetLastErrorMessage(m_handle, text, &length), 4);
  }
  EXPECT_STREQ(text, "#");
}

TEST_F(BadInput, OverlongPinsReachTheDeviceAndNothingElse) {
  const std::string pin(1 << 20, '9');
  Fake().codes = {
      {"Login", {0xE0000059}}, {"SetPinCode", {0xE0000059}}, {"ChangePin", {0xE0000059}}};
  Fake().recording = false;
  EXPECT_EQ(VCTK_P1SignWithPin(m_handle, "A1", pin.c_str(), "abc", 0), Code(0xE0000059));
  EXPECT_EQ(VCTK_ChangePinCode(m_handle, "A1", 2, pin.c_str(), pin.c_str()), Code(0xE0000059));
  EXPECT_EQ(VCTK_SetCert(m_handle, "A1"), 1);
  EXPECT_EQ(VCTK_SetPinCode(m_handle, pin.c_str()), 1);
  EXPECT_EQ(VCTK_P7SignStrEx(m_handle, "abc", 0, 0, 0), Code(0xE0000059));
}

TEST_F(BadInput, LargeDataIsSignedWhole) {
  const std::string data(1 << 20, 'x');
  Fake().recording = false;
  EXPECT_EQ(VCTK_P1Sign(m_handle, data.c_str(), 0), 0);
  EXPECT_EQ(VCTK_P1SignWithPin(m_handle, "A1", "1", data.c_str(), 1), 0);
  EXPECT_EQ(VCTK_P7SignFromP1(m_handle, data.c_str(), 1, 0), 0);
}

// A device library may not throw; hosts in C do not outlive one that does.
TEST_F(BadInput, ExceptionsOfTheDeviceLibraryBecomeCodes) {
  const auto outOfMemory = [] { throw std::bad_alloc(); };
  const auto broken = [] { throw std::runtime_error("broken"); };
  Fake().onCall = outOfMemory;
  EXPECT_EQ(VCTK_P1Sign(m_handle, "abc", 0), Code(0xE0000005));
  EXPECT_EQ(VCTK_GetLastError(m_handle), Code(0xE0000005));
  EXPECT_EQ(VCTK_SetCert(m_handle, "A1"), Code(0xE0000005));
  Fake().onCall = broken;
  EXPECT_EQ(VCTK_P1SignWithPin(m_handle, "A1", "1", "abc", 0), Code(0xE0000001));
  EXPECT_EQ(VCTK_ChangePinCode(m_handle, "A1", 2, "1", "2"), Code(0xE0000001));
  EXPECT_EQ(VCTK_CallQueueClear(m_handle), Code(0xE0000001));
  EXPECT_EQ(VCTK_GetLastError(m_handle), Code(0xE0000001));
  EXPECT_EQ(Fake().liveObjects, 1);  // the queue
  Fake().onMake = broken;
  EXPECT_EQ(VCTK_Initialize(kHostKeyList), nullptr);
  Fake().onCall = Fake().onMake = nullptr;
  EXPECT_EQ(VCTK_P1Sign(m_handle, "abc", 0), 0);
}

long ResidentKilobytes() {
  long pages = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> pages >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

void OneSession() {
  const HANDLE handle = VCTK_Initialize(kHostKeyList);
  ASSERT_NE(handle, nullptr);
  char text[4096];
  int length = sizeof(text);
  EXPECT_EQ(VCTK_AddFilter(handle, 0, "CA"), 0);
  EXPECT_EQ(VCTK_P1Sign(handle, "abc", 0), 0);
  EXPECT_EQ(VCTK_GetP1SignResult(handle, text, &length), 0);
  EXPECT_EQ(VCTK_P7SignFromP1(handle, "abc", 0, 0), 0);
  EXPECT_EQ(VCTK_GetCertList(handle, "|", ";", nullptr, &length), 0);
  EXPECT_EQ(VCTK_Finalize(handle), 0);
  EXPECT_EQ(VCTK_Initialize("<authinfo>"), nullptr);
}

TEST_F(BadInput, AThousandSessionsKeepMemoryAndDescriptorsLevel) {
  Fake().recording = false;
  VCTK_Finalize(m_handle);
  for (int i = 0; i < 50; ++i) OneSession();
  // What is freed is kept back for a while under sanitizers, and leaks are told at the exit.
  size_t limit = SIZE_MAX;
  const auto level = [&limit] { return mallinfo2().uordblks < limit; };
  const size_t files = OpenDescriptors();
  if (!kSanitized) limit = mallinfo2().uordblks + 64 * 1024;
  const long resident = ResidentKilobytes();
  for (int i = 0; i < 1000; ++i) {
    OneSession();
    if (i % 50 == 49) {
      ASSERT_TRUE(Eventually(level)) << "what waits for the log is written in time";
    }
  }
  EXPECT_TRUE(DescriptorsAreBackTo(files));
  Fake().recording = true;
  m_handle = VCTK_Initialize(kHostKeyList);
  if (!kSanitized) {
    EXPECT_LT(ResidentKilobytes(), resident + 4096);
  }
}

}  // namespace
