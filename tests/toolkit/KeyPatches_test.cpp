// Key patches on the disk, read once in a process. In the sandbox: the folders are fixed.
#include <filesystem>
#include <fstream>

#include "LogFile.h"
#include "Session.h"
#include "WriteLog.h"

namespace {

using testing::HasSubstr;
using testing::UnorderedElementsAre;
namespace fs = std::filesystem;

const std::string kPackage = VCTK_PACKAGE_ID;
const std::string kHostFolder = "/opt/apps/" + kPackage + "/files/QLM";
const std::string kSharedFolder = "/usr/local/vel/QLM";

void Write(const std::string& path, const std::string& text) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

std::string Lib(int version) {
  return "<lib version=\"" + std::to_string(version) + "\"/>";
}

class KeyPatches : public testing::Test {
 protected:
  void SetUp() override {
    setlocale(LC_ALL, "C.UTF-8");
    Fake() = FakeDevice();
    RemoveFolders();
  }
  void TearDown() override { RemoveFolders(); }

  static void RemoveFolders() {
    fs::remove_all("/opt/apps");
    fs::remove_all("/usr/local/vel");
    fs::remove("/tmp/PILog.txt");
  }

  static std::string Patch() {
    std::string text = "kept:";
    GetKeyPatchXml(text);
    return text;
  }

  static std::vector<DWORD> VersionsAfterInitialize(const char* xml = kKeyList) {
    CVELClientTKImp toolkit;
    EXPECT_TRUE(toolkit.Initialize(xml));
    std::vector<DWORD> versions;
    for (int i = 0; i < toolkit.m_KeyInfoList.GetCount(); ++i) {
      versions.push_back(DWORD(toolkit.m_KeyInfoList.GetItem(i).LibVersion));
    }
    toolkit.Finalize();
    return versions;
  }
};

using Versions = std::vector<DWORD>;

TEST_F(KeyPatches, WithoutTheFoldersThereAreNone) {
  EXPECT_EQ(Patch(), "kept:");
  Write("/opt/apps/" + kPackage + ".patch1/files/QLM/keypatch.xml", "A");
  Write("/usr/local/vel/QLM.patch1/keypatch.xml", "B");
  EXPECT_EQ(Patch(), "kept:");
}

TEST_F(KeyPatches, OfTheHostAreReadFromItsPatchFolders) {
  fs::create_directories(kHostFolder);
  Write("/opt/apps/" + kPackage + ".patch/files/QLM/keypatch.xml", "A");
  EXPECT_EQ(Patch(), "kept:A");
  Write("/opt/apps/x" + kPackage + ".patch2/files/QLM/keypatch.xml", "A");
  EXPECT_EQ(Patch(), "kept:AA");
}

TEST_F(KeyPatches, OfOtherPackagesAndMisplacedFilesDoNotCount) {
  fs::create_directories(kHostFolder);
  Write("/opt/apps/other.patch/files/QLM/keypatch.xml", "A");
  Write("/opt/apps/" + kPackage + ".patc/files/QLM/keypatch.xml", "B");
  Write("/opt/apps/" + kPackage + ".patch1/keypatch.xml", "C");
  Write("/opt/apps/" + kPackage + ".patch2", "a file, not a folder");
  fs::create_directories("/opt/apps/" + kPackage + ".patch3");
  EXPECT_EQ(Patch(), "kept:");
}

TEST_F(KeyPatches, OfTheMachineAreReadWhenTheHostHasNoFolder) {
  fs::create_directories(kSharedFolder);
  Write("/usr/local/vel/QLM.patch/keypatch.xml", "A");
  Write("/usr/local/vel/QLM.pat/keypatch.xml", "B");
  EXPECT_EQ(Patch(), "kept:A");
}

TEST_F(KeyPatches, OfTheHostHideThoseOfTheMachine) {
  fs::create_directories(kHostFolder);
  fs::create_directories(kSharedFolder);
  Write("/usr/local/vel/QLM.patch1/keypatch.xml", "B");
  EXPECT_EQ(Patch(), "kept:");
  Write("/opt/apps/" + kPackage + ".patch1/files/QLM/keypatch.xml", "A");
  EXPECT_EQ(Patch(), "kept:A");
}

TEST_F(KeyPatches, KeepAllButOneTrailingLineFeed) {
  fs::create_directories(kSharedFolder);
  Write("/usr/local/vel/QLM.patch1/keypatch.xml", "A\n\n");
  EXPECT_EQ(Patch(), "kept:A\n");
}

TEST_F(KeyPatches, AreAppendedInListingOrderWithoutASeparator) {
  fs::create_directories(kSharedFolder);
  for (int i = 0; i < 20; ++i) {
    Write("/usr/local/vel/QLM.patch" + std::to_string(i) + "/keypatch.xml",
          "[" + std::to_string(i) + "]\n");
  }
  std::string expected = "kept:";
  for (const std::string& folder : GetListFolders("/usr/local/vel/", "QLM.patch")) {
    expected += "[" + folder.substr(std::string("QLM.patch").size()) + "]";
  }
  EXPECT_GT(expected.size(), 60u);
  EXPECT_EQ(Patch(), expected);
}

TEST_F(KeyPatches, AreInsertedBeforeTheEndOfTheList) {
  fs::create_directories(kSharedFolder);
  Write("/usr/local/vel/QLM.patch1/keypatch.xml", Lib(77) + "\n");
  EXPECT_TRUE(HoldsInFreshProcess([] {
    EXPECT_EQ(VersionsAfterInitialize(), (Versions{16, 77}));
    EXPECT_EQ(VersionsAfterInitialize("<authinfo><liblist></liblist></authinfo>"), (Versions{77}));
  }));
}

TEST_F(KeyPatches, AreNotInsertedWhereTheListHasNoEndTag) {
  fs::create_directories(kSharedFolder);
  Write("/usr/local/vel/QLM.patch1/keypatch.xml", Lib(77));
  EXPECT_TRUE(HoldsInFreshProcess(
      [] { EXPECT_EQ(VersionsAfterInitialize("<authinfo><liblist/></authinfo>"), Versions{}); }));
}

TEST_F(KeyPatches, ThatAreIllFormedSpoilTheList) {
  fs::create_directories(kSharedFolder);
  Write("/usr/local/vel/QLM.patch1/keypatch.xml", "<lib>");
  EXPECT_TRUE(HoldsInFreshProcess([] {
    CVELClientTKImp toolkit;
    EXPECT_FALSE(toolkit.Initialize(kKeyList));
    EXPECT_EQ(toolkit.m_LastError, 0xE0000001u);
  }));
}

TEST_F(KeyPatches, AreReadOnceInAProcess) {
  fs::create_directories(kSharedFolder);
  Write("/usr/local/vel/QLM.patch1/keypatch.xml", Lib(1));
  EXPECT_TRUE(HoldsInFreshProcess([] {
    EXPECT_EQ(VersionsAfterInitialize(), (Versions{16, 1}));
    Write("/usr/local/vel/QLM.patch1/keypatch.xml", Lib(2));
    EXPECT_EQ(VersionsAfterInitialize(), (Versions{16, 1}));
    RemoveFolders();
    EXPECT_EQ(VersionsAfterInitialize(), (Versions{16, 1}));
  }));
}

TEST_F(KeyPatches, ThatComeAfterTheFirstSessionAreNotSeen) {
  EXPECT_TRUE(HoldsInFreshProcess([] {
    EXPECT_EQ(VersionsAfterInitialize(), (Versions{16}));
    fs::create_directories(kSharedFolder);
    Write("/usr/local/vel/QLM.patch1/keypatch.xml", Lib(1));
    EXPECT_EQ(VersionsAfterInitialize(), (Versions{16}));
  }));
}

TEST_F(KeyPatches, AreReadEvenByAFirstSessionThatFails) {
  fs::create_directories(kSharedFolder);
  Write("/usr/local/vel/QLM.patch1/keypatch.xml", Lib(1));
  EXPECT_TRUE(HoldsInFreshProcess([] {
    CVELClientTKImp toolkit;
    EXPECT_FALSE(toolkit.Initialize(nullptr));
    RemoveFolders();
    EXPECT_EQ(VersionsAfterInitialize(), (Versions{16, 1}));
  }));
}

TEST_F(KeyPatches, AreLoggedWithTheTextTheyGive) {
  fs::create_directories(kSharedFolder);
  Write("/usr/local/vel/QLM.patch1/keypatch.xml", Lib(9));
  EXPECT_TRUE(HoldsInFreshProcess([] {
    VersionsAfterInitialize("<authinfo><liblist></liblist></authinfo>");
    const std::string line =
        "KeyXML After appling patch: <authinfo><liblist>" + Lib(9) + "</liblist></authinfo>";
    EXPECT_THAT(LogOnceItHas(line), HasSubstr("[INFO] ["));
    VersionsAfterInitialize("<authinfo><liblist/></authinfo>");
    EXPECT_NE(LogOnceItHas("KeyXML After appling patch: <authinfo><liblist/></authinfo>"), "");
  }));
}

TEST_F(KeyPatches, NothingIsLoggedWithoutThem) {
  EXPECT_TRUE(HoldsInFreshProcess([] {
    CVELClientTKImp toolkit;
    EXPECT_TRUE(toolkit.Initialize(kKeyList));
    int length = 0;
    toolkit.GetLastErrorMessage(nullptr, &length);
    EXPECT_EQ(LogOnceItHas("获取错误信息描述").find("KeyXML"), std::string::npos);
    toolkit.Finalize();
  }));
}

class Listing : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories("/tmp/listing/folder.one");
    fs::create_directories("/tmp/listing/folder.two/below");
    Write("/tmp/listing/file.one", "");
    Write("/tmp/listing/.hidden", "");
  }
  void TearDown() override { fs::remove_all("/tmp/listing"); }
};

TEST_F(Listing, GivesTheNamesOfFilesOrFolders) {
  EXPECT_THAT(GetListFiles("/tmp/listing", "*"), UnorderedElementsAre("file.one", ".hidden"));
  EXPECT_THAT(GetListFolders("/tmp/listing", "*"),
              UnorderedElementsAre("folder.one", "folder.two"));
}

TEST_F(Listing, APatternIsAPartOfTheName) {
  EXPECT_THAT(GetListFiles("/tmp/listing/", "one"), UnorderedElementsAre("file.one"));
  EXPECT_THAT(GetListFolders("/tmp/listing/", "one"), UnorderedElementsAre("folder.one"));
  EXPECT_THAT(GetListFolders("/tmp/listing/", "lder."),
              UnorderedElementsAre("folder.one", "folder.two"));
  EXPECT_THAT(GetListFolders("/tmp/listing/", "folder*"), UnorderedElementsAre());
  EXPECT_THAT(GetListFolders("/tmp/listing/", "ONE"), UnorderedElementsAre());
}

TEST_F(Listing, OfAFolderThatCannotBeOpenedIsEmpty) {
  EXPECT_THAT(GetListFiles("/tmp/no such folder", "*"), UnorderedElementsAre());
  EXPECT_THAT(GetListFolders("/tmp/listing/file.one", "*"), UnorderedElementsAre());
}

TEST_F(Listing, FileContentDropsOneLineFeedAtTheEnd) {
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"a", "a"},
      {"a\n", "a"},
      {"a\n\n", "a\n"},
      {"\n", ""},
      {"a\r\n", "a\r"},
      {std::string("a\0b\n", 4), std::string("a\0b", 3)}};
  for (const auto& [text, expected] : cases) {
    Write("/tmp/listing/content", text);
    EXPECT_EQ(GetFileContent("/tmp/listing/content"), expected);
  }
  EXPECT_EQ(GetFileContent("/tmp/listing/missing"), "");
  EXPECT_EQ(GetFileContent("/tmp/listing/folder.one"), "");
}

}  // namespace
