#include "MarkupFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "Markup.h"

namespace {

class MarkupFile : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = ::testing::TempDir() + "markup.XXXXXX";
    ASSERT_NE(mkdtemp(&pattern[0]), nullptr);
    m_folder = pattern;
    m_file = m_folder + "/doc.xml";
  }
  void TearDown() override { std::filesystem::remove_all(m_folder); }

  void Write(const std::string& bytes) { std::ofstream(m_file, std::ios::binary) << bytes; }
  std::string Read() const {
    std::ifstream file(m_file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }
  int FilesInFolder() const {
    const std::filesystem::directory_iterator files(m_folder);
    return static_cast<int>(std::distance(begin(files), end(files)));
  }
  // The bytes of the UTF-8 text in that encoding, by the iconv program.
  std::string Encode(const std::string& utf8, const std::string& encoding) {
    const std::string in = m_folder + "/in", out = m_folder + "/out";
    std::ofstream(in, std::ios::binary) << utf8;
    const std::string command = "iconv -f UTF-8 -t " + encoding + " " + in + " > " + out;
    EXPECT_EQ(system(command.c_str()), 0) << encoding;
    std::ifstream file(out, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    std::filesystem::remove(in);
    std::filesystem::remove(out);
    return bytes;
  }

  std::string m_folder;
  std::string m_file;
};

struct Declared {
  const char* encoding;
  const char* content;  // UTF-8
  const wchar_t* wideContent;
};

constexpr Declared kDeclared[] = {
    {"UTF-8", "\xe4\xb8\xad\xf0\x9f\x98\x80", L"\x4e2d\U0001f600"},
    {"GB18030", "\xe4\xb8\xad\xe6\x96\x87\xf0\x9f\x98\x80\xc3\xa9", L"\x4e2d\x6587\U0001f600\xe9"},
    {"GBK", "\xe4\xb8\xad\xe6\x96\x87", L"\x4e2d\x6587"},
    {"gb2312", "\xe4\xb8\xad\xe6\x96\x87", L"\x4e2d\x6587"},
    {"Big5", "\xe4\xb8\xad\xe6\x96\x87", L"\x4e2d\x6587"},
    {"Shift_JIS", "\xe6\x97\xa5\xe6\x9c\xac\xef\xbd\xb1", L"\x65e5\x672c\xff71"},
    {"EUC-JP", "\xe6\x97\xa5\xe6\x9c\xac", L"\x65e5\x672c"},
    {"EUC-KR", "\xed\x95\x9c\xea\xb5\xad", L"\xd55c\xad6d"},
    {"ISO-2022-JP", "\xe6\x97\xa5\xe6\x9c\xac", L"\x65e5\x672c"},
    {"ISO-8859-1", "\xc3\xa9\xc3\xbf", L"\xe9\xff"},
    {"ISO-8859-5", "\xd0\x96", L"\x0416"},
    {"ISO-8859-15", "\xe2\x82\xac", L"\x20ac"},
    {"windows-1252", "\xe2\x82\xac\xc3\xa9", L"\x20ac\xe9"},
    {"KOI8-R", "\xd0\x96", L"\x0416"},
};

std::string DeclaredText(const Declared& c, int repeats) {
  std::string text = std::string("<?xml version='1.0' encoding='") + c.encoding + "'?><a>";
  for (int i = 0; i < repeats; ++i) text += c.content;
  return text + "</a>";
}

std::wstring DeclaredWide(const Declared& c, int repeats) {
  const std::string name = c.encoding;
  std::wstring text =
      L"<?xml version='1.0' encoding='" + std::wstring(name.begin(), name.end()) + L"'?><a>";
  for (int i = 0; i < repeats; ++i) text += c.wideContent;
  return text + L"</a>";
}

const std::string kPlain = "<a>\xe4\xb8\xad\xf0\x9f\x98\x80</a>";
constexpr wchar_t kPlainWide[] = L"<a>\x4e2d\U0001f600</a>";

}  // namespace

TEST_F(MarkupFile, DeclaredEncodingsAreReadAndWrittenBack) {
  for (const Declared& c : kDeclared) {
    for (const int repeats : {1, 30000}) {
      const std::string bytes = Encode(DeclaredText(c, repeats), c.encoding);
      Write(bytes);
      CMarkup doc;
      ASSERT_TRUE(doc.Load(m_file)) << c.encoding << doc.m_strResult.c_str();
      EXPECT_EQ(doc.GetDoc(), DeclaredWide(c, repeats)) << c.encoding;
      EXPECT_EQ(doc.GetError().find(L"lost"), std::wstring::npos);
      EXPECT_EQ(doc.m_nDocFlags, 0);
      ASSERT_TRUE(doc.Save(m_file));
      EXPECT_EQ(Read(), bytes) << c.encoding;
    }
  }
}

TEST_F(MarkupFile, BlocksMayEndInsideACharacter) {
  for (const Declared& c : kDeclared) {
    const std::string bytes = Encode(DeclaredText(c, 400), c.encoding);
    Write(bytes);
    for (int size = 1; size <= 33; ++size) {
      FilePos reader(0);
      reader.m_nBlockSizeBasis = size;
      std::wstring doc;
      ASSERT_TRUE(reader.FileOpenRead(m_file) && reader.FileReadText(doc));
      ASSERT_EQ(doc, DeclaredWide(c, 400)) << c.encoding << " in blocks of " << size;
      EXPECT_EQ(reader.m_nFileByteLen, static_cast<long long>(bytes.length()));
    }
  }
}

TEST_F(MarkupFile, UTF16BlocksMayEndInsideACharacter) {
  std::string text = "<a>";
  std::wstring wide = L"<a>";
  for (int i = 0; i < 500; ++i) {
    text += kPlain;
    wide += kPlainWide;
  }
  for (const char* const encoding : {"UTF-16LE", "UTF-16BE"}) {
    Write(Encode(text, encoding));
    for (int size = 1; size <= 33; ++size) {
      FilePos reader(0);
      reader.m_nBlockSizeBasis = size;
      std::wstring doc;
      ASSERT_TRUE(reader.FileOpenRead(m_file) && reader.FileReadText(doc));
      ASSERT_EQ(doc, wide) << encoding << " in blocks of " << size;
    }
  }
}

TEST_F(MarkupFile, AByteOrderMarkSetsItsFlagAndIsWrittenAgain) {
  const std::string be = Encode(kPlain, "UTF-16BE"), le = Encode(kPlain, "UTF-16LE");
  struct {
    std::string bytes;
    int flag;
  } const cases[] = {{"\xef\xbb\xbf" + kPlain, MDF_UTF8PREAMBLE},
                     {"\xff\xfe" + le, MDF_UTF16LEFILE},
                     {"\xfe\xff" + be, MDF_UTF16BEFILE}};
  for (const auto& c : cases) {
    Write(c.bytes);
    CMarkup doc;
    doc.m_nDocFlags = MDF_IGNORECASE | MDF_UTF16LEFILE | MDF_UTF8PREAMBLE;
    ASSERT_TRUE(doc.Load(m_file));
    EXPECT_EQ(doc.GetDoc(), kPlainWide);
    EXPECT_EQ(doc.m_nDocFlags, c.flag | MDF_IGNORECASE);
    ASSERT_TRUE(doc.Save(m_file));
    EXPECT_EQ(Read(), c.bytes);
  }
}

TEST_F(MarkupFile, UTF16WithoutMarkIsRecognised) {
  for (const bool little : {true, false}) {
    Write(Encode(kPlain, little ? "UTF-16LE" : "UTF-16BE"));
    CMarkup doc;
    ASSERT_TRUE(doc.Load(m_file));
    EXPECT_EQ(doc.GetDoc(), kPlainWide);
    EXPECT_EQ(doc.m_nDocFlags, little ? MDF_UTF16LEFILE : MDF_UTF16BEFILE);
  }
}

TEST_F(MarkupFile, UTF8WithoutDeclarationIsDetectedInTheWholeFile) {
  const std::string text = "<a>" + std::string(100000, 'x') + "\xe4\xb8\xad</a>";
  Write(text);
  CMarkup doc;
  ASSERT_TRUE(doc.Load(m_file));
  EXPECT_EQ(doc.GetDoc(), L"<a>" + std::wstring(100000, L'x') + L"\x4e2d</a>");
  EXPECT_NE(doc.GetError().find(L"(used UTF-8 detection)"), std::wstring::npos);
  ASSERT_TRUE(doc.Save(m_file));
  EXPECT_EQ(Read(), text);
}

TEST_F(MarkupFile, WhatIsNotUTF8IsTheSystemsEncoding) {
  Write("<a>\xff</a>");
  CMarkup doc;
  ASSERT_TRUE(doc.Load(m_file));
  EXPECT_EQ(doc.GetError().rfind(L"ANSI length 8 to UTF-32 length 8", 0), 0u) << doc.GetError();
}

TEST_F(MarkupFile, AWrongDeclarationIsNotFollowed) {
  for (const char* const encoding : {"UTF-16", "UTF-32", "no-such-encoding"}) {
    Write(std::string("<?xml encoding='") + encoding + "'?><a>\xe4\xb8\xad</a>");
    CMarkup doc;
    ASSERT_TRUE(doc.Load(m_file)) << encoding;
    EXPECT_NE(doc.GetDoc().find(L"\x4e2d"), std::wstring::npos) << encoding;
  }
}

TEST_F(MarkupFile, ZeroBytesAreRemovedAndCounted) {
  Write(std::string("<a>\0x\0\0</a>\0", 12));
  CMarkup doc;
  ASSERT_TRUE(doc.Load(m_file));
  EXPECT_EQ(doc.GetDoc(), L"<a>x</a>");
  EXPECT_NE(doc.m_strResult.find(L"<nulls_removed count=\"4\"/>"), std::wstring::npos);
  Write(std::string("\xff\xfe<\0a\0\0\0/\0>\0", 12));
  ASSERT_TRUE(doc.Load(m_file));
  EXPECT_EQ(doc.GetDoc(), L"<a/>");
  EXPECT_NE(doc.m_strResult.find(L"<nulls_removed count=\"1\"/>"), std::wstring::npos);
}

TEST_F(MarkupFile, AZeroByteInsideACharacterIsRemovedWhereverABlockEnds) {
  // Behind what tells the encoding, whose length no block changes.
  const std::string head = "<?xml version='1.0' encoding='GB18030'?><a>" + std::string(1024, 'x');
  Write(head + std::string("\xd6\0\xd0\x82\0\0\x30\x84\0\x36</a>", 14));
  for (int size = 1; size <= 20; ++size) {
    FilePos reader(0);
    reader.m_nBlockSizeBasis = size;
    std::wstring doc;
    ASSERT_TRUE(reader.FileOpenRead(m_file) && reader.FileReadText(doc));
    EXPECT_EQ(doc, std::wstring(head.begin(), head.end()) + L"\x4e2d\x34c7</a>") << size;
    EXPECT_NE(reader.m_strIOResult.find(L"<nulls_removed count=\"4\"/>"), std::wstring::npos);
  }
}

TEST_F(MarkupFile, AnInvalidByteAheadOfTheEndOfABlockIsMarkedLikeAnyOther) {
  const std::string head = "<?xml version='1.0' encoding='UTF-8'?><a>" + std::string(1024, 'x');
  Write(head + "R\xdd\xdd\xdd\xe4\xb8\xadS\xe4\xb8T\xdd</a>");
  for (int size = 1; size <= 20; ++size) {
    FilePos reader(0);
    reader.m_nBlockSizeBasis = size;
    std::wstring doc;
    ASSERT_TRUE(reader.FileOpenRead(m_file) && reader.FileReadText(doc));
    EXPECT_EQ(doc, std::wstring(head.begin(), head.end()) + L"R???\x4e2dS??T?</a>") << size;
  }
}

TEST_F(MarkupFile, AnAccentJoinsItsLetterWhereverABlockEnds) {
  const std::string head =
      "<?xml version='1.0' encoding='windows-1258'?><a>" + std::string(1024, 'x');
  Write(head +
        "e\xcc"
        "ae\xcc</a>");
  for (int size = 1; size <= 8; ++size) {
    FilePos reader(0);
    reader.m_nBlockSizeBasis = size;
    std::wstring doc;
    ASSERT_TRUE(reader.FileOpenRead(m_file) && reader.FileReadText(doc));
    EXPECT_EQ(doc, std::wstring(head.begin(), head.end()) +
                       L"\xe8"
                       L"a\xe8</a>")
        << size;
  }
}

TEST_F(MarkupFile, ACharacterCutOffByTheEndIsTold) {
  Write("\xef\xbb\xbf<a/>\xe4\xb8");
  CMarkup doc;
  EXPECT_TRUE(doc.Load(m_file));
  EXPECT_EQ(doc.GetDoc(), L"<a/>");
  EXPECT_NE(doc.GetError().find(L"encoding UTF-8 adjustment error"), std::wstring::npos);
  EXPECT_NE(doc.GetError().find(L"(chars lost in conversion!)"), std::wstring::npos);
  Write(std::string("\xfe\xff\0<\0a\0/\0>\0", 11));
  EXPECT_TRUE(doc.Load(m_file));
  EXPECT_EQ(doc.GetDoc(), L"<a/>");
  EXPECT_NE(doc.GetError().find(L"encoding UTF-16BE adjustment error"), std::wstring::npos);
}

TEST_F(MarkupFile, ReadingIsToldInOneSentence) {
  Write("\xef\xbb\xbf" + kPlain);
  CMarkup doc;
  ASSERT_TRUE(doc.Load(m_file));
  EXPECT_EQ(doc.GetError(), L"BOM + UTF-8 length 17 to UTF-32 length 9");
  Write("\xfe\xff" + Encode("<a/>", "UTF-16BE"));
  ASSERT_TRUE(doc.Load(m_file));
  EXPECT_EQ(doc.GetError(), L"BOM + UTF-16BE length 10 endian swap to UTF-32 length 4");
  Write("<a>");
  EXPECT_FALSE(doc.Load(m_file));
  EXPECT_EQ(doc.GetError(),
            L"UTF-8 length 3 to UTF-32 length 3 (used UTF-8 detection), "
            L"start tag 'a' at offset 0 expecting end tag at offset 3");
}

TEST_F(MarkupFile, WritingIsToldInOneSentence) {
  CMarkup doc(L"<?xml encoding='ISO-8859-1'?><a>\xe9\x4e2d</a>");
  ASSERT_TRUE(doc.Save(m_file));
  EXPECT_EQ(doc.GetError(),
            L"UTF-32 length 38 to ISO-8859-1 length 38 (chars lost in conversion!)");
  EXPECT_EQ(Read(), "<?xml encoding='ISO-8859-1'?><a>\xe9?</a>");
}

TEST_F(MarkupFile, TheEncodingWrittenFollowsFlagsThenDeclarationThenUTF8) {
  struct {
    const wchar_t* doc;
    int flags;
    std::string bytes;
  } const cases[] = {
      {L"<a>\xe9</a>", 0, "<a>\xc3\xa9</a>"},
      {L"<?xml encoding='x'?>\xe9", 0, "<?xml encoding='x'?>\xc3\xa9"},
      {L"<?xml encoding='latin1'?>\xe9", 0, "<?xml encoding='latin1'?>\xe9"},
      {L"<?xml encoding='latin1'?>\xe9", MDF_UTF8PREAMBLE,
       "\xef\xbb\xbf<?xml encoding='latin1'?>\xc3\xa9"},
      {L"<a/>", MDF_UTF16LEFILE, std::string("\xff\xfe<\0a\0/\0>\0", 10)},
      {L"<a/>", MDF_UTF16BEFILE, std::string("\xfe\xff\0<\0a\0/\0>", 10)},
      {L"", 0, ""},
      {L"", MDF_UTF16BEFILE, "\xfe\xff"},
  };
  for (const auto& c : cases) {
    CMarkup doc(c.doc);
    doc.m_nDocFlags = c.flags;
    ASSERT_TRUE(doc.Save(m_file));
    EXPECT_EQ(Read(), c.bytes);
  }
  CMarkup declared(L"<?xml encoding='UTF-16'?><a/>");
  ASSERT_TRUE(declared.Save(m_file));
  EXPECT_EQ(Read(), "\xfe\xff" + Encode("<?xml encoding='UTF-16'?><a/>", "UTF-16BE"));
}

TEST_F(MarkupFile, AnEmptyFileIsAnEmptyDocument) {
  Write("");
  CMarkup doc(L"<a/>");
  EXPECT_FALSE(doc.Load(m_file));
  EXPECT_EQ(doc.GetDoc(), L"");
  EXPECT_FALSE(doc.IsWellFormed());
  EXPECT_EQ(doc.m_strResult.find(L"no_root_element"), std::wstring::npos);
}

TEST_F(MarkupFile, AFileThatCannotBeReadLeavesTheDocument) {
  CMarkup doc(L"<a/>");
  EXPECT_FALSE(doc.Load(m_folder + "/missing.xml"));
  EXPECT_EQ(doc.GetDoc(), L"<a/>");
  EXPECT_TRUE(doc.FindElem(L"a"));
  EXPECT_EQ(doc.GetError(), L"No such file or directory");
  EXPECT_FALSE(doc.Load(m_folder));
  EXPECT_EQ(doc.GetError(), L"Is a directory");
  EXPECT_FALSE(doc.Load(std::wstring()));
}

TEST_F(MarkupFile, FileNamesMayBeWide) {
  const std::wstring name =
      std::wstring(m_folder.begin(), m_folder.end()) + L"/\x4e2d\U0001f600.xml";
  ASSERT_TRUE(CMarkup(L"<a/>").Save(name));
  EXPECT_TRUE(std::filesystem::exists(m_folder + "/\xe4\xb8\xad\xf0\x9f\x98\x80.xml"));
  EXPECT_TRUE(CMarkup().Load(name));
}

TEST_F(MarkupFile, FilesAreRefusedWhileOneIsReadOrWritten) {
  for (const int flag : {MDF_READFILE, MDF_WRITEFILE}) {
    Write("<b/>");
    CMarkup doc(L"<a/>");
    doc.m_nDocFlags = flag;
    EXPECT_FALSE(doc.Load(m_file));
    EXPECT_FALSE(doc.Save(m_file));
    EXPECT_EQ(doc.GetDoc(), L"<a/>");
    EXPECT_EQ(Read(), "<b/>");
  }
}

TEST_F(MarkupFile, AFullDiskKeepsTheOldFile) {
  if (geteuid() != 0) GTEST_SKIP() << "needs to mount a small file system";
  const std::string mount = "mount -t tmpfs -o size=16k tmpfs " + m_folder;
  if (system((mount + " 2>/dev/null").c_str()) != 0) GTEST_SKIP() << "mounting is not allowed";
  Write("<old/>");
  CMarkup doc(L"<a>" + std::wstring(100000, L'x') + L"</a>");
  EXPECT_FALSE(doc.Save(m_file));
  EXPECT_EQ(doc.GetError().substr(doc.GetError().rfind(L", ") + 2), L"No space left on device");
  EXPECT_EQ(Read(), "<old/>");
  EXPECT_EQ(FilesInFolder(), 1);
  EXPECT_EQ(system(("umount " + m_folder).c_str()), 0);
}

TEST_F(MarkupFile, AFileThatCannotBeWrittenIsAnError) {
  CMarkup doc(L"<a/>");
  EXPECT_FALSE(doc.Save(m_folder + "/missing/doc.xml"));
  EXPECT_NE(doc.GetError().find(L"No such file or directory"), std::wstring::npos);
  EXPECT_FALSE(doc.Save(m_folder));
  EXPECT_NE(doc.GetError().find(L"Is a directory"), std::wstring::npos);
  EXPECT_FALSE(doc.Save(std::string("/dev/full")));
  EXPECT_NE(doc.GetError().find(L"No space left on device"), std::wstring::npos);
  EXPECT_EQ(FilesInFolder(), 0);
}

TEST_F(MarkupFile, SavingKeepsPermissionsAndSymbolicLinks) {
  Write("<old/>");
  ASSERT_EQ(chmod(m_file.c_str(), 0640), 0);
  const std::string link = m_folder + "/link.xml";
  ASSERT_EQ(symlink("doc.xml", link.c_str()), 0);
  ASSERT_TRUE(CMarkup(L"<new/>").Save(link));
  EXPECT_EQ(Read(), "<new/>");
  struct stat status;
  ASSERT_EQ(lstat(link.c_str(), &status), 0);
  EXPECT_TRUE(S_ISLNK(status.st_mode));
  ASSERT_EQ(stat(m_file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
  EXPECT_EQ(FilesInFolder(), 2);
}

TEST_F(MarkupFile, APipeIsReadAndWritten) {
  const std::string pipe = m_folder + "/pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const std::wstring text = L"<a>" + std::wstring(200000, L'\x4e2d') + L"</a>";
  CMarkup doc;
  std::thread reader([&] { EXPECT_TRUE(doc.Load(pipe)); });
  EXPECT_TRUE(CMarkup(text).Save(pipe));
  reader.join();
  EXPECT_EQ(doc.GetDoc(), text);
}
