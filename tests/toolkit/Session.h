#pragma once
// A toolkit object with a session on the fake device library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <clocale>
#include <functional>
#include <string>

#include "FakeDevice.h"
#include "VELClientTKImp.h"

// "bGlic2tmLnNv" is base64 of "libskf.so".
inline const char kKeyList[] =
    "<authinfo><liblist><lib type=\"SKF\" version=\"0x10\" dllname=\"bGlic2tmLnNv\">"
    "<algid val=\"SHA256\" sm2_hashalg=\"SM3\"/></lib></liblist></authinfo>";

// How the record shows that key list and the three filters of signing certificates.
inline const char kAddKeys[] = "AddKeyEx(101:libskf.so:4:6, 1)";
inline const char kSigningFilters[] = "6=4 5=1 8=2";

class Session : public testing::Test {
 protected:
  void SetUp() override {
    setlocale(LC_ALL, "C.UTF-8");
    Fake() = FakeDevice();
    ASSERT_TRUE(m_toolkit.Initialize(kKeyList));
    Fake().TakeCalls();
  }

  void TearDown() override {
    EXPECT_TRUE(m_toolkit.Finalize());
    EXPECT_EQ(Fake().liveObjects, 0);
    EXPECT_EQ(Fake().unloads, Fake().loads);
  }

  // Goes on with the variant of the device library that is named for its fault.
  void SwitchTo(const std::string& variant) {
    m_toolkit.m_soCallQueue = nullptr;
    ASSERT_EQ(chdir(FAKES), 0);
    const std::string path = variant + "/libVELCrypto64.so";
    ASSERT_EQ(m_toolkit.m_pVelUsbKey->LoadDll(std::wstring(path.begin(), path.end()).c_str()), 0u);
  }

  // Lists and chooses the certificate by its serial number.
  void Choose(const FakeCert& cert) {
    Fake().certs = {cert};
    ASSERT_EQ(m_toolkit.SetCert(cert.serial.c_str()), 1u);
    Fake().TakeCalls();
  }

  CVELClientTKImp m_toolkit;
};

// A toolkit object that was never initialised.
class NoSession : public testing::Test {
 protected:
  void SetUp() override { setlocale(LC_ALL, "C.UTF-8"); }
  CVELClientTKImp m_toolkit;
};

// Runs the code in a child process, in which nothing of this process's first use has happened, and
// tells whether all of its expectations held.
bool HoldsInFreshProcess(const std::function<void()>& code);

// The size of the log file after everything that was logged so far has been written. Only in the
// sandbox.
size_t LogSizeOnceWritten();
