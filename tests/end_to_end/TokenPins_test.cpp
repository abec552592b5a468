// What is left of the PINs of a PKCS#11 token in the process that used them.
#include <gmock/gmock.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>

#include "MemoryScan.h"
#include "PinentryScript.h"
#include "Program.h"
#include "SoftHsm.h"
#include "Terminal.h"

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

const char kFirst[] = "Kiefernzapfen-47%-Waldweg";
const char kSecond[] = "Tannenzapfen-11%-Wiesenweg";
const char* const kTraces[] = {"Kiefernzapfen", "Waldweg", "Tannenzapfen", "Wiesenweg"};
const char kControl[] = "control-sheep";

std::vector<std::string> Traces() {
  std::vector<std::string> all;
  for (const char* const trace : kTraces) {
    const std::vector<std::string> forms = FormsOf(trace);
    all.insert(all.end(), forms.begin(), forms.end());
  }
  return all;
}

void ExpectNoTraceIn(pid_t process) {
  const std::vector<std::string> control = FormsOf(kControl);
  EXPECT_THAT(FoundInMemory(process, {control[0], control[2]}), SizeIs(2)) << "or none is found";
  EXPECT_THAT(FoundInMemory(process, Traces()), IsEmpty());
}

bool HoldsATrace(const std::string& content) {
  const std::vector<std::string> traces = Traces();
  return std::any_of(traces.begin(), traces.end(), [&content](const std::string& trace) {
    return content.find(trace) != std::string::npos;
  });
}

// Logs, what the token keeps, and whatever else lies about. The script gives a PIN.
void ExpectNoTraceInFiles(const std::vector<std::string>& folders, const std::string& script) {
  std::vector<std::filesystem::path> files;
  for (const auto& each : std::filesystem::directory_iterator("/tmp")) files.push_back(each);
  for (const std::string& folder : folders) {
    for (const auto& each : std::filesystem::recursive_directory_iterator(folder)) {
      files.push_back(each);
    }
  }
  EXPECT_GT(files.size(), 6u);
  for (const auto& file : files) {
    if (std::filesystem::is_regular_file(file) && file != script) {
      EXPECT_FALSE(HoldsATrace(ReadText(file))) << file;
    }
  }
}

}  // namespace

TEST(TokenPins, NothingOfThemStaysInMemoryAndFiles) {
  const SoftHsm hsm;
  const TemporaryFolder folder;
  OutputOf({"openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=user",
            "-days", "30", "-addext", "basicConstraints=CA:FALSE", "-set_serial", "0x0A1B",
            "-keyout", folder.File("key"), "-out", folder.File("certificate")});
  hsm.MakeToken("token");
  hsm.ImportKey("token", folder.File("key"), "01");
  hsm.ImportCertificate("token", folder.File("certificate"), "01");
  const PinentryScript script(folder.Path());
  script.Play({std::string("GETPIN pin ") + kSecond});

  Invocation host;
  host.command = {getenv("HOST"), SoftHsm::KeyList(), "0A1B", kControl};
  host.environment = {{"HOME", folder.Path()},
                      {"SOFTHSM2_CONF", getenv("SOFTHSM2_CONF")},
                      {"VEL_PINENTRY", FAKE_PINENTRY_PATH},
                      {"FAKE_PINENTRY", folder.Path()},
                      {"LC_ALL", "C.UTF-8"}};
  Terminal terminal(host);
  terminal.Type(std::string(SoftHsm::kPin) + "\n" + kFirst + "\n");
  terminal.WaitFor("changed 0x00000000");
  terminal.WaitFor("signed 0x00000000");
  terminal.Type(std::string(kSecond) + "\n");
  for (const char* const step :
       {"changed 0x00000000", "refused 0xE0000056", "wrapped 0x00000000"}) {
    terminal.WaitFor(step);
  }
  const std::string record = terminal.WaitFor("asked 0x00000000");
  EXPECT_THAT(record, HasSubstr("\"operation\":\"AskPin\""));
  EXPECT_FALSE(HoldsATrace(record));
  ExpectNoTraceIn(terminal.Child());
  terminal.Type("\n");
  terminal.WaitFor("closed");
  ExpectNoTraceIn(terminal.Child());
  const std::filesystem::path configuration = getenv("SOFTHSM2_CONF");
  ExpectNoTraceInFiles({folder.Path(), configuration.parent_path()}, script.File("script"));
  terminal.Type("\n");
  EXPECT_EQ(terminal.Finish().exitCode, 0);
}
