// Signatures by SoftHSM tokens through the exported functions, verified by the openssl program.
#include <gmock/gmock.h>
#include <locale.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>

#include "Identities.h"
#include "PinentryScript.h"
#include "Program.h"
#include "SoftHsm.h"
#include "Traces.h"
#include "vctk.h"

using ::testing::HasSubstr;

namespace {

const char kPin[] = "12345678";

std::string Encoded(const std::string& bytes) {
  return OutputOf({"openssl", "base64", "-A"}, bytes);
}

std::string Decoded(const std::string& base64) {
  return OutputOf({"openssl", "base64", "-d", "-A"}, base64);
}

// Certificates for RSA keys of several sizes, and the tokens that hold them. Made once: the module
// is started once in this process.
struct World {
  struct Signer {
    std::string key, certificate, serial;
  };

  World() {
    setlocale(LC_ALL, "");  // names are Chinese
    hsm.MakeToken("sizes");
    for (const int bits : {1024, 2048, 3072, 4096}) {
      const Signer signer = Make(bits);
      hsm.ImportKey("sizes", signer.key, std::to_string(bits));
      hsm.ImportCertificate("sizes", signer.certificate, std::to_string(bits));
      signers.push_back(signer);
    }
  }

  Signer Make(int bits, const std::string& name = "张三") const {
    const std::string stem = folder.File(name + std::to_string(bits));
    OutputOf({"openssl", "req", "-x509", "-newkey", "rsa:" + std::to_string(bits), "-nodes",
              "-utf8", "-subj", "/C=CN/CN=" + name, "-days", "30", "-addext",
              "basicConstraints=CA:FALSE", "-keyout", stem + ".key", "-out", stem + ".pem"});
    std::string serial = OutputOf({"openssl", "x509", "-in", stem + ".pem", "-noout", "-serial"});
    serial = serial.substr(serial.find('=') + 1);
    serial.pop_back();
    return {stem + ".key", stem + ".pem", serial};
  }

  SoftHsm hsm;
  TemporaryFolder folder;
  std::vector<Signer> signers;
};

World& TheWorld() {
  static World world;
  return world;
}

class Session {
 public:
  Session() : m_handle(VCTK_Initialize(SoftHsm::KeyList().c_str())) {}
  ~Session() { VCTK_Finalize(m_handle); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  operator HANDLE() const { return m_handle; }

  using Getter = int (*)(HANDLE, char*, int*);
  std::string Get(Getter getter) const {
    int length = 0;
    if (getter(m_handle, nullptr, &length) != 0) return "";
    std::string text(static_cast<size_t>(length), '\0');
    if (getter(m_handle, &text[0], &length) != 0) return "";
    text.resize(strlen(text.c_str()));
    return text;
  }
  std::string List() const {
    int length = 0;
    if (VCTK_GetCertList(m_handle, "|", ";", nullptr, &length) != 0) return "";
    std::string text(static_cast<size_t>(length), '\0');
    if (VCTK_GetCertList(m_handle, "|", ";", &text[0], &length) != 0) return "";
    return text.c_str();
  }
  int SignWithPin(const std::string& serial, const char* pin, const char* text = "abc") const {
    return VCTK_P1SignWithPin(m_handle, serial.c_str(), pin, text, 0);
  }

 private:
  HANDLE m_handle;
};

class SoftHsmTokens : public ::testing::Test {
 protected:
  static void ExpectSignature(const std::string& jsonText, const std::string& certificate) {
    const auto answer = nlohmann::json::parse(jsonText);
    ASSERT_EQ(answer["result"], 0);
    TemporaryFolder folder;
    WriteText(folder.File("signature"), Decoded(answer["signdata"]));
    WriteText(folder.File("content"), "abc");
    WriteText(folder.File("key.pem"),
              OutputOf({"openssl", "x509", "-in", certificate, "-noout", "-pubkey"}));
    EXPECT_NO_THROW(OutputOf({"openssl", "dgst", "-sha1", "-verify", folder.File("key.pem"),
                              "-signature", folder.File("signature"), folder.File("content")}));
  }

  World& m_world = TheWorld();
};

}  // namespace

TEST_F(SoftHsmTokens, RsaKeysOfAllSizesSign) {
  const Session session;
  const std::string list = session.List();
  for (const World::Signer& signer : m_world.signers) {
    EXPECT_THAT(list, HasSubstr(signer.serial));
    ASSERT_EQ(session.SignWithPin(signer.serial, kPin), 0);
    ExpectSignature(session.Get(VCTK_GetP1SignResultWithPin), signer.certificate);
  }
}

TEST_F(SoftHsmTokens, Pkcs7WithTheGivenPinIsVerifiedByOpenSsl) {
  const Session session;
  const World::Signer& signer = m_world.signers[1];
  ASSERT_EQ(VCTK_SetCert(session, signer.serial.c_str()), 1);
  ASSERT_EQ(VCTK_SetPinCode(session, kPin), 1);
  ASSERT_EQ(VCTK_P7SignStrEx(session, Encoded("合同").c_str(), 1, 0, 1), 0);
  WriteText(m_world.folder.File("p7"), Decoded(session.Get(VCTK_GetP7SignResult)));
  EXPECT_EQ(OutputOf({"openssl", "smime", "-verify", "-inform", "DER", "-in",
                      m_world.folder.File("p7"), "-CAfile", signer.certificate, "-purpose", "any"}),
            "合同");
}

TEST_F(SoftHsmTokens, AWrongPinIsToldAndTheRightOneWorksAfterwards) {
  const Session session;
  const std::string serial = m_world.signers[1].serial;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(session.SignWithPin(serial, "00000000"), static_cast<int>(0xE0000056u));
  }
  EXPECT_EQ(session.SignWithPin(serial, "1"), static_cast<int>(0xE0000059u));
  EXPECT_EQ(session.SignWithPin(serial, kPin), 0);
}

TEST_F(SoftHsmTokens, ThePinIsChanged) {
  const Session session;
  const std::string serial = m_world.signers[1].serial;
  const auto change = [&](const char* from, const char* to) {
    return VCTK_ChangePinCode(session, serial.c_str(), 2, from, to);
  };
  EXPECT_EQ(change("00000000", "11223344"), static_cast<int>(0xE0000056u));
  ASSERT_EQ(change(kPin, "11223344"), 0);
  EXPECT_EQ(session.SignWithPin(serial, kPin), static_cast<int>(0xE0000056u));
  EXPECT_EQ(session.SignWithPin(serial, "11223344"), 0);
  ASSERT_EQ(change("11223344", kPin), 0);
}

// Each logs in and out; the log-out of one must not cost the other its signature.
TEST_F(SoftHsmTokens, TwoThreadsWithTwoHandlesSignWithOneToken) {
  std::vector<std::thread> threads;
  std::vector<int> codes(2, -1);
  for (size_t i = 0; i < codes.size(); ++i) {
    threads.emplace_back([&, i] {
      const Session session;
      codes[i] = 0;
      for (int round = 0; round < 10 && codes[i] == 0; ++round) {
        codes[i] = session.SignWithPin(m_world.signers[i].serial, kPin);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(codes, ::testing::Each(0));
}

TEST_F(SoftHsmTokens, ThirtyTwoHandlesWorkSideBySide) {
  std::vector<std::unique_ptr<Session>> sessions;
  for (int i = 0; i < 32; ++i) sessions.push_back(std::make_unique<Session>());
  for (const auto& session : sessions) {
    EXPECT_EQ(session->SignWithPin(m_world.signers[1].serial, kPin), 0);
  }
}

TEST_F(SoftHsmTokens, AHostThatForksSignsInBothProcesses) {
  const Session session;
  const std::string serial = m_world.signers[1].serial;
  ASSERT_EQ(session.SignWithPin(serial, kPin), 0);
  ASSERT_TRUE(Eventually(OtherThreadsWait)) << "the log is written";
  const pid_t child = fork();
  if (child == 0) {
    alarm(200);
    _exit(session.SignWithPin(serial, kPin) & 0xFF);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 0);
  EXPECT_EQ(session.SignWithPin(serial, kPin), 0);
}

TEST_F(SoftHsmTokens, ATokenThatIsDeletedAndMadeAgainIsSeenEachTimeAndMissedInTheDialog) {
  const Session session;
  const World::Signer signer = m_world.Make(2048, "李四");
  ASSERT_EQ(session.SignWithPin(m_world.signers[1].serial, kPin), 0);
  m_world.hsm.DeleteToken("sizes");
  EXPECT_EQ(session.List(), "");
  EXPECT_NE(session.SignWithPin(m_world.signers[1].serial, kPin), 0);
  m_world.hsm.MakeToken("fresh");
  m_world.hsm.ImportKey("fresh", signer.key, "01");
  m_world.hsm.ImportCertificate("fresh", signer.certificate, "01");
  EXPECT_THAT(session.List(), HasSubstr(signer.serial));
  ASSERT_EQ(session.SignWithPin(signer.serial, kPin), 0);
  ExpectSignature(session.Get(VCTK_GetP1SignResultWithPin), signer.certificate);

  // The module sees no token that comes beside another, so it is this one that goes once more.
  const TemporaryFolder folder;
  const PinentryScript script(folder.Path());
  script.Play({"GETPIN create " + folder.File("asked"), "GETPIN await " + folder.File("go"),
               std::string("GETPIN pin ") + kPin});
  ASSERT_EQ(VCTK_SetCert(session, signer.serial.c_str()), 1);
  int code = 0;
  std::thread asking([&] { code = VCTK_P7SignStrEx(session, "abc", 0, 0, 1); });
  while (!std::filesystem::exists(folder.File("asked"))) usleep(2000);
  m_world.hsm.DeleteToken("fresh");
  WriteText(folder.File("go"), "");
  asking.join();
  EXPECT_EQ(static_cast<unsigned>(code), 0xE0000042u);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";
  EXPECT_EQ(session.List(), "");
}
