// The road of a signature whose PIN the user is asked for, through the exported functions.
#include <gmock/gmock.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>

#include "Identities.h"
#include "PinentryScript.h"
#include "Program.h"
#include "Traces.h"
#include "vctk.h"

using ::testing::HasSubstr;

namespace {

const char kKeyList[] =
    "<authinfo><liblist><lib type=\"CSP\" version=\"1\">"
    "<algid val=\"SHA1\" sm2_hashalg=\"SM3\"/></lib></liblist></authinfo>";
const char kContent[] = "I agree.";

class PinDialog : public ::testing::TestWithParam<bool> {
 protected:
  PinDialog() {
    PutInto(m_folder.File("keystore"), Key());
    setenv("VEL_KEYSTORE", m_folder.File("keystore").c_str(), 1);
    m_handle = VCTK_Initialize(kKeyList);
  }
  ~PinDialog() override { VCTK_Finalize(m_handle); }
  void SetUp() override {
    ASSERT_NE(m_handle, nullptr);
    ASSERT_EQ(VCTK_SetChooseSingleCert(m_handle, 1), 0);
    m_script.Play({std::string("GETPIN pin ") + Identities::kPin});
  }

  static const Identity& Key() {
    return GetParam() ? SharedIdentities().Sm2() : SharedIdentities().Rsa();
  }

  using Getter = int (*)(HANDLE, char*, int*);
  std::string Get(Getter getter) const {
    int length = 0;
    EXPECT_EQ(getter(m_handle, nullptr, &length), 0);
    std::string text(static_cast<size_t>(length), '\0');
    EXPECT_EQ(getter(m_handle, &text[0], &length), 0);
    text.resize(static_cast<size_t>(length));
    return text;
  }

  void ExpectVerified(const std::string& kind, const std::string& base64) const {
    WriteText(m_folder.File("signature"), OutputOf({"openssl", "base64", "-d", "-A"}, base64));
    WriteText(m_folder.File("content"), kContent);
    EXPECT_NO_THROW(
        OutputOf({VERIFY_SCRIPT, kind, m_folder.File("signature"), m_folder.File("content"),
                  Key().certificate, SharedIdentities().Authority()}));
  }

  size_t Dialogs() const { return m_script.Told("PID").size(); }

  TemporaryFolder m_folder;
  PinentryScript m_script{m_folder.Path()};
  HANDLE m_handle = nullptr;
};

INSTANTIATE_TEST_SUITE_P(Keys, PinDialog, ::testing::Bool(),
                         [](const auto& each) { return std::string(each.param ? "Sm2" : "Rsa"); });

}  // namespace

TEST_P(PinDialog, ServesEveryWayToSign) {
  ASSERT_EQ(VCTK_P1Sign(m_handle, kContent, 0), 0);
  ExpectVerified("p1", Get(VCTK_GetP1SignResult));
  ASSERT_EQ(VCTK_P7Sign(m_handle, kContent, 0, 0, 1), 0);
  ExpectVerified("p7", Get(VCTK_GetP7SignResult));
  ASSERT_EQ(VCTK_P7Sign(m_handle, kContent, 0, 1, 1), 0);
  ExpectVerified("detached", Get(VCTK_GetP7SignResult));
  ASSERT_EQ(VCTK_P7SignFromP1(m_handle, kContent, 0, 0), 0);
  ExpectVerified("p7", Get(VCTK_GetP7SignFromP1Result));
  ASSERT_EQ(VCTK_P7SignStrEx(m_handle, kContent, 0, 0, 1), 0);
  ExpectVerified("p7", Get(VCTK_GetP7SignResult));
  EXPECT_EQ(Dialogs(), 1u) << "the session knows the key from the first one on";
}

TEST_P(PinDialog, AnUnattendedSignatureWithoutAPinAsks) {
  ASSERT_EQ(VCTK_P1SignWithPin(m_handle, Key().serial.c_str(), "", kContent, 0), 0);
  ExpectVerified("p1", nlohmann::json::parse(Get(VCTK_GetP1SignResultWithPin))["signdata"]);
  EXPECT_EQ(Dialogs(), 1u);
}

TEST_P(PinDialog, AnotherSessionAsksAnew) {
  ASSERT_EQ(VCTK_P1Sign(m_handle, kContent, 0), 0);
  VCTK_Finalize(m_handle);
  m_handle = VCTK_Initialize(kKeyList);
  ASSERT_EQ(VCTK_SetChooseSingleCert(m_handle, 1), 0);
  ASSERT_EQ(VCTK_P1Sign(m_handle, kContent, 0), 0);
  EXPECT_EQ(Dialogs(), 2u);
}

TEST_P(PinDialog, ForcedDialogsComeWithEachSignature) {
  ASSERT_EQ(VCTK_SetForcePinDialog(m_handle, 1), 0);
  ASSERT_EQ(VCTK_P1Sign(m_handle, kContent, 0), 0);
  ASSERT_EQ(VCTK_P7Sign(m_handle, kContent, 0, 0, 1), 0);
  EXPECT_EQ(Dialogs(), 2u);
}

TEST_P(PinDialog, FailuresKeepTheirCodesAndTexts) {
  m_script.Play({"GETPIN err 83886179 cancelled"});
  EXPECT_EQ(static_cast<unsigned>(VCTK_P1Sign(m_handle, kContent, 0)), 0xE0000002u);
  EXPECT_EQ(Get(VCTK_GetLastErrorMessage), "用户取消操作");
  m_script.Play({"GETPIN err 83886142 timeout"});
  EXPECT_EQ(static_cast<unsigned>(VCTK_P7Sign(m_handle, kContent, 0, 0, 1)), 0xE0000016u);
  EXPECT_EQ(Get(VCTK_GetLastErrorMessage), "服务超时");
  m_script.Play({"GETPIN err 83918950 no terminal"});
  EXPECT_EQ(static_cast<unsigned>(VCTK_P7SignFromP1(m_handle, kContent, 0, 0)), 0xE000005Au);
  m_script.Play(std::vector<std::string>(10, "GETPIN pin wrong"));
  EXPECT_EQ(static_cast<unsigned>(VCTK_P1Sign(m_handle, kContent, 0)), 0xE0000057u);
}

// The host forks from one thread while another's dialog is open.
TEST_P(PinDialog, AForkMeanwhileDisturbsNeitherProcess) {
  m_script.Play({"GETPIN create " + m_folder.File("asked"), "GETPIN await " + m_folder.File("go"),
                 std::string("GETPIN pin ") + Identities::kPin});
  int code = -1;
  std::thread asking([&] { code = VCTK_P1Sign(m_handle, kContent, 0); });
  while (!std::filesystem::exists(m_folder.File("asked"))) usleep(2000);
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
#ifdef __SANITIZE_ADDRESS__  // a fork may leave its heap locked
    _exit(0);
#else
    const HANDLE own = VCTK_Initialize(kKeyList);
    _exit(VCTK_P1SignWithPin(own, Key().serial.c_str(), Identities::kPin, kContent, 0) == 0 ? 0
                                                                                            : 1);
#endif
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0) << "the child has nothing of the dialog to wait for";
  WriteText(m_folder.File("go"), "");
  asking.join();
  EXPECT_EQ(code, 0);
  ExpectVerified("p1", Get(VCTK_GetP1SignResult));
  EXPECT_EQ(Dialogs(), 1u);
}
