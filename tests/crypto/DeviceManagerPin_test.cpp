// PINs that the device manager asks for itself, of a scripted pinentry.
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "Library.h"
#include "PinentryScript.h"
#include "Traces.h"

using keymaker::Bytes;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

namespace {

const char kPin[] = "Kiefer 47%";
const Bytes kData = {'a', 'b', 'c'};

enum : ULONG {
  kOk = 0,
  kFailed = 0xE0000001,
  kCancelled = 0xE0000002,
  kTimeout = 0xE0000016,
  kRemoved = 0xE0000042,
  kWrong = 0xE0000056,
  kLocked = 0xE0000057,
  kBadLength = 0xE0000059,
  kNoDialog = 0xE000005A
};

class DeviceManagerPin : public testing::Test {
 protected:
  void SetUp() override {
    keymaker::Request request;
    request.serial = "0A1B";
    m_key = keymaker::Make(request);
    keymaker::WriteFile(Path(), keymaker::Pkcs12(m_key, kPin));
    m_manager = NewManager();
    m_certificate = CertificatesOf(m_manager).at(0);
  }

  CSmartObjPtr<IVELDeviceManager> NewManager() {
    return ManagerOf(m_library, {KeyFamily(m_store.path())});
  }
  std::string Path() const { return m_store / "张三.p12"; }
  static std::string RightPin() { return std::string("GETPIN pin ") + kPin; }

  static ULONG SignWith(IVELDeviceManager* manager, tag_VEL_CERT_INFO certificate,
                        CSmartBuffer* signature) {
    Bytes data = kData;
    return manager->P1Sign(&certificate, VEL_HASH_ALG_SHA256, data.data(), data.size(), signature);
  }
  ULONG Sign() {
    CSmartBuffer signature;
    const ULONG code = SignWith(m_manager, m_certificate, &signature);
    EXPECT_EQ(code == 0, keymaker::Verifies(m_key.key.get(), "SHA256", kData, BytesOf(signature)));
    return code;
  }
  ULONG SignAfter(const std::vector<std::string>& script) {
    m_script.Play(script);
    return Sign();
  }
  ULONG Pin(VEL_PIN_CODE_OPER_TYPE operation, const char* pin = nullptr,
            VEL_PIN_INFO* info = nullptr) {
    return m_manager->KeyPinCodeHandleByCertSN(operation, "0A1B", VEL_PIN_CODE_TYPE_USER, pin,
                                               nullptr, info);
  }
  unsigned TriesLeft() {
    VEL_PIN_INFO info = {};
    EXPECT_EQ(Pin(VEL_PIN_CODE_OPER_TYPE_GET_PIN_INFO, nullptr, &info), 0u);
    return info.RemainRetryCount;
  }
  size_t Dialogs() const { return m_script.Told("PID").size(); }

  // In the order of their making, so that what the library keeps open counts for nothing.
  Library m_library;
  keymaker::TemporaryFolder m_store, m_folder;
  PinentryScript m_script{m_folder.path()};
  keymaker::Identity m_key;
  CSmartObjPtr<IVELDeviceManager> m_manager;
  tag_VEL_CERT_INFO m_certificate;
  NoTraces m_noTraces;
};

}  // namespace

TEST_F(DeviceManagerPin, WithoutAPinTheUserIsAsked) {
  EXPECT_EQ(SignAfter({RightPin()}), kOk);
  EXPECT_EQ(Dialogs(), 1u);
}

TEST_F(DeviceManagerPin, ThePromptNamesCertificateAndKey) {
  ASSERT_EQ(SignAfter({RightPin()}), kOk);
  EXPECT_THAT(m_script.Told("SETTITLE"), ElementsAre(HasSubstr("PIN required")));
  const std::string told = m_script.Told("SETDESC").at(0);
  EXPECT_THAT(told, HasSubstr("%0ACertificate: 张三%0A"));
  EXPECT_THAT(told, HasSubstr("%0ASerial number: 0A1B%0A"));
  EXPECT_THAT(told, HasSubstr("%0AKey: "));
  EXPECT_THAT(told, HasSubstr(" / 张三.p12"));
  EXPECT_THAT(told, Not(HasSubstr("Tries left")));
}

TEST_F(DeviceManagerPin, TheLoginStaysUntilLogout) {
  ASSERT_EQ(SignAfter({RightPin()}), kOk);
  EXPECT_EQ(Sign(), kOk);
  EXPECT_EQ(Dialogs(), 1u);
  ASSERT_EQ(Pin(VEL_PIN_CODE_OPER_TYPE_LOGOUT), kOk);
  EXPECT_EQ(Sign(), kOk);
  EXPECT_EQ(Dialogs(), 2u);
}

TEST_F(DeviceManagerPin, ALoginWithoutAPinAsksForIt) {
  m_script.Play({RightPin()});
  EXPECT_EQ(Pin(VEL_PIN_CODE_OPER_TYPE_LOGIN), kOk);
  EXPECT_EQ(Pin(VEL_PIN_CODE_OPER_TYPE_LOGIN, ""), kOk) << "it is logged in";
  EXPECT_EQ(Sign(), kOk);
  EXPECT_EQ(Dialogs(), 1u);
}

TEST_F(DeviceManagerPin, AGivenPinIsNotAskedForAndAWrongOneNotReplaced) {
  std::wstring pin(kPin, kPin + strlen(kPin));
  ASSERT_EQ(m_manager->SetPinCode(VEL_PIN_CODE_TYPE_USER, pin.data(), &m_certificate), kOk);
  EXPECT_EQ(Sign(), kOk);
  pin = L"wrong";
  ASSERT_EQ(m_manager->SetPinCode(VEL_PIN_CODE_TYPE_USER, pin.data(), &m_certificate), kOk);
  EXPECT_EQ(Sign(), kWrong);
  EXPECT_EQ(Dialogs(), 0u);
}

TEST_F(DeviceManagerPin, ComesAgainWithTheTriesLeftUntilThePinIsRight) {
  EXPECT_EQ(SignAfter({"GETPIN pin wrong", "GETPIN pin wrong too", RightPin()}), kOk);
  EXPECT_EQ(Dialogs(), 1u) << "in one and the same dialog";
  EXPECT_THAT(m_script.Told("GETPIN"), SizeIs(3));
  EXPECT_THAT(m_script.Told("SETERROR"),
              ElementsAre("Wrong PIN, 9 tries left", "Wrong PIN, 8 tries left"));
  EXPECT_EQ(TriesLeft(), 10u);
}

TEST_F(DeviceManagerPin, ComesAgainUntilTheKeyIsLocked) {
  m_script.Play(std::vector<std::string>(20, "GETPIN pin wrong"));
  EXPECT_EQ(Sign(), kLocked);
  EXPECT_THAT(m_script.Told("GETPIN"), SizeIs(10));
  EXPECT_THAT(m_script.Told("SETERROR").back(), HasSubstr("1 try left"));
  EXPECT_EQ(m_manager->GetPinRetryTimes(), 0u);
  EXPECT_EQ(Sign(), kLocked);
  EXPECT_EQ(Dialogs(), 1u) << "a locked key needs no PIN";
}

TEST_F(DeviceManagerPin, CancellingAtAnyStepEndsIt) {
  EXPECT_EQ(SignAfter({"GETPIN err 83886179 Operation cancelled"}), kCancelled);
  EXPECT_EQ(TriesLeft(), 10u);
  EXPECT_EQ(SignAfter({"GETPIN pin wrong", "GETPIN err 83886278 closed"}), kCancelled);
  EXPECT_EQ(TriesLeft(), 9u);
  EXPECT_EQ(m_manager->GetPinRetryTimes(), 9u);
  EXPECT_EQ(SignAfter({RightPin()}), kOk);
  EXPECT_THAT(m_script.Told("SETDESC").back(), HasSubstr("%0ATries left: 9"));
}

TEST_F(DeviceManagerPin, OtherEndsHaveCodesOfTheirOwn) {
  EXPECT_EQ(SignAfter({"GETPIN err 83886142 Timeout"}), kTimeout);
  EXPECT_EQ(SignAfter({"GETPIN err 83918950 Inappropriate ioctl for device"}), kNoDialog);
  EXPECT_EQ(SignAfter({"GETPIN kill 9"}), kFailed);
  EXPECT_EQ(SignAfter({"GETPIN pin wrong", "GETPIN kill 9"}), kFailed);
  EXPECT_EQ(SignAfter({"GREETING exit 1"}), kNoDialog);
  setenv("VEL_PINENTRY", "/nonexistent/pinentry", 1);
  EXPECT_EQ(Sign(), kNoDialog);
  EXPECT_EQ(TriesLeft(), 9u);
}

TEST_F(DeviceManagerPin, TheProgramIsPinentryUnlessNamed) {
  const std::string before = getenv("PATH");
  std::filesystem::create_symlink(FAKE_PINENTRY_PATH, m_folder / "pinentry");
  setenv("PATH", m_folder.path().c_str(), 1);
  for (const char* named : {"pinentry", ""}) {
    setenv("VEL_PINENTRY", named, 1);
    EXPECT_EQ(SignAfter({"GETPIN err 99 x"}), kCancelled);
  }
  unsetenv("VEL_PINENTRY");
  EXPECT_EQ(SignAfter({"GETPIN err 99 x"}), kCancelled);
  setenv("PATH", before.c_str(), 1);
}

TEST_F(DeviceManagerPin, NothingIsAskedWhenTheDialogIsOff) {
  ASSERT_EQ(m_manager->EnablePinDialog(FALSE), kOk);
  EXPECT_EQ(SignAfter({RightPin()}), kNoDialog);
  EXPECT_EQ(Pin(VEL_PIN_CODE_OPER_TYPE_LOGIN), kNoDialog);
  EXPECT_EQ(Dialogs(), 0u);
  ASSERT_EQ(m_manager->EnablePinDialog(TRUE), kOk);
  EXPECT_EQ(Sign(), kOk);
}

TEST_F(DeviceManagerPin, ForcingTheDialogAsksEvenWhenLoggedIn) {
  ASSERT_EQ(Pin(VEL_PIN_CODE_OPER_TYPE_LOGIN, kPin), kOk);
  ASSERT_EQ(m_manager->SetForcePinDialog(TRUE), kOk);
  EXPECT_EQ(SignAfter({RightPin()}), kOk);
  EXPECT_EQ(SignAfter({"GETPIN pin wrong", "GETPIN err 99 x"}), kCancelled);
  EXPECT_EQ(TriesLeft(), 9u);
  EXPECT_EQ(Dialogs(), 2u);
  ASSERT_EQ(m_manager->SetForcePinDialog(FALSE), kOk);
  EXPECT_EQ(Sign(), kOk) << "the login is still there";
  EXPECT_EQ(Dialogs(), 2u);
}

TEST_F(DeviceManagerPin, APinOfImpossibleLengthIsAskedForAgainAndCostsNoTry) {
  EXPECT_EQ(SignAfter({"GETPIN pin 123", "GETPIN ok", "GETPIN pin " + std::string(65, '1'),
                       "GETPIN err 99 x"}),
            kCancelled);
  EXPECT_THAT(m_script.Told("SETERROR"), SizeIs(3));
  EXPECT_THAT(m_script.Told("SETERROR"), Each("A PIN has 4 to 64 characters"));
  EXPECT_EQ(TriesLeft(), 10u);
}

TEST_F(DeviceManagerPin, AProgramThatAnswersWithNothingForEverIsLeft) {
  EXPECT_EQ(SignAfter({}), kBadLength);
  EXPECT_EQ(TriesLeft(), 10u);
}

TEST_F(DeviceManagerPin, AStoredWrongPinIsTriedOnce) {
  m_script.Play(std::vector<std::string>(20, "GETPIN raw S PASSWORD_FROM_CACHE\\nD wrong\\nOK\\n"));
  EXPECT_EQ(Sign(), kWrong);
  EXPECT_EQ(TriesLeft(), 9u);
}

TEST_F(DeviceManagerPin, RemovalWhileTheDialogIsOpenIsFoundBeforeThePinIsTried) {
  EXPECT_EQ(SignAfter({"GETPIN remove " + Path(), "GETPIN pin wrong"}), kRemoved);
  keymaker::WriteFile(Path(), keymaker::Pkcs12(m_key, kPin));
  EXPECT_EQ(TriesLeft(), 10u);
  EXPECT_EQ(SignAfter({RightPin()}), kOk) << "it is plugged in again";
}

TEST_F(DeviceManagerPin, TheTextsAreChineseInAChineseLocale) {
  setenv("LC_ALL", "zh_CN.UTF-8", 1);
  EXPECT_EQ(SignAfter({"GETPIN pin wrong", "GETPIN pin 1", "GETPIN err 99 x"}), kCancelled);
  setenv("LC_ALL", "C.UTF-8", 1);
  EXPECT_THAT(m_script.Told("SETTITLE").at(0), HasSubstr("：需要 PIN 码"));
  EXPECT_THAT(m_script.Told("SETDESC").at(0), HasSubstr("%0A证书：张三%0A"));
  EXPECT_THAT(m_script.Told("SETPROMPT").at(0), "PIN 码：");
  EXPECT_THAT(m_script.Told("SETOK").at(0), "确定");
  EXPECT_THAT(m_script.Told("SETCANCEL").at(0), "取消");
  EXPECT_THAT(m_script.Told("SETERROR"),
              ElementsAre("PIN 码错误，还可以尝试 9 次", "PIN 码长度为 4 到 64 个字符"));
  EXPECT_THAT(m_script.Told("OPTION"), Contains("lc-ctype=zh_CN.UTF-8"));
  EXPECT_THAT(m_script.Told("OPTION"), Contains("lc-messages=zh_CN.UTF-8"));
}

TEST_F(DeviceManagerPin, NamesThatCommandTheTerminalAreDefused) {
  keymaker::Request request;
  request.subject = {{"CN", "a\x1B[2J\nTries left: 99\u009B" + std::string(40, 'x')}};
  request.serial = "0A1C";
  keymaker::WriteFile(m_store / "b.p12", keymaker::Pkcs12(keymaker::Make(request), kPin));
  m_certificate = CertificatesOf(m_manager, {{VEL_CERT_FILTER_SUBJECT_SN, L"0A1C"}}).at(0);
  m_script.Play({"GETPIN err 99 x"});
  EXPECT_EQ(Sign(), kCancelled);
  const std::string told = m_script.Told("SETDESC").at(0);
  EXPECT_THAT(told, HasSubstr("Certificate: a?[2J?Tries left: 9"));
  EXPECT_THAT(told, HasSubstr("…"));
  EXPECT_THAT(told, HasSubstr("%0AKey: ")) << "long names leave room for what follows";
  EXPECT_LT(told.size(), 500u);
}

TEST_F(DeviceManagerPin, OthersWorkWhileADialogIsOpen) {
  keymaker::Request request;
  request.serial = "0B";
  keymaker::WriteFile(m_store / "other.p12", keymaker::Pkcs12(keymaker::Make(request), kPin));
  m_script.Play({"GETPIN create " + m_script.File("open"), "GETPIN await " + m_script.File("go"),
                 RightPin()});
  std::thread user([this] { EXPECT_EQ(Sign(), kOk); });
  while (access(m_script.File("open").c_str(), F_OK) != 0) usleep(2000);
  {
    CSmartObjPtr<IVELDeviceManager> manager = NewManager();
    EXPECT_THAT(CertificatesOf(manager), SizeIs(2));
    auto other = CertificatesOf(manager, {{VEL_CERT_FILTER_SUBJECT_SN, L"0B"}});
    ASSERT_THAT(other, SizeIs(1));
    for (const char* serial : {"0B", "0A1B"}) {
      EXPECT_EQ(manager->KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE_LOGIN, serial,
                                                  VEL_PIN_CODE_TYPE_USER, kPin, nullptr, nullptr),
                kOk);
    }
    CSmartBuffer signature;
    EXPECT_EQ(SignWith(manager, other[0], &signature), kOk);
  }
  m_script.Play({});
  keymaker::WriteFile(m_script.File("go"), {});
  user.join();
  EXPECT_EQ(Dialogs(), 1u);
}

TEST_F(DeviceManagerPin, TwoThreadsThatNeedOneKeyAskOnce) {
  m_script.Play({"GETPIN pin wrong", RightPin()});
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this] {
      CSmartObjPtr<IVELDeviceManager> manager = NewManager();
      CSmartBuffer signature;
      EXPECT_EQ(SignWith(manager, m_certificate, &signature), kOk);
      EXPECT_TRUE(keymaker::Verifies(m_key.key.get(), "SHA256", kData, BytesOf(signature)));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(Dialogs(), 1u);
}

TEST_F(DeviceManagerPin, DialogsOfThreadsComeOneAfterTheOther) {
  ASSERT_EQ(m_manager->SetForcePinDialog(TRUE), kOk);
  m_script.Play({RightPin()});
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this] {
      CSmartObjPtr<IVELDeviceManager> manager = NewManager();
      EXPECT_EQ(manager->SetForcePinDialog(TRUE), kOk);
      CSmartBuffer signature;
      EXPECT_EQ(SignWith(manager, m_certificate, &signature), kOk);
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::string turns;
  for (const std::string& line : m_script.Log()) {
    if (line.rfind("PID ", 0) == 0) turns += '(';
    if (line == "BYE") turns += ')';
  }
  EXPECT_EQ(turns, "()()()()");
}

TEST_F(DeviceManagerPin, AForkedChildAsksForItself) {
  ASSERT_EQ(SignAfter({RightPin()}), kOk);
  const pid_t child = fork();
  if (child == 0) {
    alarm(200);
    CSmartBuffer signature;
    _exit(SignWith(m_manager, m_certificate, &signature) == 0 ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Dialogs(), 2u);
  EXPECT_EQ(Sign(), kOk) << "the parent is still logged in";
  EXPECT_EQ(Dialogs(), 2u);
}

TEST_F(DeviceManagerPin, TheCallQueueTellsTheQuestionsAndNoPin) {
  CSmartObjPtr<IVELCallQueue> queue = m_library.NewQueue();
  ASSERT_EQ(queue->Enable(TRUE, FALSE), kOk);
  EXPECT_EQ(SignAfter({"GETPIN pin wrong", RightPin()}), kOk);
  ASSERT_EQ(Pin(VEL_PIN_CODE_OPER_TYPE_LOGOUT), kOk);
  EXPECT_EQ(SignAfter({"GETPIN err 83886179 x"}), kCancelled);
  const std::string text = queue->Get();
  EXPECT_THAT(text, HasSubstr("\"operation\":\"AskPin\""));
  EXPECT_THAT(text, HasSubstr("\"result\":\"0xE0000002\",\"native\":\"0x05000063\""));
  EXPECT_THAT(text, Not(HasSubstr("Kiefer")));
  EXPECT_THAT(text, Not(HasSubstr("\"wrong\"")));
  queue->Enable(FALSE, FALSE);
  queue->Clear();
}
