#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "Vctk.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

class Sign : public Vctk {
 protected:
  void PlugInBoth() const {
    PlugIn(SharedIdentities().Rsa());
    PlugIn(SharedIdentities().Sm2());
  }

  std::string Document() const { return Have("document", "我同意。\n"); }

  Outcome SignTo(const std::string& file, const Identity& identity,
                 std::vector<std::string> options) const {
    std::vector<std::string> arguments = {"sign", Document(), "--cert",     identity.serial,
                                          "-o",   file,       "--pin-file", PinFile()};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return Run(arguments);
  }

  // kind as scripts/verify.sh has it.
  static Outcome Verify(const std::string& kind, const std::string& signature,
                        const std::string& content, const Identity& identity) {
    Invocation invocation;
    invocation.command = {VERIFY_SCRIPT,
                          kind,
                          signature,
                          content,
                          identity.certificate,
                          SharedIdentities().Authority()};
    invocation.environment["LC_ALL"] = "C.UTF-8";
    return RunProgram(invocation);
  }

  void ExpectSigned(const std::string& kind, const Identity& identity,
                    std::vector<std::string> options) const {
    options.push_back("--binary");
    const std::string file = Folder().File(kind);
    const Outcome outcome = SignTo(file, identity, options);
    ASSERT_EQ(outcome.exitCode, kDone) << outcome.err;
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "");
    const Outcome verified = Verify(kind, file, Document(), identity);
    EXPECT_EQ(verified.exitCode, 0) << verified.err;
  }

  std::vector<std::string> FolderEntries() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(Folder().Path())) {
      names.push_back(entry.path().filename());
    }
    return names;
  }
};

}  // namespace

TEST_F(Sign, RsaAsPkcs1) {
  PlugInBoth();
  ExpectSigned("p1", SharedIdentities().Rsa(), {"--p1"});
}

TEST_F(Sign, RsaAsPkcs7) {
  PlugInBoth();
  ExpectSigned("p7", SharedIdentities().Rsa(), {"--p7"});
}

TEST_F(Sign, RsaAsDetachedPkcs7) {
  PlugInBoth();
  ExpectSigned("detached", SharedIdentities().Rsa(), {"--p7", "--detached"});
}

TEST_F(Sign, Sm2AsPkcs1) {
  PlugInBoth();
  ExpectSigned("p1", SharedIdentities().Sm2(), {"--p1"});
}

TEST_F(Sign, Sm2AsPkcs7) {
  PlugInBoth();
  ExpectSigned("p7", SharedIdentities().Sm2(), {"--p7"});
}

TEST_F(Sign, Sm2AsDetachedPkcs7) {
  PlugInBoth();
  ExpectSigned("detached", SharedIdentities().Sm2(), {"--detached"});
}

TEST_F(Sign, AttachedPkcs7IsTheDefault) {
  PlugInBoth();
  ExpectSigned("p7", SharedIdentities().Rsa(), {});
}

TEST_F(Sign, TheVerifierOfTheseTestsSeesATamperedSignature) {
  PlugInBoth();
  for (const Identity* identity : {&SharedIdentities().Rsa(), &SharedIdentities().Sm2()}) {
    for (const char* kind : {"p1", "p7", "detached"}) {
      ExpectSigned(kind, *identity,
                   {std::string(kind) == "p1"   ? "--p1"
                    : std::string(kind) == "p7" ? "--p7"
                                                : "--detached"});
      std::string bytes = ReadText(Folder().File(kind));
      bytes[bytes.size() - 5] = static_cast<char>(bytes[bytes.size() - 5] ^ 1);
      const std::string tampered = Have("tampered", bytes);
      EXPECT_NE(Verify(kind, tampered, Document(), *identity).exitCode, 0) << kind;
      EXPECT_NE(Verify(kind, Folder().File(kind), Have("other", "我不同意"), *identity).exitCode, 0)
          << kind;
    }
  }
}

TEST_F(Sign, DigestIsTheOneNamed) {
  PlugInBoth();
  for (const char* digest : {"SHA1", "SHA256", "sha512"}) {
    const std::string file = Folder().File("signature");
    ASSERT_EQ(SignTo(file, SharedIdentities().Rsa(), {"--binary", "--digest", digest}).exitCode,
              kDone);
    EXPECT_EQ(Verify("p7", file, Document(), SharedIdentities().Rsa()).exitCode, 0);
    std::string parts = OutputOf({"openssl", "asn1parse", "-inform", "DER", "-in", file});
    for (char& c : parts) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    std::string name = digest;
    for (char& c : name) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    EXPECT_THAT(parts, HasSubstr(":" + name + "\n"));
  }
}

TEST_F(Sign, AnUnknownDigestIsRefused) {
  PlugInBoth();
  const Outcome outcome =
      SignTo(Folder().File("signature"), SharedIdentities().Rsa(), {"--digest", "SHA3"});
  EXPECT_EQ(outcome.exitCode, kFailed);
  EXPECT_THAT(outcome.err, HasSubstr("0xE0000066 HASH运算错误"));
}

TEST_F(Sign, Pkcs1TakesTheDigestOfTheKeyAlone) {
  PlugInBoth();
  const std::string file = Folder().File("signature");
  const Outcome outcome = SignTo(file, SharedIdentities().Rsa(), {"--p1", "--digest", "SHA256"});
  EXPECT_EQ(outcome.exitCode, kUsage);
  EXPECT_THAT(outcome.err, HasSubstr("signs with SHA1 for this RSA key, not with SHA256"));
  EXPECT_FALSE(std::filesystem::exists(file));
  EXPECT_EQ(SignTo(file, SharedIdentities().Rsa(), {"--p1", "--digest", "sha1"}).exitCode, kDone);
  EXPECT_EQ(SignTo(file, SharedIdentities().Sm2(), {"--p1", "--digest", "SM3"}).exitCode, kDone);
}

TEST_F(Sign, Base64IsOneLineOfTheSameBytes) {
  PlugInBoth();
  const std::string text = Folder().File("text");
  const std::string binary = Folder().File("binary");
  ASSERT_EQ(SignTo(text, SharedIdentities().Rsa(), {"--p1"}).exitCode, kDone);
  ASSERT_EQ(SignTo(binary, SharedIdentities().Rsa(), {"--p1", "--binary"}).exitCode, kDone);
  EXPECT_EQ(ReadText(text), OutputOf({"openssl", "base64", "-A", "-in", binary}) + "\n");
}

TEST_F(Sign, AnyBytesCanBeSigned) {
  PlugIn(SharedIdentities().Rsa());
  std::string all;
  for (int i = 0; i < 100000; ++i) all += static_cast<char>(i * 7 % 256);
  for (const std::string& content : {std::string(1, '\0'), std::string("\xFF\xFE"), all}) {
    const std::string document = Have("bytes", content);
    const std::string file = Folder().File("signature");
    ASSERT_EQ(Run({"sign", document, "--binary", "-o", file, "--pin-file", PinFile()}).exitCode,
              kDone);
    EXPECT_EQ(Verify("p7", file, document, SharedIdentities().Rsa()).exitCode, 0);
  }
}

TEST_F(Sign, TheDocumentMayComeFromStandardInput) {
  PlugIn(SharedIdentities().Rsa());
  Invocation invocation = Command({"sign", "-", "--detached", "--binary", "--pin-file", PinFile()});
  invocation.input = ReadText(Document());
  const Outcome outcome = RunProgram(invocation);
  ASSERT_EQ(outcome.exitCode, kDone) << outcome.err;
  EXPECT_EQ(Verify("detached", Have("signature", outcome.out), Document(), SharedIdentities().Rsa())
                .exitCode,
            0);
}

TEST_F(Sign, ThePinMayComeFromStandardInput) {
  PlugIn(SharedIdentities().Rsa());
  for (const char* input : {"12345678\n", "12345678", "12345678\r\n", "12345678\nmore\n"}) {
    EXPECT_EQ(Run({"sign", Document()}, input).exitCode, kDone) << input;
    EXPECT_EQ(Run({"sign", Document(), "--pin-file", "-"}, input).exitCode, kDone) << input;
  }
}

TEST_F(Sign, StandardInputGivesTheDocumentOrThePinButNotBoth) {
  PlugIn(SharedIdentities().Rsa());
  EXPECT_EQ(Run({"sign", "-", "--pin-file", "-"}, "12345678\n").exitCode, kUsage);
}

TEST_F(Sign, WithoutAPinExitsWith6) {
  PlugIn(SharedIdentities().Rsa());
  for (const std::string& input : {std::string(), std::string("\n"), std::string(2000, '1'),
                                   std::string("1234\0"
                                               "5678\n",
                                               10)}) {
    EXPECT_EQ(Run({"sign", Document()}, input).exitCode, kPinFault);
  }
  EXPECT_EQ(Run({"sign", Document(), "--pin-file", Folder().File("none")}).exitCode, kFile);
}

TEST_F(Sign, AWrongPinTellsTheTriesLeft) {
  PlugIn(SharedIdentities().Rsa());
  const Outcome outcome = Run({"sign", Document()}, "87654321\n");
  EXPECT_EQ(outcome.exitCode, kPinFault);
  EXPECT_THAT(outcome.err, HasSubstr("0xE0000056 您输入的PIN码错误，请重新输入,您还有9次机会"));
  EXPECT_THAT(outcome.err, Not(HasSubstr("87654321")));
}

TEST_F(Sign, AWrongPinForPkcs1ClaimsNoNumberOfTries) {
  PlugIn(SharedIdentities().Rsa());
  const Outcome outcome = Run({"sign", Document(), "--p1"}, "87654321\n");
  EXPECT_EQ(outcome.exitCode, kPinFault);
  EXPECT_THAT(outcome.err, HasSubstr("您还有?次机会"));
}

TEST_F(Sign, ALockedKeyExitsWith6) {
  PlugIn(SharedIdentities().Rsa());
  for (int i = 0; i < 10; ++i) Run({"sign", Document()}, "87654321\n");
  const Outcome outcome = Run({"sign", Document()}, "12345678\n");
  EXPECT_EQ(outcome.exitCode, kPinFault);
  EXPECT_THAT(outcome.err, HasSubstr("0xE0000057"));
}

TEST_F(Sign, DocumentsThatCannotBeReadExitWith3) {
  PlugIn(SharedIdentities().Rsa());
  for (const std::string& file : {Folder().File("none"), Folder().Path(), Have("empty", "")}) {
    const Outcome outcome = Run({"sign", file, "--pin-file", PinFile()});
    EXPECT_EQ(outcome.exitCode, kFile) << file;
    EXPECT_THAT(outcome.err, HasSubstr(file));
  }
}

TEST_F(Sign, AnOutputThatCannotBeWrittenCostsNoPinTry) {
  PlugIn(SharedIdentities().Rsa());
  const std::string file = Folder().File("no/such/folder/signature");
  const Outcome outcome = Run({"sign", Document(), "-o", file}, "87654321\n");
  EXPECT_EQ(outcome.exitCode, kFile);
  EXPECT_THAT(Run({"sign", Document()}, "87654321\n").err, HasSubstr("还有9次"));
}

TEST_F(Sign, AFullDiskExitsWith3) {
  PlugIn(SharedIdentities().Rsa());
  EXPECT_EQ(Run({"sign", Document(), "-o", "/dev/full"}, "12345678\n").exitCode, kFile);
}

TEST_F(Sign, AFailureLeavesTheEarlierOutputAndNothingElse) {
  PlugIn(SharedIdentities().Rsa());
  const std::string file = Have("signature", "earlier");
  Document();
  const auto before = FolderEntries();
  EXPECT_EQ(Run({"sign", Document(), "-o", file}, "87654321\n").exitCode, kPinFault);
  EXPECT_EQ(ReadText(file), "earlier");
  EXPECT_THAT(FolderEntries(), ::testing::UnorderedElementsAreArray(before));
}

TEST_F(Sign, OutputBehindALinkReplacesTheFileAndKeepsTheLink) {
  PlugIn(SharedIdentities().Rsa());
  const std::string file = Have("signature", "earlier");
  const std::string link = Folder().File("link");
  std::filesystem::create_symlink(file, link);
  EXPECT_EQ(Run({"sign", Document(), "-o", link}, "12345678\n").exitCode, kDone);
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_NE(ReadText(file), "earlier");
}

TEST_F(Sign, OutputHasTheUsualMode) {
  PlugIn(SharedIdentities().Rsa());
  const mode_t mask = umask(027);
  const std::string file = Folder().File("signature");
  Run({"sign", Document(), "-o", file}, "12345678\n");
  umask(mask);
  EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0640));
}

TEST_F(Sign, WithSeveralCertificatesListsThemAndTakesNone) {
  PlugInBoth();
  const Outcome outcome = Run({"sign", Document()}, "12345678\n");
  EXPECT_EQ(outcome.exitCode, kNoCertificate);
  EXPECT_THAT(outcome.err, HasSubstr(SharedIdentities().Rsa().serial + "  CN=张三"));
  EXPECT_THAT(outcome.err, HasSubstr(SharedIdentities().Sm2().serial + "  CN=李四"));
  EXPECT_THAT(outcome.err, HasSubstr("--cert SERIAL"));
}

TEST_F(Sign, AFilterMayLeaveOne) {
  PlugInBoth();
  EXPECT_EQ(Run({"sign", Document(), "--filter", "subject=李四"}, "12345678\n").exitCode, kDone);
}

TEST_F(Sign, TheSerialNumberIsFoundInEverySpelling) {
  PlugInBoth();
  const std::string serial = SharedIdentities().Rsa().serial;
  std::string spelled = "00";
  for (size_t i = 0; i < serial.size(); ++i) {
    if (i % 2 == 0) spelled += ':';
    spelled += static_cast<char>(tolower(static_cast<unsigned char>(serial[i])));
  }
  const Outcome outcome = Run({"sign", Document(), "--cert", spelled, "--p1"}, "12345678\n");
  EXPECT_EQ(outcome.exitCode, kDone) << outcome.err;
}

TEST_F(Sign, ACertificateThatIsMissingOrCannotSignIsToldApart) {
  const Identity encryption =
      SharedIdentities().Make("cannot-sign", "加密", false, "keyEncipherment");
  PlugIn(SharedIdentities().Rsa());
  PlugIn(encryption);
  const Outcome missing = Run({"sign", Document(), "--cert", "0A0B"}, "12345678\n");
  EXPECT_EQ(missing.exitCode, kNoCertificate);
  EXPECT_THAT(missing.err, HasSubstr("there is no certificate 0A0B"));
  const Outcome unable = Run({"sign", Document(), "--cert", encryption.serial}, "12345678\n");
  EXPECT_EQ(unable.exitCode, kNoCertificate);
  EXPECT_THAT(unable.err, HasSubstr("cannot sign"));
}
