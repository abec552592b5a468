// Tokens of a scripted PKCS#11 module through the exported functions: what no software token does.
// This process and the device library see one instance of the module.
#include <gmock/gmock.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>

#include "BotanVerifier.h"
#include "FakePkcs11.h"
#include "KeyMaker.h"
#include "PinentryScript.h"
#include "Program.h"
#include "vctk.h"

using fakep11::TokenWith;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using Json = nlohmann::json;

namespace {

const char kPin[] = "12345678";
const char kWrongPin[] = "87654321";
const char kContent[] = "abc";

const keymaker::Identity& Key(bool sm2) {
  static const auto make = [](keymaker::Kind kind, const char* serial) {
    keymaker::Request request;
    request.kind = kind;
    request.serial = serial;
    return keymaker::Make(request);
  };
  static const keymaker::Identity rsa = make(keymaker::Kind::kRsa, "0A1B");
  static const keymaker::Identity other = make(keymaker::Kind::kSm2, "C0FFEE");
  return sm2 ? other : rsa;
}

std::string BytesOf(const keymaker::Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}

std::vector<fakep11::Object> PairOf(bool sm2) {
  return fakep11::Pair(Key(sm2).Der(), Key(sm2).key, {0x0A, 0x01});
}

std::string Family(const std::string& library) {
  return "<lib type=\"P11\" dllname=\"" + OutputOf({"openssl", "base64", "-A"}, library) +
         "\"><algid val=\"SHA256\" sm2_hashalg=\"SM3\"/></lib>";
}

// One line of the call queue: where, its result, and the module's own code.
struct Line {
  std::string device, result, native;
  bool operator==(const Line& other) const {
    return device == other.device && result == other.result && native == other.native;
  }
};
void PrintTo(const Line& line, std::ostream* out) {
  *out << line.device << " " << line.result << " " << line.native;
}

class ScriptedTokens : public ::testing::Test {
 protected:
  void SetUp() override {
    fakep11::Reset();
    Open(Family(FAKE_PKCS11_PATH));
  }
  void TearDown() override {
    VCTK_Finalize(m_handle);
    unsetenv("FAKE_DIALOG");
    setenv("VEL_CERT_DIALOG", "none", 1);
    fakep11::Reset();
  }

  void Open(const std::string& families) {
    VCTK_Finalize(m_handle);
    m_handle =
        VCTK_Initialize(("<authinfo><liblist>" + families + "</liblist></authinfo>").c_str());
    ASSERT_NE(m_handle, nullptr);
    VCTK_SetChooseSingleCert(m_handle, 1);
    VCTK_CallQueueClear(m_handle);
    VCTK_CallQueueEnable(m_handle, 1, 0);
  }

  using Getter = int (*)(HANDLE, char*, int*);
  std::string Get(Getter getter) const {
    int length = 0;
    if (getter(m_handle, nullptr, &length) != 0) return "";
    std::string text(static_cast<size_t>(length), '\0');
    if (getter(m_handle, &text[0], &length) != 0) return "";
    return text.c_str();
  }
  std::vector<Line> Recorded(const std::string& operation) const {
    std::vector<Line> lines;
    std::istringstream text(Get(VCTK_CallQueueGet));
    for (std::string line; std::getline(text, line);) {
      const Json json = Json::parse(line);
      if (json.value("operation", "") != operation) continue;
      lines.push_back({json["device"], json["result"], json.value("native", "")});
    }
    return lines;
  }
  unsigned List() {
    int length = 0;
    return static_cast<unsigned>(VCTK_GetCertList(m_handle, "|", ";", nullptr, &length));
  }
  unsigned SignWithPin(bool sm2, const char* pin = kPin) {
    return static_cast<unsigned>(
        VCTK_P1SignWithPin(m_handle, sm2 ? "C0FFEE" : "0A1B", pin, kContent, 0));
  }
  unsigned SignAsking() { return static_cast<unsigned>(VCTK_P1Sign(m_handle, kContent, 0)); }
  Json Answer() const { return Json::parse(Get(VCTK_GetP1SignResultWithPin)); }

  // By a library that shares nothing with the one that signed.
  static void ExpectVerified(bool sm2, const std::string& base64) {
    const std::string signature = OutputOf({"openssl", "base64", "-d", "-A"}, base64);
    EXPECT_NO_THROW(VerifyBare(signature, kContent, BytesOf(Key(sm2).Der()), "SHA-1"));
  }

  // Signs on a thread of its own; while the dialog is open the token goes.
  unsigned SignWhileTheTokenGoes(const std::function<void()>& unplug) {
    unsigned code = 0;
    std::thread signing([&] { code = SignAsking(); });
    while (!std::filesystem::exists(m_folder.File("asked"))) usleep(2000);
    unplug();
    WriteText(m_folder.File("go"), "");
    signing.join();
    return code;
  }
  void AskWithPinentry() {
    m_script.Play({"GETPIN create " + m_folder.File("asked"), "GETPIN await " + m_folder.File("go"),
                   std::string("GETPIN pin ") + kPin});
  }

  // Pipes and devices: the log is opened and closed meanwhile.
  static size_t OpenFiles() {
    size_t count = 0;
    for (const auto& file : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      if (!std::filesystem::is_regular_file(file, gone) && !gone) ++count;
    }
    return count;
  }
  static void ExpectNoChildLeft() {
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
  }

  TemporaryFolder m_folder;
  PinentryScript m_script{m_folder.Path()};
  HANDLE m_handle = nullptr;
};

}  // namespace

TEST_F(ScriptedTokens, SignaturesOfBothKindsOfKeysAreVerifiedByAnotherLibrary) {
  fakep11::Plug(TokenWith(PairOf(false), "rsa", "1"));
  fakep11::Plug(TokenWith(PairOf(true), "sm2", "2"));
  for (const bool sm2 : {false, true}) {
    ASSERT_EQ(SignWithPin(sm2), 0u);
    EXPECT_EQ(Answer()["algid"], sm2 ? "SM3" : "SHA1");
    ExpectVerified(sm2, Answer()["signdata"]);
  }
}

TEST_F(ScriptedTokens, AnSm2TokenMakesAStructureThatAnotherLibraryVerifies) {
  fakep11::Plug(TokenWith(PairOf(true)));
  ASSERT_EQ(VCTK_SetCert(m_handle, "C0FFEE"), 1);
  for (const bool attached : {true, false}) {
    ASSERT_EQ(VCTK_SetPinCode(m_handle, kPin), 1);
    ASSERT_EQ(VCTK_P7SignStrEx(m_handle, kContent, 0, attached ? 0 : 1, 1), 0);
    const std::string structure =
        OutputOf({"openssl", "base64", "-d", "-A"}, Get(VCTK_GetP7SignResult));
    EXPECT_NO_THROW(VerifyPkcs7(structure, kContent, BytesOf(Key(true).Der()), "SM3", attached));
  }
}

TEST_F(ScriptedTokens, ASignatureThatDoesNotHoldIsNotHandedOut) {
  for (const bool sm2 : {false, true}) {
    fakep11::Reset();
    fakep11::Token token = TokenWith(PairOf(sm2));
    token.wrongSignatures = true;
    fakep11::Plug(token);
    EXPECT_EQ(SignWithPin(sm2), 0xE0000070u);
    EXPECT_EQ(Answer(), Json({{"result", -1}, {"remainretrycount", sm2 ? 2 : -1}}));
  }
}

TEST_F(ScriptedTokens, AKeyThatAsksForThePinAtEachUseSigns) {
  for (const bool sm2 : {false, true}) {
    fakep11::Reset();
    auto objects = PairOf(sm2);
    objects[2].asksEachTime = true;
    fakep11::Plug(TokenWith(objects));
    for (int i = 0; i < 2; ++i) {
      ASSERT_EQ(SignWithPin(sm2), 0u);
      ExpectVerified(sm2, Answer()["signdata"]);
    }
    EXPECT_EQ(SignWithPin(sm2, kWrongPin), 0xE0000056u);
    EXPECT_EQ(fakep11::Inspect("token").triesLeft, 2u) << "one try";
    ASSERT_EQ(SignWithPin(sm2), 0u);
  }
}

TEST_F(ScriptedTokens, TheCallQueueTellsWhyAFamilyListsNothing) {
  fakep11::Plug(TokenWith(PairOf(true), "card", "1"));
  Open(Family("/nowhere/module.so") + Family("libc.so.6") + Family(FAKE_PKCS11_PATH));
  EXPECT_EQ(List(), 0u);
  EXPECT_THAT(Recorded("ListCertificates"),
              UnorderedElementsAre(Line{"/nowhere/module.so", "0xE0000014", ""},
                                   Line{"libc.so.6", "0xE0000014", ""}));
  EXPECT_EQ(SignWithPin(true), 0u) << "the others hide no token";

  fakep11::Unplug("card");
  Open(Family(FAKE_PKCS11_PATH));
  EXPECT_EQ(List(), 0xE000000Eu);
  EXPECT_THAT(Recorded("ListCertificates"), ElementsAre(Line{FAKE_PKCS11_PATH, "0xE0000043", ""}));
  EXPECT_EQ(SignWithPin(true), 0xE0000061u);

  fakep11::Plug(TokenWith({}, "empty", "2"));
  VCTK_CallQueueClear(m_handle);
  EXPECT_EQ(List(), 0xE000000Eu);
  EXPECT_THAT(Recorded("ListCertificates"), ElementsAre(Line{"empty", "0xE0000061", ""}));

  fakep11::Fault fault;
  fault.function = "C_GetSlotList";
  fault.result = CKR_DEVICE_ERROR;
  fakep11::Add(fault);
  VCTK_CallQueueClear(m_handle);
  EXPECT_EQ(List(), 0xE000000Eu);
  EXPECT_THAT(Recorded("ListCertificates"),
              ElementsAre(Line{FAKE_PKCS11_PATH, "0xE0000040", "0x00000030"}));
}

TEST_F(ScriptedTokens, ACertificateWhoseKeyIsNotThereIsTold) {
  fakep11::Plug(TokenWith({PairOf(false)[0]}));
  EXPECT_EQ(List(), 0u) << "private keys hide: it may be there";
  EXPECT_EQ(SignWithPin(false), 0xE000002Cu);
  EXPECT_EQ(List(), 0xE000000Eu) << "the login has told that it is not";
  const std::vector<Line> hidden = Recorded("HideCertificate");
  ASSERT_EQ(hidden.size(), 1u);
  EXPECT_EQ(hidden[0].device, "token");
}

TEST_F(ScriptedTokens, ATokenThatGoesWhileThePinIsAskedForIsMissed) {
  fakep11::Plug(TokenWith(PairOf(false)));
  m_script.Play({std::string("GETPIN pin ") + kPin});
  ASSERT_EQ(SignAsking(), 0u);
  VCTK_SetForcePinDialog(m_handle, 1);
  const size_t files = OpenFiles();
  AskWithPinentry();
  fakep11::Token token;
  EXPECT_EQ(SignWhileTheTokenGoes([&] { token = fakep11::Unplug("token"); }), 0xE0000042u);
  EXPECT_EQ(OpenFiles(), files);
  ExpectNoChildLeft();
  EXPECT_EQ(token.triesLeft, 3u);
  fakep11::Plug(token);
  m_script.Play({std::string("GETPIN pin ") + kPin});
  EXPECT_EQ(SignAsking(), 0u) << "it has come back";
}

TEST_F(ScriptedTokens, AnotherTokenThatComesMeanwhileGetsNoPin) {
  fakep11::Plug(TokenWith(PairOf(false)));
  ASSERT_EQ(List(), 0u);
  AskWithPinentry();
  EXPECT_EQ(SignWhileTheTokenGoes([] {
              fakep11::Unplug("token");
              fakep11::PlugInto(0, TokenWith(PairOf(true), "another", "2"));
            }),
            0xE0000042u);
  EXPECT_EQ(fakep11::Calls("C_Login"), 0u);
}

TEST_F(ScriptedTokens, ATokenThatGoesWhileACertificateIsChosenIsMissed) {
  fakep11::Plug(TokenWith(PairOf(false), "rsa", "1"));
  fakep11::Plug(TokenWith(PairOf(true), "sm2", "2"));
  setenv("VEL_CERT_DIALOG", FAKE_CERT_DIALOG, 1);
  setenv("FAKE_DIALOG_LISTS", m_folder.File("lists").c_str(), 1);
  setenv("FAKE_DIALOG", "read ready choose=0", 1);  // sorted by label
  m_script.Play({std::string("GETPIN pin ") + kPin});
  ASSERT_EQ(SignAsking(), 0u);
  const size_t files = OpenFiles();
  const std::string script =
      "read ready touch=" + m_folder.File("asked") + " await=" + m_folder.File("go") + " choose=0";
  setenv("FAKE_DIALOG", script.c_str(), 1);
  fakep11::Token token;
  EXPECT_EQ(SignWhileTheTokenGoes([&] { token = fakep11::Unplug("rsa"); }), 0xE0000042u);
  EXPECT_EQ(OpenFiles(), files);
  ExpectNoChildLeft();
  Open(Family(FAKE_PKCS11_PATH));  // a session signs with the first certificate that it chose
  m_script.Play({std::string("GETPIN pin ") + kPin});
  EXPECT_EQ(SignAsking(), 0u) << "the other one is there";
  ExpectVerified(true, Get(VCTK_GetP1SignResult));
}
