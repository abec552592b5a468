// The key-list document: what each element and attribute gives, and what is refused.
#include <fstream>
#include <iterator>
#include <vector>

#include "Session.h"

namespace {

// The XML blocks of the page for those who write key lists, in their order.
std::vector<std::string> BlocksOfThePage() {
  std::ifstream file(KEY_LIST_PAGE);
  const std::string page(std::istreambuf_iterator<char>(file), {});
  const std::string begin = "```xml\n", end = "```\n";
  std::vector<std::string> blocks;
  for (size_t at = page.find(begin); at != std::string::npos; at = page.find(begin, at)) {
    at += begin.length();
    blocks.push_back(page.substr(at, page.find(end, at) - at));
  }
  return blocks;
}

const ULONG kGeneralFailure = 0xE0000001;

class KeyList : public NoSession {
 protected:
  // The entry that one "lib" element gives.
  tag_VEL_KEY_INFO_EX EntryOf(const std::string& lib) {
    EXPECT_EQ(SetKeyInfo("<authinfo><liblist>" + lib + "</liblist></authinfo>"), 0u) << lib;
    EXPECT_EQ(Count(), 1) << lib;
    const tag_VEL_KEY_INFO_EX entry =
        Count() == 1 ? m_toolkit.m_KeyInfoList.GetItem(0) : tag_VEL_KEY_INFO_EX();
    m_toolkit.m_KeyInfoList.Clear();
    return entry;
  }

  ULONG SetKeyInfo(const std::string& xml) { return m_toolkit.SetKeyInfo(xml.c_str()); }
  long Count() { return m_toolkit.m_KeyInfoList.GetCount(); }
};

TEST_F(KeyList, ALibWithoutAttributesHasTheDefaults) {
  const tag_VEL_KEY_INFO_EX key = EntryOf("<lib/>");
  EXPECT_EQ(DWORD(key.KeyInfoVersion), 0x10000u);
  EXPECT_EQ(key.CryptoInterfaceType, VEL_CRYPTO_INTERFACE_TYPE_CSP);
  EXPECT_STREQ(key.InterfaceLibName, "");
  EXPECT_EQ(DWORD(key.LibVersion), 0u);
  EXPECT_EQ(key.LibIs64Bit, FALSE);
  EXPECT_EQ(key.RSAHashALg, VEL_HASH_ALG_UNKNOWN);
  EXPECT_EQ(key.SM2HashALg, VEL_HASH_ALG_UNKNOWN);
  EXPECT_EQ(ULONG(key.Reference), 1u);
  EXPECT_EQ(key.PVIDEnable, FALSE);
  EXPECT_STREQ(key.PVID, "");
}

TEST_F(KeyList, ALibWithATypeAloneHasNoNameAndNoHashes) {
  const tag_VEL_KEY_INFO_EX key = EntryOf("<lib type=\"SKF\"/>");
  EXPECT_EQ(key.CryptoInterfaceType, VEL_CRYPTO_INTERFACE_TYPE_SKF);
  EXPECT_STREQ(key.InterfaceLibName, "");
  EXPECT_EQ(key.RSAHashALg, VEL_HASH_ALG_UNKNOWN);
  EXPECT_EQ(key.SM2HashALg, VEL_HASH_ALG_UNKNOWN);
}

TEST_F(KeyList, ACompleteLibFillsEveryField) {
  const tag_VEL_KEY_INFO_EX key = EntryOf(
      "<lib type=\"p11_ga_nom\" version=\"3\" dllname=\"bGlicDExLnNv\">"
      "<algid val=\"sha512\" sm2_hashalg=\"sm3\"/><pvid enable=\"1\" val=\"VklEXzEyMzQ=\"/></lib>");
  EXPECT_EQ(key.CryptoInterfaceType, VEL_CRYPTO_INTERFACE_TYPE_P11_GA_NOM);
  EXPECT_EQ(DWORD(key.LibVersion), 3u);
  EXPECT_STREQ(key.InterfaceLibName, "libp11.so");
  EXPECT_EQ(key.RSAHashALg, VEL_HASH_ALG_SHA512);
  EXPECT_EQ(key.SM2HashALg, VEL_HASH_ALG_SM3);
  EXPECT_EQ(key.PVIDEnable, TRUE);
  EXPECT_STREQ(key.PVID, "VID_1234");
}

TEST_F(KeyList, AnUnknownTypeIsNoneAndAnEmptyOneTheDefault) {
  EXPECT_EQ(EntryOf("<lib type=\"XYZ\"/>").CryptoInterfaceType, VEL_CRYPTO_INTERFACE_TYPE_UNKNOWN);
  EXPECT_EQ(EntryOf("<lib type=\"\"/>").CryptoInterfaceType, VEL_CRYPTO_INTERFACE_TYPE_CSP);
}

TEST_F(KeyList, TheVersionIsANumberOfAutomaticBase) {
  const std::pair<const char*, DWORD> cases[] = {{"0x10", 16},  {"010", 8},   {"10", 10},
                                                 {"0xFF", 255}, {"0", 0},     {"", 0},
                                                 {"x", 0},      {"12abc", 12}};
  for (const auto& [text, number] : cases) {
    const std::string lib = std::string("<lib version=\"") + text + "\"/>";
    EXPECT_EQ(DWORD(EntryOf(lib).LibVersion), number) << text;
  }
}

TEST_F(KeyList, TheSm2HashFollowsTheRsaHashWhenItIsNotGiven) {
  const tag_VEL_KEY_INFO_EX key = EntryOf("<lib><algid val=\"SHA256\"/></lib>");
  EXPECT_EQ(key.RSAHashALg, VEL_HASH_ALG_SHA256);
  EXPECT_EQ(key.SM2HashALg, VEL_HASH_ALG_SHA256);
  const tag_VEL_KEY_INFO_EX empty = EntryOf("<lib><algid val=\"MD5\" sm2_hashalg=\"\"/></lib>");
  EXPECT_EQ(empty.SM2HashALg, VEL_HASH_ALG_MD5);
}

TEST_F(KeyList, TheRsaHashDoesNotFollowTheSm2Hash) {
  const tag_VEL_KEY_INFO_EX key = EntryOf("<lib><algid sm2_hashalg=\"SM3\"/></lib>");
  EXPECT_EQ(key.RSAHashALg, VEL_HASH_ALG_UNKNOWN);
  EXPECT_EQ(key.SM2HashALg, VEL_HASH_ALG_SM3);
}

TEST_F(KeyList, UnknownHashesAreNone) {
  const tag_VEL_KEY_INFO_EX key =
      EntryOf("<lib><algid val=\"SHA-256\" sm2_hashalg=\"SM3 \"/></lib>");
  EXPECT_EQ(key.RSAHashALg, VEL_HASH_ALG_UNKNOWN);
  EXPECT_EQ(key.SM2HashALg, VEL_HASH_ALG_UNKNOWN);
}

TEST_F(KeyList, OnlyAnExactOneTurnsTheVendorFilterOn) {
  for (const char* off : {"true", "TRUE", "01", "1 ", "0", "", "yes", "11"}) {
    const std::string lib = std::string("<lib><pvid enable=\"") + off + "\"/></lib>";
    EXPECT_EQ(EntryOf(lib).PVIDEnable, FALSE) << off;
  }
  EXPECT_EQ(EntryOf("<lib><pvid enable=\"1\"/></lib>").PVIDEnable, TRUE);
}

TEST_F(KeyList, TheVendorTextIsReadWhetherTheFilterIsOnOrOff) {
  const tag_VEL_KEY_INFO_EX key = EntryOf("<lib><pvid val=\"VklEXzEyMzQ=\"/></lib>");
  EXPECT_EQ(key.PVIDEnable, FALSE);
  EXPECT_STREQ(key.PVID, "VID_1234");
}

TEST_F(KeyList, AlgidAndPvidComeInAnyOrder) {
  for (const char* children :
       {"<algid val=\"SHA1\"/><pvid enable=\"1\"/>", "<pvid enable=\"1\"/><algid val=\"SHA1\"/>",
        "<other/><pvid enable=\"1\"/><other/><algid val=\"SHA1\"/><other/>"}) {
    const tag_VEL_KEY_INFO_EX key = EntryOf(std::string("<lib>") + children + "</lib>");
    EXPECT_EQ(key.RSAHashALg, VEL_HASH_ALG_SHA1) << children;
    EXPECT_EQ(key.PVIDEnable, TRUE) << children;
  }
}

// Base64 of 3000 and 48 letters "a": "YWFh" for every three.
std::string LettersInBase64(int groups) {
  std::string text;
  for (int i = 0; i < groups; ++i) text += "YWFh";
  return text;
}

TEST_F(KeyList, TooLongTextsAreCutAndTerminated) {
  const tag_VEL_KEY_INFO_EX key = EntryOf("<lib dllname=\"" + LettersInBase64(1000) +
                                          "\"><pvid val=\"" + LettersInBase64(16) + "\"/></lib>");
  EXPECT_EQ(std::string(key.InterfaceLibName), std::string(1023, 'a'));
  EXPECT_EQ(std::string(key.PVID), std::string(31, 'a'));
}

// "YWIAY2Q=" is base64 of a, b, zero, c, d.
TEST_F(KeyList, DecodedTextsEndAtTheirFirstZeroByte) {
  const tag_VEL_KEY_INFO_EX key = EntryOf("<lib dllname=\"YWIAY2Q=\"/>");
  EXPECT_EQ(std::string(key.InterfaceLibName), "ab");
  EXPECT_EQ(std::string(key.InterfaceLibName + 3, 2), std::string(2, '\0'));
}

TEST_F(KeyList, Base64ThatDecodesToNothingIsAnEmptyName) {
  for (const char* rubbish : {"====", "!?!", "A", ""}) {
    const std::string lib = std::string("<lib dllname=\"") + rubbish + "\"/>";
    EXPECT_STREQ(EntryOf(lib).InterfaceLibName, "") << rubbish;
  }
}

TEST_F(KeyList, AttributesAreUnescaped) {
  EXPECT_STREQ(EntryOf("<lib dllname=\"bGlic2tm&#76;nNv\"/>").InterfaceLibName, "libskf.so");
}

TEST_F(KeyList, NamesAreCaseSensitive) {
  EXPECT_EQ(EntryOf("<lib TYPE=\"SKF\"/>").CryptoInterfaceType, VEL_CRYPTO_INTERFACE_TYPE_CSP);
  EXPECT_EQ(EntryOf("<lib><Algid val=\"SHA1\"/></lib>").RSAHashALg, VEL_HASH_ALG_UNKNOWN);
  EXPECT_EQ(SetKeyInfo("<authinfo><liblist><LIB type=\"SKF\"/></liblist></authinfo>"), 0u);
  EXPECT_EQ(Count(), 0);
  EXPECT_EQ(SetKeyInfo("<AuthInfo><liblist/></AuthInfo>"), kGeneralFailure);
}

TEST_F(KeyList, EntriesComeInDocumentOrder) {
  EXPECT_EQ(SetKeyInfo("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- keys -->\n"
                       "<authinfo>\n <note/>\n <liblist>\n  <lib version=\"1\"/>\n  <other/>\n"
                       "  <lib version=\"2\"><algid val=\"SHA1\"/></lib>\n  <!-- --> "
                       "<lib version=\"3\"></lib>\n </liblist>\n</authinfo>\n"),
            0u);
  ASSERT_EQ(Count(), 3);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(DWORD(m_toolkit.m_KeyInfoList.GetItem(i).LibVersion), DWORD(i + 1));
  }
}

TEST_F(KeyList, AFurtherListIsAppended) {
  EXPECT_EQ(SetKeyInfo("<authinfo><liblist><lib/></liblist></authinfo>"), 0u);
  EXPECT_EQ(SetKeyInfo("<authinfo><liblist><lib/><lib/></liblist></authinfo>"), 0u);
  EXPECT_EQ(Count(), 3);
}

// The list keeps copies; the filter of an entry is in force all the same.
TEST_F(KeyList, TheListKeepsTheVendorFilterOfItsEntries) {
  SetKeyInfo(
      "<authinfo><liblist><lib><pvid enable=\"1\" val=\"VklEXzEyMzQ=\"/></lib><lib/>"
      "</liblist></authinfo>");
  ASSERT_EQ(Count(), 2);
  EXPECT_EQ(m_toolkit.m_KeyInfoList.GetItem(0).PVIDEnable, TRUE);
  EXPECT_STREQ(m_toolkit.m_KeyInfoList.GetItem(0).PVID, "VID_1234");
  EXPECT_EQ(m_toolkit.m_KeyInfoList.GetItem(1).PVIDEnable, FALSE);
}

TEST_F(KeyList, AnEmptyLiblistIsAccepted) {
  EXPECT_EQ(SetKeyInfo("<authinfo><liblist></liblist></authinfo>"), 0u);
  EXPECT_EQ(SetKeyInfo("<authinfo><liblist/></authinfo>"), 0u);
  EXPECT_EQ(Count(), 0);
}

TEST_F(KeyList, WhatIsNoKeyListIsRefused) {
  EXPECT_EQ(m_toolkit.SetKeyInfo(nullptr), kGeneralFailure);
  for (const char* text :
       {"", " ", "rubbish", "<authinfo>", "<authinfo><liblist></authinfo>",
        "<authinfo><liblist></liblist>", "<authinfo></authinfo>", "<liblist></liblist>",
        "<root><authinfo><liblist/></authinfo></root>", "<authinfo/><liblist/>",
        "<authinfo><deeper><liblist/></deeper></authinfo>",
        "\xFF\xFE<authinfo><liblist/></authinfo>"}) {
    EXPECT_EQ(SetKeyInfo(text), kGeneralFailure) << text;
  }
  EXPECT_EQ(Count(), 0);
}

TEST_F(KeyList, ThePageForItsWritersShowsWhatIsReadAndWhatIsRefused) {
  const std::vector<std::string> blocks = BlocksOfThePage();
  ASSERT_EQ(blocks.size(), 5u);
  for (int i = 1; i <= 3; ++i) EXPECT_EQ(SetKeyInfo(blocks[i]), kGeneralFailure) << blocks[i];
  ASSERT_EQ(Count(), 0);
  ASSERT_EQ(SetKeyInfo(blocks[0]), 0u);
  ASSERT_EQ(Count(), 3);
  const tag_VEL_KEY_INFO_EX skf = m_toolkit.m_KeyInfoList.GetItem(0);
  EXPECT_EQ(skf.CryptoInterfaceType, VEL_CRYPTO_INTERFACE_TYPE_SKF);
  EXPECT_STREQ(skf.InterfaceLibName, "libskf_demo.so");
  EXPECT_EQ(DWORD(skf.LibVersion), 16u);
  EXPECT_EQ(skf.RSAHashALg, VEL_HASH_ALG_SHA256);
  EXPECT_EQ(skf.SM2HashALg, VEL_HASH_ALG_SM3);
  EXPECT_EQ(skf.PVIDEnable, TRUE);
  EXPECT_STREQ(skf.PVID, "VID_1234&PID_5678");
  const tag_VEL_KEY_INFO_EX p11 = m_toolkit.m_KeyInfoList.GetItem(1);
  EXPECT_EQ(p11.CryptoInterfaceType, VEL_CRYPTO_INTERFACE_TYPE_P11);
  EXPECT_STREQ(p11.InterfaceLibName, "/opt/demo/lib/libp11_demo.so");
  EXPECT_EQ(p11.SM2HashALg, VEL_HASH_ALG_SHA256);
  const tag_VEL_KEY_INFO_EX files = m_toolkit.m_KeyInfoList.GetItem(2);
  EXPECT_EQ(files.CryptoInterfaceType, VEL_CRYPTO_INTERFACE_TYPE_CSP);
  EXPECT_STREQ(files.InterfaceLibName, "");
  EXPECT_EQ(files.RSAHashALg, VEL_HASH_ALG_SHA1);
  // The patch is read where the list ends.
  std::string patched = blocks[0];
  patched.insert(patched.find("</liblist>"), blocks[4]);
  ASSERT_EQ(SetKeyInfo(patched), 0u);
  ASSERT_EQ(Count(), 7);
  EXPECT_STREQ(m_toolkit.m_KeyInfoList.GetItem(6).InterfaceLibName, "libskf_demo.so");
}

TEST_F(KeyList, AHugeListIsReadWhole) {
  std::string xml = "<authinfo><liblist>";
  for (int i = 0; i < 5000; ++i)
    xml += "<lib type=\"SKF\" version=\"" + std::to_string(i + 1) + "\"/>";
  EXPECT_EQ(SetKeyInfo(xml + "</liblist></authinfo>"), 0u);
  ASSERT_EQ(Count(), 5000);
  EXPECT_EQ(DWORD(m_toolkit.m_KeyInfoList.GetItem(4999).LibVersion), 5000u);
}

TEST_F(KeyList, TheDefaultKeyIsAllZeroButForTypeAndHashes) {
  m_toolkit.SetDefaultKeyInfo();
  ASSERT_EQ(Count(), 1);
  const tag_VEL_KEY_INFO_EX& key = m_toolkit.m_KeyInfoList.GetItem(0);
  EXPECT_EQ(DWORD(key.KeyInfoVersion), 0u);
  EXPECT_EQ(ULONG(key.Reference), 0u);
  EXPECT_EQ(key.CryptoInterfaceType, VEL_CRYPTO_INTERFACE_TYPE_CSP);
  EXPECT_EQ(key.RSAHashALg, VEL_HASH_ALG_SHA1);
  EXPECT_EQ(key.SM2HashALg, VEL_HASH_ALG_SM3);
  EXPECT_STREQ(key.InterfaceLibName, "");
  EXPECT_EQ(DWORD(key.LibVersion), 0u);
  EXPECT_EQ(key.LibIs64Bit, FALSE);
  EXPECT_EQ(key.PVIDEnable, FALSE);
  EXPECT_STREQ(key.PVID, "");
}

TEST_F(KeyList, TheDefaultKeyIsForAnEmptyListOnly) {
  m_toolkit.SetDefaultKeyInfo();
  m_toolkit.SetDefaultKeyInfo();
  EXPECT_EQ(Count(), 1);
  m_toolkit.m_KeyInfoList.Clear();
  SetKeyInfo("<authinfo><liblist><lib/></liblist></authinfo>");
  m_toolkit.SetDefaultKeyInfo();
  EXPECT_EQ(Count(), 1);
  EXPECT_EQ(ULONG(m_toolkit.m_KeyInfoList.GetItem(0).Reference), 1u);
}

}  // namespace
