// Handles on threads of their own. They share the log, the patch text and the retry count of the
// messages. In the sandbox: signing with a PIN is logged.
#include <thread>

#include "Host.h"

namespace {

void SessionsOnOneThread(int number) {
  const std::string serial = "A" + std::to_string(number);
  for (int i = 0; i < 25; ++i) {
    const HANDLE handle = VCTK_Initialize(kHostKeyList);
    char text[512] = {};
    int length = sizeof(text);
    EXPECT_EQ(VCTK_P1SignWithPin(handle, serial.c_str(), "1", "abc", 0), 0);
    EXPECT_EQ(VCTK_GetP1SignResultWithPin(handle, text, &length), 0);
    EXPECT_NE(std::string(text).find("\"result\":0"), std::string::npos);
    EXPECT_EQ(VCTK_P1SignWithPin(handle, "unknown", "1", "abc", 0), Code(0xE0000061));
    memset(text, 0, sizeof(text));
    length = sizeof(text);
    EXPECT_EQ(VCTK_GetLastErrorMessage(handle, text, &length), 0);
    EXPECT_STREQ(text, "证书未发现");
    EXPECT_EQ(VCTK_Finalize(handle), 0);
  }
}

TEST(Threads, HandlesOfDifferentThreadsAreIndependent) {
  setlocale(LC_ALL, "C.UTF-8");
  Fake() = FakeDevice();
  Fake().recording = false;
  for (int i = 0; i < 4; ++i) {
    FakeCert cert;
    cert.serial = L"A" + std::to_wstring(i);
    Fake().certs.push_back(cert);
  }
  // Keeps the device library loaded, so that its initialiser runs on this thread.
  const HANDLE handle = VCTK_Initialize(kHostKeyList);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back(SessionsOnOneThread, i);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(VCTK_Finalize(handle), 0);
  EXPECT_EQ(Fake().liveObjects, 0);
  EXPECT_EQ(Fake().unloads, 1);
}

}  // namespace
