#pragma once
// A host of the toolkit: a handle on the fake device library, through the exported functions alone.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clocale>
#include <string>
#include <vector>

#include "FakeDevice.h"
#include "vctk.h"

inline const char kHostKeyList[] = "<authinfo><liblist><lib type=\"CSP\"/></liblist></authinfo>";

class Host : public testing::Test {
 protected:
  void SetUp() override {
    setlocale(LC_ALL, "C.UTF-8");
    Fake() = FakeDevice();
    m_handle = VCTK_Initialize(kHostKeyList);
    ASSERT_NE(m_handle, nullptr);
    FakeCert cert;
    cert.serial = L"A1";
    Fake().certs = {cert};
    Fake().TakeCalls();
  }

  void TearDown() override {
    EXPECT_EQ(VCTK_Finalize(m_handle), 0);
    EXPECT_EQ(Fake().liveObjects, 0);
    EXPECT_EQ(Fake().unloads, Fake().loads);
  }

  // Reads a text by asking for its size first.
  template <typename Read>
  std::string TextOf(Read read) {
    int length = 0;
    EXPECT_EQ(read(m_handle, nullptr, &length), 0);
    std::vector<char> text(static_cast<size_t>(length) + 1);
    EXPECT_EQ(read(m_handle, text.data(), &length), 0);
    return text.data();
  }

  HANDLE m_handle = nullptr;
};

// The 32-bit result that a device library's code becomes.
constexpr int Code(unsigned int code) {
  return static_cast<int>(code);
}
