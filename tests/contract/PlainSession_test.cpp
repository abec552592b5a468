// A host's session on the device in plain C: everything that crosses the boundary on the road of
// the signatures, as the device saw it. In the sandbox: signing with a PIN is logged.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <clocale>
#include <string>

#include "vctk.h"

namespace {

// "bGlicGxhaW4uc28=" is base64 of "libplain.so", "VklE" of "VID".
const char kKeyList[] =
    "<authinfo><liblist><lib type=\"SKF\" version=\"0x20\" dllname=\"bGlicGxhaW4uc28=\">"
    "<algid val=\"SHA256\" sm2_hashalg=\"SM3\"/><pvid enable=\"1\" val=\"VklE\"/></lib>"
    "</liblist></authinfo>";

// The lines that every operation begins with.
const char kPrepared[] =
    "AddKeyEx 0x10000 101 libplain.so 32 0 4 6 1 1 VID\n"
    "AddKeyEx of 1, 1\n"
    "Initialize: the factory's third slot makes the conversions\n"
    "the conversions is destroyed\n"
    "Initialize: the factory's twelfth slot makes 0x102030\n";

class PlainSession : public testing::Test {
 protected:
  void SetUp() override {
    setlocale(LC_ALL, "C.UTF-8");
    m_handle = VCTK_Initialize(kKeyList);
    ASSERT_NE(m_handle, nullptr);
    m_device = dlopen("libVELCrypto64.so", RTLD_LAZY | RTLD_NOLOAD);
    ASSERT_NE(m_device, nullptr);
    m_transcript = reinterpret_cast<const char* (*)()>(dlsym(m_device, "PlainTranscript"));
    ASSERT_NE(m_transcript, nullptr);
    m_transcript();
  }
  void TearDown() override {
    EXPECT_EQ(VCTK_Finalize(m_handle), 0);
    EXPECT_STREQ(m_transcript(), "the queue is destroyed\n");
    dlclose(m_device);
  }

  std::string ResultOf(int (*read)(HANDLE, char*, int*)) {
    char text[512] = {};
    int length = sizeof(text);
    EXPECT_EQ(read(m_handle, text, &length), 0);
    return text;
  }

  HANDLE m_handle = nullptr;
  void* m_device = nullptr;
  const char* (*m_transcript)() = nullptr;
};

TEST_F(PlainSession, ListsCertificates) {
  int length = 0;
  EXPECT_EQ(VCTK_AddFilter(m_handle, 0, "CN=根"), 0);
  EXPECT_EQ(VCTK_GetCertList(m_handle, "|", ";", nullptr, &length), 0);
  char text[64] = {};
  EXPECT_EQ(VCTK_GetCertList(m_handle, "|", ";", text, &length), 0);
  EXPECT_STREQ(text, "CN=张三,O=Plain;00C0FFEE");
  EXPECT_EQ(m_transcript(), std::string(kPrepared) +
                                "GetCertList 0=CN=根\nGetCertList 6=4\nGetCertList 5=1\n"
                                "GetCertList 8=2\nthe manager is destroyed\n");
}

TEST_F(PlainSession, ChecksThatACertificateExists) {
  int exists = 0;
  EXPECT_EQ(VCTK_CheckCertIsExist(m_handle, "00C0FFEE", &exists), 0);
  EXPECT_EQ(exists, 1);
  EXPECT_EQ(m_transcript(), "SetKeyCheckTime 1\n" + std::string(kPrepared) +
                                "GetCertList 1=00C0FFEE\nthe manager is destroyed\n");
}

TEST_F(PlainSession, SignsWithTheDialog) {
  EXPECT_EQ(VCTK_SetChooseSingleCert(m_handle, 1), 0);
  EXPECT_EQ(VCTK_P1Sign(m_handle, "abc", 0), 0);
  const std::string transcript = m_transcript();
  EXPECT_EQ(transcript.substr(0, transcript.find("P1Sign")),
            std::string(kPrepared) +
                "GetCertList 6=4\nGetCertList 5=1\nGetCertList 8=2\nEnableSingleCertSkipUI 1\n"
                "DisplayUI 0 1\nSetForcePinDialog 0\n");
  EXPECT_NE(transcript.find("P1Sign 00C0FFEE 6 abc\n"), std::string::npos);
  EXPECT_EQ(ResultOf(VCTK_GetP1SignResult), "UDEtQlktQw==");  // "P1-BY-C"
  EXPECT_EQ(ResultOf(VCTK_GetSignCert), "REVSLUNFUlQ=");
  EXPECT_EQ(ResultOf(VCTK_GetSignCertType), "SM2");
  EXPECT_EQ(ResultOf(VCTK_GetDigestAlg), "SM3");
}

TEST_F(PlainSession, SignsPkcs7AndWrapsPkcs1) {
  EXPECT_EQ(VCTK_P7Sign(m_handle, "abc", 0, 1, 0), 0);
  EXPECT_NE(std::string(m_transcript()).find("P7Sign 00C0FFEE 6 1 0 abc\n"), std::string::npos);
  EXPECT_EQ(ResultOf(VCTK_GetP7SignResult), "UDctQlktQw==");  // "P7-BY-C"
  EXPECT_EQ(VCTK_P7SignFromP1(m_handle, "YWJj", 1, 1), 0);
  const std::string transcript = m_transcript();
  EXPECT_NE(transcript.find("AssembleP1DataToP7Data 1 6 YWJj P1-BY-C DER-CERT size\n"
                            "AssembleP1DataToP7Data 1 6 YWJj P1-BY-C DER-CERT result\n"),
            std::string::npos)
      << transcript;
  EXPECT_EQ(ResultOf(VCTK_GetP7SignFromP1Result), "UDEtSU4tUDctQlktQw==");  // "P1-IN-P7-BY-C"
}

TEST_F(PlainSession, SignsWithAPin) {
  EXPECT_EQ(VCTK_P1SignWithPin(m_handle, "00C0FFEE", "123456", "abc", 0), 0);
  EXPECT_EQ(m_transcript(), std::string(kPrepared) +
                                "EnablePinStatusCheck 0\n"
                                "KeyPinCodeHandleByCertSN 1 00C0FFEE 2 123456 - info\n"
                                "P1Sign 00C0FFEE 6 abc\n"
                                "KeyPinCodeHandleByCertSN 2 00C0FFEE 2 - - info\n"
                                "the manager is destroyed\n");
}

TEST_F(PlainSession, SignsWithAGivenPinAndAChosenCertificate) {
  EXPECT_EQ(VCTK_SetCert(m_handle, "00C0FFEE"), 1);
  EXPECT_EQ(VCTK_SetPinCode(m_handle, "密码"), 1);
  m_transcript();
  EXPECT_EQ(VCTK_P7SignStrEx(m_handle, "abc", 0, 0, 1), 0);
  EXPECT_EQ(m_transcript(), std::string(kPrepared) +
                                "SetPinCode 2 密码 00C0FFEE\nP7Sign 00C0FFEE 6 0 1 abc\n"
                                "SetPinCode 2  00C0FFEE\nthe manager is destroyed\n");
}

TEST_F(PlainSession, ChangesAPin) {
  EXPECT_EQ(VCTK_ChangePinCode(m_handle, "00C0FFEE", 1, "old", "new"), 0);
  EXPECT_EQ(m_transcript(), std::string(kPrepared) +
                                "KeyPinCodeHandleByCertSN 3 00C0FFEE 1 old new -\n"
                                "the manager is destroyed\n");
}

TEST_F(PlainSession, ReadsTheCallQueue) {
  EXPECT_EQ(VCTK_CallQueueEnable(m_handle, 1, 2), 0);
  EXPECT_EQ(VCTK_CallQueueClear(m_handle), 0);
  EXPECT_EQ(ResultOf(VCTK_CallQueueGet), "queue by C");
  EXPECT_STREQ(m_transcript(), "Enable 1 2\nClear\n");
}

}  // namespace
