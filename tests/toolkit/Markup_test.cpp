#include "Markup.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "MarkupOutline.h"

namespace {

constexpr wchar_t kLibrary[] =
    L"<?xml version='1.0'?><authinfo><liblist><lib type='SKF'/><lib type=\"PM\"><algid val='1'/>"
    L"<algid val='2'/></lib></liblist></authinfo>";

struct Triple {
  int parent, pos, child;
  bool operator==(const Triple& other) const {
    return parent == other.parent && pos == other.pos && child == other.child;
  }
};

Triple Position(const CMarkup& doc) {
  return {doc.m_iPosParent, doc.m_iPos, doc.m_iPosChild};
}

}  // namespace

TEST(Markup, FlagValuesAreFixed) {
  EXPECT_EQ(CMarkup::MDF_UTF16LEFILE, 1);
  EXPECT_EQ(CMarkup::MDF_UTF8PREAMBLE, 4);
  EXPECT_EQ(CMarkup::MDF_IGNORECASE, 8);
  EXPECT_EQ(CMarkup::MDF_READFILE, 16);
  EXPECT_EQ(CMarkup::MDF_WRITEFILE, 32);
  EXPECT_EQ(CMarkup::MDF_APPENDFILE, 64);
  EXPECT_EQ(CMarkup::MDF_UTF16BEFILE, 128);
  EXPECT_EQ(MNF_WITHCDATA, 1);
  EXPECT_EQ(MNF_WITHNOLINES, 2);
  EXPECT_EQ(MNF_WITHXHTMLSPACE, 4);
  EXPECT_EQ(MNF_WITHREFS, 8);
  EXPECT_EQ(MNF_WITHNOEND, 16);
  EXPECT_EQ(MNF_ESCAPEQUOTES, 256);
  EXPECT_EQ(MNF_NONENDED, 0x100000);
  EXPECT_EQ(MNF_ILLDATA, 0x200000);
  EXPECT_EQ(MNF_REPLACE, 0x1000);
  EXPECT_EQ(MNF_INSERT, 0x2000);
  EXPECT_EQ(MNF_CHILD, 0x4000);
  EXPECT_EQ(MNF_QUOTED, 0x8000);
  EXPECT_EQ(MNF_EMPTY, 0x10000);
  EXPECT_EQ(MNF_DELETED, 0x20000);
  EXPECT_EQ(MNF_FIRST, 0x80000);
  EXPECT_EQ(MNF_PUBLIC, 0x300000);
  EXPECT_EQ(MNF_ILLFORMED, 0x800000);
  EXPECT_EQ(MNF_USER, 0xf000000);
  EXPECT_EQ(MNT_ELEMENT, 1);
  EXPECT_EQ(MNT_TEXT, 2);
  EXPECT_EQ(MNT_WHITESPACE, 4);
  EXPECT_EQ(MNT_TEXT_AND_WHITESPACE, 6);
  EXPECT_EQ(MNT_CDATA_SECTION, 8);
  EXPECT_EQ(MNT_PROCESSING_INSTRUCTION, 16);
  EXPECT_EQ(MNT_COMMENT, 32);
  EXPECT_EQ(MNT_DOCUMENT_TYPE, 64);
  EXPECT_EQ(MNT_EXCLUDE_WHITESPACE, 123);
  EXPECT_EQ(MNT_LONE_END_TAG, 128);
  EXPECT_EQ(MNT_NODE_ERROR, 32768);
}

TEST(Markup, FieldsStandInTheirOrder) {
  static_assert(std::is_standard_layout<CMarkup>::value, "offsets are defined");
  EXPECT_EQ(offsetof(CMarkup, m_strDoc), 0u);
  EXPECT_EQ(offsetof(CMarkup, m_strResult), sizeof(std::wstring));
  const size_t numbers = 2 * sizeof(std::wstring);
  EXPECT_EQ(offsetof(CMarkup, m_iPosParent), numbers);
  EXPECT_EQ(offsetof(CMarkup, m_iPos), numbers + 4);
  EXPECT_EQ(offsetof(CMarkup, m_iPosChild), numbers + 8);
  EXPECT_EQ(offsetof(CMarkup, m_iPosFree), numbers + 12);
  EXPECT_EQ(offsetof(CMarkup, m_iPosDeleted), numbers + 16);
  EXPECT_EQ(offsetof(CMarkup, m_nNodeType), numbers + 20);
  EXPECT_EQ(offsetof(CMarkup, m_nNodeOffset), numbers + 24);
  EXPECT_EQ(offsetof(CMarkup, m_nNodeLength), numbers + 28);
  EXPECT_EQ(offsetof(CMarkup, m_nDocFlags), numbers + 32);
  EXPECT_EQ(offsetof(CMarkup, m_pFilePos), numbers + 40);
  EXPECT_EQ(offsetof(CMarkup, m_pSavedPosMaps), numbers + 48);
  EXPECT_EQ(offsetof(CMarkup, m_pElemPosTree), numbers + 56);
}

TEST(Markup, StartsEmpty) {
  CMarkup doc;
  EXPECT_EQ(doc.GetDoc(), L"");
  EXPECT_EQ(doc.m_strResult, L"");
  EXPECT_EQ(doc.m_nDocFlags, 0);
  EXPECT_EQ(doc.m_pFilePos, nullptr);
  EXPECT_FALSE(doc.IsWellFormed());
  EXPECT_FALSE(doc.FindElem());
  EXPECT_FALSE(doc.FindChildElem());
  EXPECT_FALSE(doc.IntoElem());
  EXPECT_FALSE(doc.OutOfElem());
  EXPECT_EQ(doc.GetAttrib(L"x"), L"");
  EXPECT_EQ(doc.GetError(), L"");
}

TEST(Markup, AnEmptyDocumentIsNotWellFormedAndHasNoResult) {
  CMarkup doc(L"<a/>");
  EXPECT_TRUE(doc.IsWellFormed());
  EXPECT_FALSE(doc.SetDoc(L""));
  EXPECT_FALSE(doc.IsWellFormed());
  EXPECT_EQ(doc.m_strResult, L"");
  EXPECT_EQ(doc.GetError(), L"");
  EXPECT_TRUE(doc.SetDoc(L"<a/>"));
  EXPECT_FALSE(doc.SetDoc(nullptr));
  EXPECT_FALSE(doc.IsWellFormed());
  EXPECT_EQ(doc.GetDoc(), L"");
  EXPECT_EQ(doc.m_strResult, L"");
  EXPECT_FALSE(doc.FindElem());
}

TEST(Markup, SetDocIsRefusedWhileAFileIsReadOrWritten) {
  for (const int flag : {MDF_READFILE, MDF_WRITEFILE}) {
    CMarkup doc(L"<a/>");
    doc.m_nDocFlags = flag;
    EXPECT_FALSE(doc.SetDoc(L"<b/>"));
    EXPECT_FALSE(doc.SetDoc(std::wstring(L"<b/>")));
    EXPECT_EQ(doc.GetDoc(), L"<a/>");
  }
}

TEST(Markup, SetDocTakesALiteralAndAString) {
  CMarkup doc;
  EXPECT_TRUE(doc.SetDoc(std::wstring(L"<a/>")));
  EXPECT_EQ(doc.GetDoc(), L"<a/>");
  EXPECT_TRUE(doc.SetDoc(doc.GetDoc()));
  EXPECT_EQ(doc.GetDoc(), L"<a/>");
  EXPECT_TRUE(doc.SetDoc(doc.GetDoc().c_str()));
  EXPECT_EQ(doc.GetDoc(), L"<a/>");
}

TEST(Markup, SetDocForgetsPositionsAndResults) {
  CMarkup doc(L"<a><b/></a>");
  ASSERT_TRUE(doc.FindElem() && doc.FindChildElem());
  ASSERT_TRUE(doc.SavePos(L"here"));
  EXPECT_FALSE(doc.SetDoc(L"<a/><b/>"));
  EXPECT_EQ(Position(doc), (Triple{0, 0, 0}));
  EXPECT_FALSE(doc.RestorePos(L"here"));
  EXPECT_TRUE(doc.SetDoc(L"<a/>"));
  EXPECT_EQ(doc.m_strResult, L"");
}

TEST(Markup, WellFormedNeedsExactlyOneRoot) {
  EXPECT_TRUE(CMarkup(L"<a/>").IsWellFormed());
  EXPECT_TRUE(CMarkup(L"<?xml version='1.0'?><!-- c --><!DOCTYPE a>\n<a></a>\n").IsWellFormed());
  EXPECT_FALSE(CMarkup(L"<a/><a/>").IsWellFormed());
  EXPECT_FALSE(CMarkup(L"no element").IsWellFormed());
  EXPECT_FALSE(CMarkup(L"<a>").IsWellFormed());
}

TEST(Markup, WellFormednessOfFilesInProgress) {
  CMarkup doc(L"<a>");
  doc.m_nDocFlags = MDF_WRITEFILE;
  EXPECT_TRUE(doc.IsWellFormed());
  doc.m_nDocFlags = MDF_READFILE;
  EXPECT_FALSE(doc.IsWellFormed());
  doc.m_nDocFlags = 0;
  doc.SetDoc(L"");
  doc.m_nDocFlags = MDF_READFILE;
  EXPECT_TRUE(doc.IsWellFormed());
}

TEST(Markup, FindElemWalksTheSiblings) {
  CMarkup doc(L"<r><a n='1'/><b n='2'/><a n='3'/></r>");
  ASSERT_TRUE(doc.FindElem());
  EXPECT_EQ(Position(doc), (Triple{0, 1, 0}));
  ASSERT_TRUE(doc.IntoElem());
  EXPECT_EQ(Position(doc), (Triple{1, 0, 0}));
  EXPECT_EQ(doc.m_nNodeType, 0);
  ASSERT_TRUE(doc.FindElem(L"a"));
  EXPECT_EQ(doc.m_nNodeType, MNT_ELEMENT);
  EXPECT_EQ(doc.GetAttrib(L"n"), L"1");
  ASSERT_TRUE(doc.FindElem(L"a"));
  EXPECT_EQ(doc.GetAttrib(L"n"), L"3");
  EXPECT_FALSE(doc.FindElem(L"a"));
  EXPECT_EQ(doc.GetAttrib(L"n"), L"3");
  doc.ResetPos();
  EXPECT_EQ(Position(doc), (Triple{0, 0, 0}));
  EXPECT_FALSE(doc.FindElem(L"a"));
  EXPECT_TRUE(doc.FindElem(std::wstring(L"r")));
}

TEST(Markup, ANullOrEmptyNameFindsAnyElement) {
  CMarkup doc(L"<a/><b/><c/>");
  ASSERT_TRUE(doc.FindElem(nullptr));
  EXPECT_EQ(doc.x_GetTagName(doc.m_iPos), L"a");
  ASSERT_TRUE(doc.FindElem(L""));
  EXPECT_EQ(doc.x_GetTagName(doc.m_iPos), L"b");
  ASSERT_TRUE(doc.FindElem());
  EXPECT_EQ(doc.x_GetTagName(doc.m_iPos), L"c");
  EXPECT_FALSE(doc.FindElem());
}

TEST(Markup, FindElemIsRefusedWhileAFileIsWritten) {
  CMarkup doc(L"<a><b/></a>");
  doc.m_nDocFlags = MDF_WRITEFILE;
  EXPECT_FALSE(doc.FindElem());
  EXPECT_FALSE(doc.FindChildElem());
  doc.m_nDocFlags = MDF_READFILE;
  EXPECT_FALSE(doc.FindChildElem());
  EXPECT_TRUE(doc.FindElem());
}

TEST(Markup, FindChildElemGoesOnBehindTheCurrentChild) {
  CMarkup doc(kLibrary);
  ASSERT_TRUE(doc.FindElem(L"authinfo"));
  ASSERT_TRUE(doc.FindChildElem(L"liblist"));
  EXPECT_EQ(Position(doc), (Triple{0, 1, 2}));
  EXPECT_EQ(doc.GetAttrib(L"type"), L"");
  ASSERT_TRUE(doc.IntoElem());
  EXPECT_EQ(Position(doc), (Triple{1, 2, 0}));
  ASSERT_TRUE(doc.FindChildElem(L"lib"));
  ASSERT_TRUE(doc.FindChildElem(L"lib"));
  EXPECT_FALSE(doc.FindChildElem(L"lib"));
  ASSERT_TRUE(doc.IntoElem());
  EXPECT_EQ(doc.GetAttrib(L"type"), L"PM");
  ASSERT_TRUE(doc.FindChildElem(L"algid"));
  ASSERT_TRUE(doc.IntoElem());
  EXPECT_EQ(doc.GetAttrib(L"val"), L"1");
}

TEST(Markup, FindChildElemTakesTheNextElementWhenNoneIsCurrent) {
  CMarkup doc(L"<a><b/></a>");
  ASSERT_TRUE(doc.FindChildElem(L"b"));
  EXPECT_EQ(Position(doc), (Triple{0, 1, 2}));
  doc.ResetPos();
  EXPECT_FALSE(doc.FindChildElem(L"x"));
  EXPECT_EQ(Position(doc), (Triple{0, 1, 0}));
}

TEST(Markup, FindChildElemFindsNothingInsideALeaf) {
  CMarkup doc(L"<a/>");
  ASSERT_TRUE(doc.FindElem() && doc.IntoElem());
  EXPECT_FALSE(doc.FindChildElem());
  EXPECT_EQ(Position(doc), (Triple{1, 0, 0}));
}

TEST(Markup, IntoElemEntersTheChildAndOutOfElemReturnsWithItCurrent) {
  CMarkup doc(L"<a><b><c/></b></a>");
  ASSERT_TRUE(doc.FindChildElem(L"b"));
  ASSERT_TRUE(doc.IntoElem());
  EXPECT_EQ(doc.x_GetTagName(doc.m_iPos), L"b");
  ASSERT_TRUE(doc.OutOfElem());
  EXPECT_EQ(Position(doc), (Triple{0, 1, 2}));
  EXPECT_FALSE(doc.OutOfElem());
  EXPECT_EQ(Position(doc), (Triple{0, 1, 2}));
}

TEST(Markup, IntoElemAndOutOfElemChangeNothingWhenTheyFail) {
  CMarkup doc(L"<a><b/></a>");
  EXPECT_FALSE(doc.IntoElem());
  EXPECT_FALSE(doc.OutOfElem());
  EXPECT_EQ(Position(doc), (Triple{0, 0, 0}));
  ASSERT_TRUE(doc.FindElem() && doc.IntoElem());
  EXPECT_FALSE(doc.IntoElem());
  EXPECT_EQ(Position(doc), (Triple{1, 0, 0}));
}

TEST(Markup, PathsAreMatchedByTheirFirstNameAlone) {
  CMarkup doc(L"<r><a/><ab/></r>");
  struct {
    const wchar_t* path;
    bool found;
  } const cases[] = {
      {L"a", true},       {L"a/", true},          {L"a[", true},       {L"a/nothing", true},
      {L"a[1]", true},    {L"a[99]", true},       {L"a[b]", true},     {L"a[@n]", true},
      {L"a[@n=1]", true}, {L"a[@n=']']/b", true}, {L"a/@n", true},     {L"a[2]/b[c]/@n", true},
      {L"ab", true},      {L"/a", false},         {L"/r/a", false},    {L"//a", false},
      {L"//a[1]", false}, {L"//a/b", false},      {L"/", false},       {L"//", false},
      {L"a//b", false},   {L"a/@", false},        {L"a/@n/b", false},  {L"a[0]", false},
      {L"a[]", false},    {L"a[1", false},        {L"a[1x]", false},   {L"a[@]", false},
      {L"a[@n=]", false}, {L"a[@n='1]", false},   {L"a[1][2]", false}, {L"a]", false},
      {L"a b", false},    {L"a=1", false},        {L" a", false},      {L"@n", false},
      {L"[1]", false},    {L"A", false},          {L"abc", false},     {L"a[1]b", false},
  };
  for (const auto& c : cases) {
    doc.ResetPos();
    ASSERT_TRUE(doc.FindElem() && doc.IntoElem());
    EXPECT_EQ(doc.FindElem(c.path), c.found) << c.path;
    if (!c.found) {
      EXPECT_EQ(doc.m_iPos, 0) << c.path;
    }
    doc.ResetPos();
    EXPECT_EQ(doc.FindChildElem(c.path), c.found) << c.path;
  }
}

TEST(Markup, PathsTellTheirKind) {
  struct {
    const wchar_t* path;
    int type;
  } const cases[] = {{nullptr, PathPos::PATH_EMPTY},   {L"", PathPos::PATH_EMPTY},
                     {L"a", PathPos::PATH_NAME},       {L"a/b", PathPos::PATH_NAMED},
                     {L"//a", PathPos::PATH_ANYWHERE}, {L"/a", PathPos::PATH_ABSOLUTE},
                     {L"a//b", PathPos::PATH_INVALID}, {L"//a/b", PathPos::PATH_INVALID}};
  for (const auto& c : cases) {
    PathPos path(c.path);
    EXPECT_EQ(path.ParsePath(), c.type != PathPos::PATH_INVALID);
    EXPECT_EQ(path.nPathType, c.type) << (c.path != nullptr ? c.path : L"null");
  }
  PathPos attribute(L"a/b/@name");
  ASSERT_TRUE(attribute.ParsePath());
  EXPECT_STREQ(attribute.p + attribute.iPathAttribName, L"name");
}

TEST(Markup, AReaderPathHasNoNamePredicate) {
  EXPECT_TRUE(PathPos(L"a[b]", false).ParsePath());
  EXPECT_FALSE(PathPos(L"a[b]", true).ParsePath());
  EXPECT_TRUE(PathPos(L"a[2]", true).ParsePath());
  EXPECT_TRUE(PathPos(L"a[@b]", true).ParsePath());
}

TEST(Markup, NamesMatchExactlyUnlessCaseIsIgnored) {
  CMarkup doc(L"<Root Name='x'><\x00c4\x540d/></Root>");
  EXPECT_FALSE(doc.FindElem(L"root"));
  ASSERT_TRUE(doc.FindElem(L"Root"));
  EXPECT_EQ(doc.GetAttrib(L"name"), L"");
  doc.m_nDocFlags = MDF_IGNORECASE;
  EXPECT_EQ(doc.GetAttrib(L"NAME"), L"x");
  doc.ResetPos();
  EXPECT_TRUE(doc.FindElem(L"rOOT"));
  EXPECT_TRUE(doc.FindChildElem(L"\x00c4\x540d"));
  doc.m_iPosChild = 0;
  EXPECT_FALSE(doc.FindChildElem(L"\x00e4\x540d"));
}

TEST(Markup, MatchLetsANameGoOnWithSpaceEqualsSlashOrBracket) {
  TokenPos token(L"ab", 0);
  token.ReadTagName();
  for (const wchar_t* name : {L"ab", L"ab x", L"ab=", L"ab/", L"ab[", L"ab]"}) {
    EXPECT_TRUE(token.Match(name)) << name;
  }
  for (const wchar_t* name : {L"", L"a", L"abc", L"ab>", L"ab\t", L"AB", L"xab"}) {
    EXPECT_FALSE(token.Match(name)) << name;
  }
  token.m_nTokenFlags = MDF_IGNORECASE;
  EXPECT_TRUE(token.Match(L"AB"));
  EXPECT_FALSE(token.Match(L"ABC"));
}

TEST(Markup, AttributesAreFoundInEveryForm) {
  CMarkup doc(
      L"<a one='1' two = \"2\"\tthree\n=\r3 four=4/x five flag six='a>b' seven='\"' eight=\"'\" "
      L"nine='' ten=x one='again' x[1]='b' \x540d='v' y=/>");
  ASSERT_TRUE(doc.IsWellFormed());
  ASSERT_TRUE(doc.FindElem());
  struct {
    const wchar_t* name;
    const wchar_t* value;
  } const cases[] = {{L"one", L"1"},   {L"two", L"2"}, {L"three", L"3"},  {L"four", L"4/x"},
                     {L"five", L""},   {L"flag", L""}, {L"six", L"a>b"},  {L"seven", L"\""},
                     {L"eight", L"'"}, {L"nine", L""}, {L"ten", L"x"},    {L"eleven", L""},
                     {L"one=", L"1"},  {L"on", L""},   {L"\x540d", L"v"}, {L"a", L""},
                     {L"two/x", L"2"}, {L"", L""},     {nullptr, L""},    {L"y", L""},
                     {L"x[1]", L"b"}};
  for (const int flags : {0, int{MDF_IGNORECASE}}) {
    doc.m_nDocFlags = flags;
    for (const auto& c : cases) {
      EXPECT_EQ(doc.GetAttrib(c.name), c.value) << (c.name != nullptr ? c.name : L"null");
      TokenPos token(doc.GetDoc().c_str(), flags);
      token.m_nNext = 1;
      token.ReadTagName();
      if (c.name != nullptr) token.FindAttrib(c.name);
      EXPECT_EQ(token.GetTokenText(), c.name != nullptr ? c.value : L"a");
    }
  }
}

TEST(Markup, AttributeValuesAreUnescaped) {
  CMarkup doc(L"<a v='&lt;x&gt; &#65;&#x41; &nothing; &amp;amp;'/>");
  ASSERT_TRUE(doc.FindElem());
  EXPECT_EQ(doc.GetAttrib(L"v"), L"<x> AA &nothing; &amp;");
}

TEST(Markup, AReferenceIsFoundAtEveryPlaceOfAValue) {
  for (size_t length = 0; length < 24; ++length) {
    for (size_t at = 0; at <= length; ++at) {
      const std::wstring ahead(at, L'v'), behind(length - at, L'w');
      CMarkup doc(L"<a b='" + ahead + L"&lt;" + behind + L"'/>");
      ASSERT_TRUE(doc.FindElem());
      EXPECT_EQ(doc.GetAttrib(L"b"), ahead + L'<' + behind);
      EXPECT_EQ(CMarkup::UnescapeText(ahead + L"&lt;" + behind), ahead + L'<' + behind);
    }
  }
}

TEST(Markup, StrayCharactersInATagHideNoAttribute) {
  CMarkup doc(L"<a / ' \" ; ! ='>' b='1' ? = x=y='2' c=\"3\">t</a>");
  ASSERT_TRUE(doc.FindElem());
  EXPECT_EQ(doc.GetAttrib(L"b"), L"1");
  EXPECT_EQ(doc.GetAttrib(L"c"), L"3");
}

TEST(Markup, UnquotedValuesEndWhereTheirTagDoes) {
  CMarkup doc(L"<a b=x? c=y?>t</a>");
  ASSERT_TRUE(doc.IsWellFormed());
  ASSERT_TRUE(doc.FindElem());
  EXPECT_EQ(doc.GetAttrib(L"b"), L"x?");
  EXPECT_EQ(doc.GetAttrib(L"c"), L"y?");
  ASSERT_FALSE(doc.SetDoc(L"<?p b=x/>1 > c=y>2?>"));
  doc.m_nNodeType = MNT_PROCESSING_INSTRUCTION;
  doc.m_nNodeLength = 20;
  EXPECT_EQ(doc.GetAttrib(L"b"), L"x/>1");
  EXPECT_EQ(doc.GetAttrib(L"c"), L"y>2");
}

TEST(Markup, GetAttribWithoutCurrentElementIsEmpty) {
  CMarkup doc(L"<a b='1'/>");
  EXPECT_EQ(doc.GetAttrib(L"b"), L"");
}

TEST(Markup, GetAttribReadsTheCurrentProcessingInstruction) {
  CMarkup doc(L"<?xml version='1.0' encoding=\"GBK\" x=y?><a/>");
  doc.m_nNodeType = MNT_PROCESSING_INSTRUCTION;
  doc.m_nNodeOffset = 0;
  doc.m_nNodeLength = 43;
  EXPECT_EQ(doc.GetAttrib(L"version"), L"1.0");
  EXPECT_EQ(doc.GetAttrib(L"encoding"), L"GBK");
  EXPECT_EQ(doc.GetAttrib(L"x"), L"y");
  EXPECT_EQ(doc.GetAttrib(L"z"), L"");
}

TEST(Markup, NavigationWorksOverAnIllFormedDocument) {
  CMarkup doc(L"<a><b n='1'></a><c/>");
  EXPECT_FALSE(doc.IsWellFormed());
  ASSERT_TRUE(doc.FindChildElem(L"b"));
  ASSERT_TRUE(doc.IntoElem());
  EXPECT_EQ(doc.GetAttrib(L"n"), L"1");
}
