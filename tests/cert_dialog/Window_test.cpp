// The window of the certificate dialog, used by keyboard and mouse on a screen of the test's own.
#include <gmock/gmock.h>
#include <locale.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <thread>

#include "CertDialog.h"
#include "KeyMaker.h"
#include "Screen.h"
#include "SmartList.h"
#include "Text.h"

using testing::ElementsAre;
using testing::HasSubstr;
using velcrypto::ChildProgram;
using Json = nlohmann::json;

namespace {

const char kEnglish[] = "Choose a Certificate";
const char kChinese[] = "选择证书";

Screen& TheScreen() {
  static Screen screen;
  return screen;
}

Json Certificate(const std::string& id, const std::string& name) {
  return {{"id", id},
          {"name", name},
          {"subject", "CN=" + name},
          {"issuer", "Example CA"},
          {"validUntil", "2099-01-01T00:00:00Z"},
          {"keyType", "RSA 2048"},
          {"device", "Token"}};
}

// The program alone, spoken to through its pipes.
class Window : public testing::Test {
 protected:
  ~Window() override { m_program.Stop(std::chrono::milliseconds(0)); }

  void Start(const std::string& display = TheScreen().Name()) {
    ASSERT_TRUE(
        m_program
            .Start(CERT_DIALOG, {}, {"DISPLAY=" + display, "LC_ALL=C.UTF-8", "QT_QPA_PLATFORM=xcb"})
            .ok());
  }

  static Json Three() {
    return {{"certificates",
             {Certificate("1", "Anna"), Certificate("2", "Boris"), Certificate("3", "张三")}},
            {"language", "en"}};
  }

  void Send(const Json& list) { SendText(list.dump() + "\n"); }
  void SendText(const std::string& text) {
    EXPECT_EQ(m_program.Write(text.data(), text.size(), Soon()), ChildProgram::Io::kDone);
  }

  // The next line that it says; null at the end.
  Json Hear() {
    for (;;) {
      const size_t end = m_heard.find('\n');
      if (end != std::string::npos) {
        const Json line = Json::parse(m_heard.substr(0, end));
        m_heard.erase(0, end + 1);
        return line;
      }
      char block[256];
      size_t count = 0;
      if (m_program.Read(block, sizeof(block), &count, Soon()) != ChildProgram::Io::kDone) {
        return nullptr;
      }
      m_heard.append(block, count);
    }
  }

  Screen::Window Open(const Json& list = Three(), const char* title = kEnglish) {
    Start();
    Send(list);
    EXPECT_EQ(Hear(), Json({{"ready", 1}}));
    return TheScreen().WaitForWindow(title);
  }

  // Presses the keys until it ends: the window takes none while it is fresh.
  Json AnswerTo(const std::string& keys) {
    return Answer([&keys] { TheScreen().Press(keys); });
  }
  Json Answer(const std::function<void()>& act) {
    Json answer;
    std::thread listener([&] { answer = Hear(); });
    std::atomic<bool> done{false};
    std::thread waiter([&] {
      listener.join();
      done = true;
    });
    EXPECT_TRUE(Eventually([&] {
      if (!done) act();
      for (int i = 0; i < 10 && !done; ++i) usleep(10 * 1000);
      return done.load();
    }));
    waiter.join();
    return answer;
  }

  ChildProgram::Ending End() { return m_program.Stop(std::chrono::seconds(60)); }
  static ChildProgram::Deadline Soon() {
    return ChildProgram::Clock::now() + std::chrono::minutes(3);
  }

  ChildProgram m_program;
  std::string m_heard;
};

Json ChosenIs(const std::string& id) {
  return {{"chosen", {id}}};
}

const Json kIsCancelled = {{"cancelled", true}};

}  // namespace

TEST_F(Window, EnterTakesTheFirst) {
  Open();
  EXPECT_EQ(AnswerTo("Return"), ChosenIs("1"));
  EXPECT_EQ(End().status, 0);
}

TEST_F(Window, ArrowsMove) {
  Open();
  EXPECT_EQ(AnswerTo("Home Down Return"), ChosenIs("2"));
}

TEST_F(Window, EndGoesToTheLast) {
  Open();
  EXPECT_EQ(AnswerTo("End KP_Enter"), ChosenIs("3"));
}

TEST_F(Window, TheFirstLettersOfANameFindIt) {
  Open();
  EXPECT_EQ(AnswerTo("b o Return"), ChosenIs("2"));
}

TEST_F(Window, TheAcceleratorOfTheButtonSigns) {
  Open();
  EXPECT_EQ(AnswerTo("Home alt+s"), ChosenIs("1"));
}

TEST_F(Window, EscapeCancels) {
  Open();
  EXPECT_EQ(AnswerTo("Escape"), kIsCancelled);
  EXPECT_EQ(End().status, 0);
}

TEST_F(Window, TheWindowManagerMayCloseIt) {
  Open();
  EXPECT_EQ(AnswerTo("alt+F4"), kIsCancelled);
}

TEST_F(Window, SpeaksChinese) {
  Json list = Three();
  list["language"] = "zh_CN";
  Open(list, kChinese);
  EXPECT_EQ(AnswerTo("Home Down alt+s"), ChosenIs("2"));
}

TEST_F(Window, ARowAndTheButtonTakeTheMouse) {
  const Screen::Window window = Open();
  EXPECT_EQ(Answer([&window] {
              // The middle of the second of three rows; the left of the two buttons at the right.
              TheScreen().Click(window, window.width / 2, 62 + (window.height - 62 - 46) / 2);
              TheScreen().Click(window, window.width - 138, window.height - 23);
            }),
            ChosenIs("2"));
}

TEST_F(Window, ADoubleClickTakesARow) {
  const Screen::Window window = Open();
  EXPECT_EQ(Answer([&window] {
              const int row = (window.height - 62 - 46) / 3;
              TheScreen().Click(window, window.width / 2, 62 + 2 * row + row / 2, 2);
            }),
            ChosenIs("3"));
}

TEST_F(Window, TheCancelButtonTakesTheMouse) {
  const Screen::Window window = Open();
  EXPECT_EQ(Answer([&window] { TheScreen().Click(window, window.width - 52, window.height - 23); }),
            kIsCancelled);
}

TEST_F(Window, DetailsOpenAndCloseByTheKeyboard) {
  const Screen::Window before = Open();
  TheScreen().Press("alt+d");
  EXPECT_TRUE(Eventually(
      [&] { return TheScreen().WaitForWindow(kEnglish).height >= before.height + 100; }));
  TheScreen().Press("alt+d");
  EXPECT_TRUE(
      Eventually([&] { return TheScreen().WaitForWindow(kEnglish).height == before.height; }));
  EXPECT_EQ(AnswerTo("Return"), ChosenIs("1"));
}

TEST_F(Window, ANewListTakesThePlaceOfTheOldAndKeepsTheSelection) {
  Open();
  TheScreen().Press("Down");
  Json list = Three();
  list["certificates"].insert(list["certificates"].begin(), Certificate("0", "Aaron"));
  Send(list);
  EXPECT_EQ(Hear(), Json({{"ready", 2}}));
  EXPECT_EQ(AnswerTo("Return"), ChosenIs("2"));
}

TEST_F(Window, NoOtherIsTakenInThePlaceOfOneThatWent) {
  Open();
  Json list = Three();
  list["certificates"].erase(0);
  Send(list);
  EXPECT_EQ(Hear(), Json({{"ready", 2}}));
  // Longer than the window hesitates; were a row selected, Enter would take it.
  for (int i = 0; i < 8; ++i) {
    TheScreen().Press("Return");
    usleep(100 * 1000);
  }
  EXPECT_EQ(AnswerTo("Home Return"), ChosenIs("2"));
}

TEST_F(Window, AnEmptyListCanBeCancelledOrFilled) {
  Json list = Three();
  list["certificates"] = Json::array();
  Open(list);
  TheScreen().Press("Return");
  Send(Three());
  EXPECT_EQ(Hear(), Json({{"ready", 2}}));
  EXPECT_EQ(AnswerTo("End Return"), ChosenIs("3"));
}

TEST_F(Window, SeveralAreChosenWhereSeveralMayBe) {
  Json list = Three();
  list["multiple"] = true;
  Open(list);
  EXPECT_EQ(AnswerTo("Home shift+End Return"), Json({{"chosen", {"1", "2", "3"}}}));
}

TEST_F(Window, TheEndOfTheInputLeavesItOpen) {
  Open();
  m_program.CloseInput();
  EXPECT_EQ(AnswerTo("Home Down Return"), ChosenIs("2"));
}

TEST_F(Window, LinesThatAreNoListsAreSkipped) {
  Start();
  SendText("noise\n{\"other\":1}\n[]\n\n{\"certificates\":7}\n");
  Send(Three());
  EXPECT_EQ(Hear(), Json({{"ready", 1}}));
  TheScreen().WaitForWindow(kEnglish);
  EXPECT_EQ(AnswerTo("Return"), ChosenIs("1"));
}

TEST_F(Window, WithoutAListItEnds) {
  Start();
  SendText("noise\n");
  m_program.CloseInput();
  EXPECT_EQ(Hear(), nullptr);
  EXPECT_EQ(End().status, 1);
}

TEST_F(Window, WithoutADisplayItSaysThatItCannotBeShown) {
  Start(":59999");
  Send(Three());
  EXPECT_EQ(Hear(), nullptr);
  const ChildProgram::Ending ending = End();
  EXPECT_FALSE(ending.bySignal);
  EXPECT_EQ(ending.status, 69);
}

TEST_F(Window, ClosesItselfWhenNobodyListens) {
  Open();
  // Both pipes close, and a minute is more than it needs to notice.
  EXPECT_EQ(End().status, 1);
  EXPECT_TRUE(Eventually([] { return !TheScreen().HasWindow("Choose.a.Certificate"); }));
}

TEST_F(Window, ALongListAndStrangeNamesAreShown) {
  Json list = {{"certificates", Json::array()}, {"language", "en"}};
  for (int i = 0; i < 500; ++i) {
    list["certificates"].push_back(Certificate(std::to_string(i), std::to_string(i)));
  }
  const std::string strange[] = {"",
                                 " ",
                                 "\x1b[2J",
                                 "<b>bold</b>",
                                 "\xE2\x80\xAEtxet",
                                 std::string(5000, 'x'),
                                 "\xF0\x9F\x98\x80",
                                 "&S"};
  for (const std::string& name : strange) {
    list["certificates"].push_back(Certificate("s" + name, name));
  }
  list["certificates"].push_back(Json::object());
  list["certificates"].push_back(7);
  list["certificates"].push_back(Certificate("last", "last"));
  Open(list);
  EXPECT_EQ(AnswerTo("End Return"), ChosenIs("last"));
}

namespace {

// The library and the window together.
class DialogOnScreen : public testing::Test {
 protected:
  DialogOnScreen() {
    setenv("VEL_CERT_DIALOG", CERT_DIALOG, 1);
    setenv("DISPLAY", TheScreen().Name().c_str(), 1);
    setenv("QT_QPA_PLATFORM", "xcb", 1);
    m_dialog = new velcrypto::CertDialog;
    for (const char* name : {"张三", "李四"}) {
      tag_VEL_CERT_INFO record;
      record.VELCertUniqueID = velcrypto::Wide(name).c_str();
      record.SubjectCN = velcrypto::Wide(name).c_str();
      record.ExpiredInfo.wYear = 2099;
      record.ExpiredInfo.wMonth = record.ExpiredInfo.wDay = 1;
      m_certificates.AddItem(record);
    }
  }
  ~DialogOnScreen() override {
    setenv("LC_ALL", "C.UTF-8", 1);
    unsetenv("VEL_CERT_DIALOG_TIMEOUT");
    setenv("VEL_CERT_DIALOG", "none", 1);
  }

  // Shows the dialog, and acts again and again once its window is there: it takes no keys while it
  // is fresh. An empty title waits for no window.
  ULONG Display(const std::string& title, const std::function<void(const Screen::Window&)>& act) {
    std::atomic<bool> done{false};
    ULONG code = 0;
    std::thread host([&] {
      code = m_dialog->DisplayUI(FALSE, &m_certificates, &m_chosen);
      done = true;
    });
    Screen::Window window;
    if (!title.empty()) window = TheScreen().WaitForWindow(title);
    EXPECT_TRUE(Eventually([&] {
      if (!done) act(window);
      for (int i = 0; i < 10 && !done; ++i) usleep(10 * 1000);
      return done.load();
    }));
    host.join();
    return code;
  }

  CSmartObjPtr<velcrypto::CertDialog> m_dialog;
  CSmartList<tag_VEL_CERT_INFO> m_certificates, m_chosen;
};

}  // namespace

TEST_F(DialogOnScreen, TheKeyboardChooses) {
  if (setlocale(LC_ALL, "zh_CN.UTF-8") == nullptr) GTEST_SKIP() << "no Chinese locale";
  setlocale(LC_ALL, "C.UTF-8");
  setenv("LC_ALL", "zh_CN.UTF-8", 1);
  EXPECT_EQ(Display(kChinese, [](const auto&) { TheScreen().Press("End Return"); }), 0u);
  ASSERT_EQ(m_chosen.GetCount(), 1);
  EXPECT_STREQ(m_chosen[0].SubjectCN, L"李四");
}

TEST_F(DialogOnScreen, ClosingTheWindowCancels) {
  EXPECT_EQ(Display(kEnglish, [](const auto&) { TheScreen().Press("alt+F4"); }), 0xE0000002u);
}

TEST_F(DialogOnScreen, KillingTheProgramIsAFailure) {
  EXPECT_EQ(Display(kEnglish,
                    [](const auto& window) {
                      const int process = TheScreen().ProcessOf(window);
                      if (process > 0) kill(process, SIGKILL);
                    }),
            0xE0000001u);
}

TEST_F(DialogOnScreen, LosingTheDisplayIsAFailure) {
  EXPECT_EQ(Display(kEnglish, [](const auto& window) { TheScreen().CutConnection(window); }),
            0xE0000001u);
}

TEST_F(DialogOnScreen, NobodyAnsweringIsATimeout) {
  setenv("VEL_CERT_DIALOG_TIMEOUT", "2", 1);
  EXPECT_EQ(Display("", [](const auto&) {}), 0xE0000016u);
  EXPECT_TRUE(Eventually([] { return !TheScreen().HasWindow("Choose.a.Certificate"); }));
}
