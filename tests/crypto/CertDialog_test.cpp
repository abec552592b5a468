// The choice of a certificate through the factories, with a scripted dialog program. The window
// itself is tested in tests/cert_dialog.
#include <errno.h>
#include <gmock/gmock.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "Library.h"
#include "Traces.h"

using Json = nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const ULONG kFailed = 0xE0000001;
const ULONG kCancelled = 0xE0000002;
const ULONG kTimeout = 0xE0000016;
const ULONG kDeviceRemoved = 0xE0000042;

class CertDialog : public testing::Test {
 protected:
  void SetUp() override {
    keymaker::Request request;
    request.serial = "0A1B";
    request.keyUsage = "digitalSignature,nonRepudiation";
    request.altName = "email:zhangsan@example.com";
    m_rsa = keymaker::Make(request);
    PlugIn("张三.p12", m_rsa);
    request = {};
    request.kind = keymaker::Kind::kSm2;
    request.serial = "C0FFEE";
    request.subject = {{"C", "CN"}, {"CN", "李四"}};
    PlugIn("李四.p12", keymaker::Make(request));
    m_manager = ManagerOf(m_library, {KeyFamily(m_store.path())});
    m_certificates = List();
    ASSERT_EQ(m_certificates.GetCount(), 2);
    m_dialog = m_library.NewDialog();
    m_queue = m_library.NewQueue();
    m_queue->Enable(TRUE, FALSE);
    m_queue->Clear();
    setenv("VEL_CERT_DIALOG", FAKE_CERT_DIALOG, 1);
    setenv("FAKE_DIALOG_LISTS", (m_files / "lists").c_str(), 1);
    m_descriptors = OpenDescriptors();
  }

  void TearDown() override {
    signal(SIGCHLD, SIG_DFL);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a dialog is left";
    EXPECT_TRUE(DescriptorsAreBackTo(m_descriptors));
    m_queue->Enable(FALSE, FALSE);
    setenv("VEL_CERT_DIALOG", "none", 1);
    for (const char* name : {"FAKE_DIALOG", "VEL_CERT_DIALOG_TIMEOUT", "DISPLAY"}) unsetenv(name);
  }

  void PlugIn(const std::string& file, const keymaker::Identity& identity) {
    keymaker::WriteFile(m_store / file, keymaker::Pkcs12(identity, "12345678"));
  }

  CSmartList<tag_VEL_CERT_INFO> List() {
    CSmartList<tag_VEL_CERT_INFO> list;
    for (const auto& certificate : CertificatesOf(m_manager)) list.AddItem(certificate);
    return list;
  }

  // Shows both certificates to a dialog that follows the script.
  ULONG Choose(const std::string& script, bool multiple = false) {
    setenv("FAKE_DIALOG", script.c_str(), 1);
    m_chosen.Clear();
    return m_dialog->DisplayUI(multiple ? TRUE : FALSE, &m_certificates, &m_chosen);
  }

  std::vector<std::wstring> Chosen() {
    std::vector<std::wstring> names;
    for (const auto& record : m_chosen.m_vecList) names.push_back(Text(record.SubjectCN));
    return names;
  }

  std::vector<Json> ShownLists() const {
    std::ifstream file(m_files / "lists");
    std::vector<Json> lists;
    for (std::string line; std::getline(file, line);) lists.push_back(Json::parse(line));
    return lists;
  }

  // Of the last DisplayUI in the call queue.
  std::string Remark() {
    std::string last;
    std::istringstream text(m_queue->Get());
    for (std::string line; std::getline(text, line);) {
      const Json object = Json::parse(line);
      if (object["operation"] == "DisplayUI") last = object.value("remark", "");
    }
    return last;
  }

  Library m_library;
  keymaker::TemporaryFolder m_store;
  keymaker::TemporaryFolder m_files;
  keymaker::Identity m_rsa;
  CSmartObjPtr<IVELDeviceManager> m_manager;
  CSmartObjPtr<IVELKeyDisplayCertUIEx> m_dialog;
  CSmartObjPtr<IVELCallQueue> m_queue;
  CSmartList<tag_VEL_CERT_INFO> m_certificates, m_chosen;
  size_t m_descriptors = 0;
};

}  // namespace

TEST_F(CertDialog, WhatIsChosenComesBack) {
  EXPECT_EQ(Choose("read ready choose=1"), 0u);
  ASSERT_EQ(m_chosen.GetCount(), 1);
  EXPECT_TRUE(m_chosen[0] == m_certificates[1]);
  EXPECT_EQ(Text(m_chosen[0].SubjectCN), L"李四");
  EXPECT_EQ(Choose("read ready choose=0"), 0u);
  EXPECT_THAT(Chosen(), ElementsAre(L"张三"));
}

TEST_F(CertDialog, TheProgramIsToldWhatPeopleChooseBy) {
  m_dialog->SetLanguage("zh_CN");
  ASSERT_EQ(Choose("read ready cancel"), kCancelled);
  const Json list = ShownLists().at(0);
  EXPECT_EQ(list["multiple"], false);
  EXPECT_EQ(list["language"], "zh_CN");
  ASSERT_EQ(list["certificates"].size(), 2u);
  const Json& first = list["certificates"][0];
  EXPECT_EQ(first["name"], "张三");
  EXPECT_EQ(first["subject"], "CN=张三,C=CN");
  EXPECT_EQ(first["issuer"], "张三");
  EXPECT_EQ(first["serial"], "0A1B");
  EXPECT_EQ(first["keyType"], "RSA 2048");
  EXPECT_EQ(first["device"], "张三.p12");
  EXPECT_EQ(first["location"], m_store.path() + " / 张三.p12");
  EXPECT_EQ(first["email"], "zhangsan@example.com");
  EXPECT_EQ(first["usage"], Json({"digitalSignature", "nonRepudiation"}));
  // Made an hour ago for a day; the clock has gone on since.
  const std::string from = first["validFrom"];
  tm parts = {};
  ASSERT_EQ(*strptime(from.c_str(), "%Y-%m-%dT%H:%M:%S", &parts), 'Z');
  EXPECT_NEAR(static_cast<double>(timegm(&parts)), static_cast<double>(time(nullptr) - 3600), 300);
  EXPECT_EQ(list["certificates"][1]["keyType"], "SM2");
  EXPECT_NE(first["id"], list["certificates"][1]["id"]);
}

TEST_F(CertDialog, NothingIsAskedWhereThereIsNothingToChoose) {
  setenv("FAKE_DIALOG", "read ready choose=0", 1);
  CSmartList<tag_VEL_CERT_INFO> none;
  EXPECT_EQ(m_dialog->DisplayUI(FALSE, &none, &m_chosen), 0u);
  EXPECT_EQ(m_chosen.GetCount(), 0);
  m_certificates.RemoveItem(1);
  m_dialog->EnableSingleCertSkipUI(TRUE);
  EXPECT_EQ(m_dialog->DisplayUI(FALSE, &m_certificates, &m_chosen), 0u);
  EXPECT_THAT(Chosen(), ElementsAre(L"张三"));
  EXPECT_TRUE(ShownLists().empty());
}

TEST_F(CertDialog, ASingleCertificateIsAskedForWithoutSkipping) {
  m_certificates.RemoveItem(1);
  EXPECT_EQ(Choose("read ready choose=0"), 0u);
  EXPECT_EQ(ShownLists().size(), 1u);
  m_dialog->EnableSingleCertSkipUI(TRUE);
  m_dialog->EnableSingleCertSkipUI(FALSE);
  EXPECT_EQ(Choose("read ready cancel"), kCancelled);
}

TEST_F(CertDialog, SeveralAreChosenOnlyWhereTheHostTakesSeveral) {
  EXPECT_EQ(Choose("read ready choose=0,1"), kFailed);
  EXPECT_EQ(m_chosen.GetCount(), 0);
  EXPECT_EQ(Choose("read ready choose=0,1", true), 0u);
  EXPECT_THAT(Chosen(), ElementsAre(L"张三", L"李四"));
}

TEST_F(CertDialog, NullListsAreRefused) {
  EXPECT_EQ(m_dialog->DisplayUI(FALSE, nullptr, &m_chosen), 0xE0000003u);
  EXPECT_EQ(m_dialog->DisplayUI(FALSE, &m_certificates, nullptr), 0xE0000003u);
  EXPECT_EQ(m_dialog->RefreshDisplayCerts(nullptr), 0xE0000003u);
}

TEST_F(CertDialog, EveryWayToEndHasItsCode) {
  struct Case {
    const char* script;
    ULONG code;
    const char* remark;
  };
  const Case cases[] = {
      {"read ready cancel", kCancelled, "cancelled by the user"},
      {"read ready cancel exit=3", kCancelled, "cancelled by the user"},
      {"read ready kill=11", kFailed, "by signal 11"},
      {"read ready kill=9", kFailed, "by signal 9"},
      {"kill=9", kFailed, "by signal 9"},
      {"read ready exit=0", kFailed, "with exit code 0"},
      {"read ready exit=69", kFailed, "with exit code 69"},
      {"exit=1", kFailed, "with exit code 1"},
      {"close-input exit=7", kFailed, "with exit code 7"},
      {"read ready close-output hang", kFailed, "by signal 15"},
      {"read ready say={\"chosen\":[]}", kFailed, "makes no sense"},
      {"read ready say={\"chosen\":7}", kFailed, "makes no sense"},
      {"read ready say={\"chosen\":[7]}", kFailed, "makes no sense"},
      {"read ready say={\"chosen\":[\"x\"]}", kFailed, "was not offered"},
      {"read ready begin={\"chosen\":[ exit=0", kFailed, "without an answer"},
      {"read ready flood hang", kFailed, "talks without end"},
      {"flood", kFailed, "talks without end"},
  };
  for (const Case& each : cases) {
    EXPECT_EQ(Choose(each.script), each.code) << each.script;
    EXPECT_THAT(Remark(), HasSubstr(each.remark)) << each.script;
    EXPECT_EQ(m_chosen.GetCount(), 0) << each.script;
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << each.script;
  }
}

TEST_F(CertDialog, AnAnswerCountsHoweverTheProgramEnds) {
  for (const char* script :
       {"read ready choose=1 kill=11", "read ready choose=1 exit=1", "read choose=1",
        "read ready choose=1 stubborn hang", "read say=noise ready say=[1] say={} choose=1"}) {
    EXPECT_EQ(Choose(script), 0u) << script;
    EXPECT_THAT(Chosen(), ElementsAre(L"李四")) << script;
  }
}

TEST_F(CertDialog, OneThatNeverAnswersIsEndedInTime) {
  setenv("VEL_CERT_DIALOG_TIMEOUT", "1", 1);
  for (const char* script : {"hang", "read ready begin={ hang", "read ready stubborn hang"}) {
    EXPECT_EQ(Choose(script), kTimeout) << script;
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << script;
  }
}

TEST_F(CertDialog, OneThatDoesNotReadALongListIsEndedInTime) {
  setenv("VEL_CERT_DIALOG_TIMEOUT", "1", 1);
  const tag_VEL_CERT_INFO record = m_certificates[0];
  for (int i = 0; i < 400; ++i) m_certificates.AddItem(record);
  EXPECT_EQ(Choose("ready hang"), kTimeout);
  EXPECT_THAT(Remark(), HasSubstr("does not read"));
}

TEST_F(CertDialog, ACertificateThatIsRemovedMeanwhileIsNotChosen) {
  std::thread remover([this] {
    while (access((m_files / "shown").c_str(), F_OK) != 0) usleep(2000);
    std::filesystem::remove(m_store / "李四.p12");
    std::ofstream(m_files / "removed") << "";
  });
  const std::string wait = "touch=" + m_files / "shown" + " await=" + m_files / "removed";
  EXPECT_EQ(Choose("read ready " + wait + " choose=1"), kDeviceRemoved);
  remover.join();
  EXPECT_EQ(m_chosen.GetCount(), 0);
  EXPECT_EQ(Choose("read ready choose=0"), 0u);
}

TEST_F(CertDialog, AnOpenDialogShowsTheNewList) {
  keymaker::Request request;
  request.subject = {{"CN", "王五"}};
  request.serial = "77";
  const keymaker::Identity third = keymaker::Make(request);
  std::thread refresher([&] {
    while (access((m_files / "shown").c_str(), F_OK) != 0) usleep(2000);
    PlugIn("王五.p12", third);
    CSmartList<tag_VEL_CERT_INFO> now = List();
    EXPECT_EQ(m_dialog->RefreshDisplayCerts(&now), 0u);
  });
  EXPECT_EQ(Choose("read ready touch=" + m_files / "shown" + " read choose=2"), 0u);
  refresher.join();
  EXPECT_THAT(Chosen(), ElementsAre(L"王五"));
  EXPECT_EQ(ShownLists().at(1)["certificates"].size(), 3u);
}

TEST_F(CertDialog, WhatLeftTheListIsNotChosen) {
  std::thread refresher([&] {
    while (access((m_files / "shown").c_str(), F_OK) != 0) usleep(2000);
    CSmartList<tag_VEL_CERT_INFO> now = m_certificates;
    now.RemoveItem(1);
    EXPECT_EQ(m_dialog->RefreshDisplayCerts(&now), 0u);
  });
  EXPECT_EQ(Choose("read ready touch=" + m_files / "shown" + " read choose-first=1"),
            kDeviceRemoved);
  refresher.join();
}

TEST_F(CertDialog, RefreshingAClosedDialogDoesNothing) {
  EXPECT_EQ(m_dialog->RefreshDisplayCerts(&m_certificates), 0u);
  EXPECT_TRUE(ShownLists().empty());
}

TEST_F(CertDialog, OtherOperationsGoOnWhileItIsOpen) {
  std::thread other([this] {
    while (access((m_files / "shown").c_str(), F_OK) != 0) usleep(2000);
    CSmartObjPtr<IVELDeviceManager> manager = ManagerOf(m_library, {KeyFamily(m_store.path())});
    EXPECT_EQ(CertificatesOf(manager).size(), 2u);
    CSmartBuffer signature;
    tag_VEL_CERT_INFO record = m_certificates[0];
    wchar_t pin[] = L"12345678";
    EXPECT_EQ(manager->SetPinCode(VEL_PIN_CODE_TYPE_USER, pin, &record), 0u);
    BYTE data[] = {1, 2, 3};
    EXPECT_EQ(manager->P1Sign(&record, VEL_HASH_ALG_SHA256, data, 3, &signature), 0u);
    std::ofstream(m_files / "signed") << "";
  });
  EXPECT_EQ(Choose("read ready touch=" + m_files / "shown" + " await=" + m_files / "signed" +
                   " choose=0"),
            0u);
  other.join();
}

TEST_F(CertDialog, SeveralMayBeOpenAtOnce) {
  setenv("FAKE_DIALOG", "read ready choose=1", 1);
  std::vector<std::thread> hosts;
  for (int i = 0; i < 4; ++i) {
    hosts.emplace_back([this] {
      CSmartObjPtr<IVELKeyDisplayCertUIEx> dialog = m_library.NewDialog();
      CSmartList<tag_VEL_CERT_INFO> offered = m_certificates;
      CSmartList<tag_VEL_CERT_INFO> chosen;
      EXPECT_EQ(dialog->DisplayUI(FALSE, &offered, &chosen), 0u);
      EXPECT_EQ(chosen.GetCount(), 1);
    });
  }
  for (std::thread& host : hosts) host.join();
}

TEST_F(CertDialog, AHostThatIgnoresItsChildrenGetsItsAnswer) {
  signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(Choose("read ready choose=1"), 0u);
  EXPECT_EQ(Choose("read ready kill=9"), kFailed);
}

TEST_F(CertDialog, DialogsCanBeTurnedOff) {
  setenv("VEL_CERT_DIALOG", "none", 1);
  setenv("DISPLAY", ":0", 1);
  EXPECT_EQ(Choose("read ready choose=1"), kCancelled);
  EXPECT_THAT(Remark(), HasSubstr("are off"));
}

namespace {

// Calls DisplayUI in a process of its own with the terminal as its controlling one; without a
// terminal when `keys` is null. The answer is the exit code: 100 + the number chosen, or the code's
// last byte.
class OnTerminal : public CertDialog {
 protected:
  void SetUp() override {
    CertDialog::SetUp();
    setenv("VEL_CERT_DIALOG", "/nonexistent", 1);
  }

  int ExitCodeOf(const std::vector<std::pair<std::string, std::string>>& exchange,
                 bool multiple = false) {
    int terminal = -1;
    const pid_t host = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (host == 0) _exit(AnswerInChild(multiple));
    m_shown.clear();
    for (const auto& [text, keys] : exchange) {
      ReadUntil(terminal, text);
      EXPECT_EQ(write(terminal, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    ReadUntil(terminal, "");
    close(terminal);
    int status = 0;
    EXPECT_EQ(waitpid(host, &status, 0), host);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  int AnswerInChild(bool multiple) {
    const ULONG code = m_dialog->DisplayUI(multiple ? TRUE : FALSE, &m_certificates, &m_chosen);
    if (code != 0) return static_cast<int>(code & 0xFF);
    int answer = 100;
    for (int i = 0; i < m_chosen.GetCount(); ++i) {
      for (int k = 0; k < m_certificates.GetCount(); ++k) {
        if (m_chosen[i] == m_certificates[k]) answer += k + 1;
      }
    }
    return answer;
  }

  // Collects what is shown; to the end of the program when the text is empty.
  void ReadUntil(int terminal, const std::string& text) {
    const size_t from = m_shown.size();
    while (text.empty() || m_shown.find(text, from) == std::string::npos) {
      char block[1024];
      const ssize_t count = read(terminal, block, sizeof(block));
      if (count <= 0) {
        EXPECT_TRUE(text.empty()) << "not shown: " << text << " but: " << m_shown;
        return;
      }
      m_shown.append(block, static_cast<size_t>(count));
    }
  }

  std::string m_shown;
};

}  // namespace

TEST_F(OnTerminal, ANumberChooses) {
  EXPECT_EQ(ExitCodeOf({{"cancel): ", "2\n"}}), 102);
  EXPECT_THAT(m_shown, HasSubstr("Choose the certificate to sign with:"));
  EXPECT_THAT(m_shown, HasSubstr("  1  张三"));
  EXPECT_THAT(m_shown, HasSubstr("RSA 2048, issued by 张三, valid until 20"));
  EXPECT_THAT(m_shown, HasSubstr("  2  李四"));
}

TEST_F(OnTerminal, SpeaksTheLanguageOfTheEnvironment) {
  setenv("LC_ALL", "zh_CN.UTF-8", 1);
  EXPECT_EQ(ExitCodeOf({{"取消）：", "1\n"}}), 101);
  EXPECT_THAT(m_shown, HasSubstr("请选择签名证书："));
  setenv("LC_ALL", "C.UTF-8", 1);
}

TEST_F(OnTerminal, AnEmptyLineOrTheEndOfInputCancels) {
  EXPECT_EQ(ExitCodeOf({{"cancel): ", "\n"}}), 2);
  EXPECT_EQ(ExitCodeOf({{"cancel): ", "\x04"}}), 2);
}

TEST_F(OnTerminal, TheInterruptKeyCancelsAndEndsNobody) {
  EXPECT_EQ(ExitCodeOf({{"cancel): ", "\x03"}}), 2);
  EXPECT_EQ(ExitCodeOf({{"cancel): ", "1\x03"}}), 2);
}

TEST_F(OnTerminal, AnythingElseIsAskedAgain) {
  EXPECT_EQ(ExitCodeOf({{"cancel): ", "0\n"},
                        {"cancel): ", "3\n"},
                        {"cancel): ", "99999999999999999999999\n"},
                        {"cancel): ", "-1\n"},
                        {"cancel): ", "x\n"},
                        {"cancel): ", "1 2\n"},
                        {"cancel): ", "1\n"}}),
            101);
  EXPECT_THAT(m_shown, HasSubstr("That is not in the list."));
}

TEST_F(OnTerminal, DetailsAreShownOnDemand) {
  EXPECT_EQ(ExitCodeOf({{"cancel): ", "?2\n"}, {"cancel): ", "\n"}}), 2);
  EXPECT_THAT(m_shown, HasSubstr("CN=李四,C=CN"));
  EXPECT_THAT(m_shown, HasSubstr("C0FFEE"));
}

TEST_F(OnTerminal, SeveralNumbersWhereTheHostTakesSeveral) {
  EXPECT_EQ(ExitCodeOf({{"cancel): ", "2, 1\n"}}, true), 103);
}

TEST_F(OnTerminal, NamesCannotCommandTheTerminal) {
  keymaker::Request request;
  request.subject = {{"CN", "evil\x1b[2Jname\xE2\x80\xAEtxet"}};
  request.serial = "66";
  PlugIn("evil.p12", keymaker::Make(request));
  m_certificates = List();
  EXPECT_EQ(ExitCodeOf({{"cancel): ", "\n"}}), 2);
  EXPECT_THAT(m_shown, HasSubstr("evil?[2Jname?txet"));
}

TEST_F(OnTerminal, NobodyAnsweringEndsInTime) {
  setenv("VEL_CERT_DIALOG_TIMEOUT", "1", 1);
  EXPECT_EQ(ExitCodeOf({{"cancel): ", ""}}), 0x16);
}

TEST_F(OnTerminal, AsksWhereTheWindowCannotBeShown) {
  setenv("VEL_CERT_DIALOG", FAKE_CERT_DIALOG, 1);
  for (const char* script : {"exit=69", "read kill=6"}) {
    setenv("FAKE_DIALOG", script, 1);
    EXPECT_EQ(ExitCodeOf({{"cancel): ", "2\n"}}), 102) << script;
  }
}

TEST_F(OnTerminal, WithoutATerminalThereIsNoWayToAsk) {
  const pid_t host = fork();
  if (host == 0) {
    setsid();
    setenv("VEL_CERT_DIALOG", FAKE_CERT_DIALOG, 1);
    setenv("FAKE_DIALOG", "exit=69", 1);
    const bool cannotBeShown = m_dialog->DisplayUI(FALSE, &m_certificates, &m_chosen) == kCancelled;
    unsetenv("VEL_CERT_DIALOG");
    _exit(cannotBeShown && m_dialog->DisplayUI(FALSE, &m_certificates, &m_chosen) == kCancelled
              ? 0
              : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(host, &status, 0), host);
  EXPECT_EQ(status, 0);
}
