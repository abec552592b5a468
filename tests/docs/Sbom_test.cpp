// The bill of materials, by the rules of SPDX 2.3 and by what other programs say of the files.
#include <ctype.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>

#include "Program.h"

using nlohmann::json;
using ::testing::Contains;
using ::testing::MatchesRegex;

namespace {

std::vector<std::string> Built() {
  std::vector<std::string> files = {"lib/libVELInterface64.so", "lib/libVELClientTK64.so",
                                    "lib/libVELCrypto64.so", "bin/vctk"};
  const std::string dialog = "bin/vctk-choose-certificate";  // built where Qt is
  if (std::filesystem::exists(std::string(BUILD "/") + dialog)) files.push_back(dialog);
  return files;
}

const json& Document() {
  static const json document = json::parse(ReadText(SBOM));
  return document;
}

const json& PackageOf(const std::string& name) {
  for (const json& package : Document()["packages"]) {
    if (package["name"] == name) return package;
  }
  throw std::runtime_error("no package " + name);
}

std::string NameOf(const std::string& file) {
  return file.substr(file.rfind('/') + 1);
}

// The names of the packages that stand in that relation.
std::set<std::string> Related(const std::string& id, const std::string& kind) {
  std::set<std::string> names;
  for (const json& relation : Document()["relationships"]) {
    if (relation["spdxElementId"] != id || relation["relationshipType"] != kind) continue;
    for (const json& package : Document()["packages"]) {
      if (package["SPDXID"] == relation["relatedSpdxElement"]) names.insert(package["name"]);
    }
  }
  return names;
}

std::set<std::string> Needed(const std::string& file) {
  const std::string dynamic = OutputOf({READELF, "-d", file});
  const std::regex entry("NEEDED.*\\[(.*)\\]");
  std::set<std::string> names;
  for (std::sregex_iterator at(dynamic.begin(), dynamic.end(), entry), end; at != end; ++at) {
    names.insert((*at)[1]);
  }
  return names;
}

// By Debian's rule, "libfoo.so.1" comes with "libfoo1"; what comes with another library is told
// here.
std::string DebianNameOf(const std::string& library) {
  if (library.rfind("libVEL", 0) == 0) return library;
  if (library.rfind("ld-linux", 0) == 0 || library == "libm.so.6") return "libc6";
  if (library == "libcrypto.so.3") return "libssl3";
  if (library == "libgcc_s.so.1") return "libgcc-s1";
  std::string name = std::regex_replace(library, std::regex("\\.so\\.([0-9]+).*"), "$1");
  for (char& letter : name) letter = static_cast<char>(tolower(letter));
  return name;
}

}  // namespace

TEST(Sbom, HasTheFieldsThatSpdxAsksFor) {
  EXPECT_EQ(Document()["spdxVersion"], "SPDX-2.3");
  EXPECT_EQ(Document()["dataLicense"], "CC0-1.0");
  EXPECT_EQ(Document()["SPDXID"], "SPDXRef-DOCUMENT");
  EXPECT_EQ(Document()["name"], "vctk-" VERSION);
  EXPECT_THAT(Document()["documentNamespace"].get<std::string>(),
              MatchesRegex("urn:uuid:[0-9a-f-]{36}"));
  EXPECT_THAT(Document()["creationInfo"]["created"].get<std::string>(),
              MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z"));
  EXPECT_THAT(Document()["creationInfo"]["creators"][0].get<std::string>(),
              MatchesRegex("Tool: .+"));
  for (const json& package : Document()["packages"]) {
    for (const char* field : {"name", "versionInfo", "downloadLocation", "licenseConcluded",
                              "licenseDeclared", "copyrightText", "supplier"}) {
      EXPECT_TRUE(package.contains(field) && package[field] != "") << package << field;
    }
    EXPECT_EQ(package["filesAnalyzed"], false);
  }
}

TEST(Sbom, IdentifiersAreValidAndMeanOneThing) {
  std::set<std::string> ids = {"SPDXRef-DOCUMENT"};
  for (const json& package : Document()["packages"]) {
    EXPECT_THAT(package["SPDXID"].get<std::string>(), MatchesRegex("SPDXRef-[A-Za-z0-9.-]+"));
    EXPECT_TRUE(ids.insert(package["SPDXID"]).second) << package["SPDXID"];
  }
  std::set<std::string> relations;
  for (const json& relation : Document()["relationships"]) {
    EXPECT_THAT(ids, Contains(relation["spdxElementId"].get<std::string>()));
    EXPECT_THAT(ids, Contains(relation["relatedSpdxElement"].get<std::string>()));
    EXPECT_TRUE(relations.insert(relation.dump()).second) << relation;
  }
}

TEST(Sbom, DescribesWhatWasBuiltWithItsHash) {
  const std::set<std::string> described = Related("SPDXRef-DOCUMENT", "DESCRIBES");
  for (const std::string& file : Built()) {
    EXPECT_THAT(described, Contains(NameOf(file)));
    const json& package = PackageOf(NameOf(file));
    EXPECT_EQ(package["versionInfo"], VERSION);
    EXPECT_EQ(package["licenseConcluded"], "Apache-2.0");
    EXPECT_EQ(package["checksums"][0]["algorithm"], "SHA256");
    EXPECT_EQ(package["checksums"][0]["checksumValue"],
              OutputOf({"sha256sum", std::string(BUILD "/") + file}).substr(0, 64));
  }
}

TEST(Sbom, EveryLibraryThatIsLinkedHasAPackage) {
  for (const std::string& file : Built()) {
    const std::set<std::string> linked = Related(PackageOf(NameOf(file))["SPDXID"], "DYNAMIC_LINK");
    for (const std::string& name : Needed(std::string(BUILD "/") + file)) {
      EXPECT_THAT(linked, Contains(::testing::StartsWith(DebianNameOf(name)))) << file << name;
    }
  }
}

TEST(Sbom, DebianPackagesHaveTheVersionThatIsInstalledAndALicence) {
  int count = 0;
  for (const json& package : Document()["packages"]) {
    if (package["supplier"] != "Organization: Debian") continue;
    const std::string name = package["name"];
    const std::string version = OutputOf({"dpkg-query", "-W", "-f", "${Version}\n", name + "*"});
    EXPECT_THAT(version, ::testing::HasSubstr(package["versionInfo"].get<std::string>() + "\n"));
    EXPECT_NE(package["licenseConcluded"], "NOASSERTION")
        << "put the licence of " << name << " into docs/sbom/sbom.cmake";
    EXPECT_EQ(
        package["externalRefs"][0]["referenceLocator"].get<std::string>().rfind("pkg:deb/", 0), 0u);
    ++count;
  }
  EXPECT_GE(count, 5);
  EXPECT_THAT(Related("SPDXRef-vctk", "STATIC_LINK"), Contains("libcli11-dev"));
}
