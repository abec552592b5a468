// Editing in place and saved positions. What the index says after an edit is compared with a fresh
// parse of the same text.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "Markup.h"
#include "MarkupOutline.h"

namespace {

void ExpectLikeFreshParse(const CMarkup& doc) {
  const CMarkup fresh(doc.GetDoc());
  ASSERT_EQ(Outline(doc), Outline(fresh)) << doc.GetDoc().c_str();
  ASSERT_EQ(ElementTexts(doc), ElementTexts(fresh)) << doc.GetDoc().c_str();
  ASSERT_EQ(doc.x_Elem(0).nLength, static_cast<int>(doc.GetDoc().length()));
  ExpectSoundIndex(doc);
}

constexpr int kPlain = MNF_WITHNOLINES;

}  // namespace

TEST(MarkupEdit, ADocumentIsBuiltOnLinesOfItsOwn) {
  CMarkup doc;
  ASSERT_TRUE(doc.AddElem(L"authinfo"));
  EXPECT_EQ(doc.GetDoc(), L"<authinfo/>\n");
  ASSERT_TRUE(doc.AddChildElem(L"lib", L"a<b"));
  ASSERT_TRUE(doc.AddChildElem(L"lib", 7));
  ASSERT_TRUE(doc.IntoElem());
  ASSERT_TRUE(doc.SetAttrib(L"n", 2));
  EXPECT_EQ(doc.GetDoc(), L"<authinfo>\n<lib>a&lt;b</lib>\n<lib n=\"2\">7</lib>\n</authinfo>\n");
  EXPECT_TRUE(doc.IsWellFormed());
  ExpectLikeFreshParse(doc);
}

TEST(MarkupEdit, WithoutLinesNothingElseComesIn) {
  CMarkup doc;
  ASSERT_TRUE(doc.AddElem(L"a", nullptr, kPlain));
  ASSERT_TRUE(doc.AddChildElem(L"b", nullptr, kPlain));
  ASSERT_TRUE(doc.AddChildElem(L"c", L"t", kPlain));
  EXPECT_EQ(doc.GetDoc(), L"<a><b/><c>t</c></a>");
  ExpectLikeFreshParse(doc);
}

TEST(MarkupEdit, AddedElementsStandBehindTheCurrentOne) {
  CMarkup doc(L"<r><a/>text<b/></r>");
  ASSERT_TRUE(doc.FindChildElem(L"a") && doc.IntoElem());
  ASSERT_TRUE(doc.AddElem(L"x", nullptr, kPlain));
  EXPECT_EQ(doc.GetDoc(), L"<r><a/><x/>text<b/></r>");
  EXPECT_EQ(doc.x_GetTagName(doc.m_iPos), L"x");
  ASSERT_TRUE(doc.OutOfElem());
  ASSERT_TRUE(doc.AddChildElem(L"y", nullptr, kPlain));
  EXPECT_EQ(doc.GetDoc(), L"<r><a/><x/><y/>text<b/></r>");
  doc.ResetPos();
  ASSERT_TRUE(doc.FindElem() && doc.AddChildElem(L"z", nullptr, kPlain));
  EXPECT_EQ(doc.GetDoc(), L"<r><a/><x/><y/>text<b/><z/></r>");
  EXPECT_EQ(doc.x_GetTagName(doc.m_iPosChild), L"z");
  ExpectLikeFreshParse(doc);
}

TEST(MarkupEdit, InsertedElementsStandAheadOfTheCurrentOne) {
  CMarkup doc(L"<r><a/><b/></r>");
  ASSERT_TRUE(doc.FindChildElem(L"b") && doc.IntoElem());
  ASSERT_TRUE(doc.InsertElem(L"x", nullptr, kPlain));
  EXPECT_EQ(doc.GetDoc(), L"<r><a/><x/><b/></r>");
  doc.ResetPos();
  ASSERT_TRUE(doc.FindElem() && doc.IntoElem());
  ASSERT_TRUE(doc.InsertElem(L"y", nullptr, kPlain));
  EXPECT_EQ(doc.GetDoc(), L"<r><y/><a/><x/><b/></r>");
  ExpectLikeFreshParse(doc);
}

TEST(MarkupEdit, LinesAreKeptWhereTheyAre) {
  CMarkup doc(L"<r>\n  <a/>\n  <b/>\n</r>\n");
  ASSERT_TRUE(doc.FindChildElem(L"a") && doc.IntoElem());
  ASSERT_TRUE(doc.AddElem(L"x"));
  EXPECT_EQ(doc.GetDoc(), L"<r>\n  <a/>\n<x/>\n  <b/>\n</r>\n");
  ASSERT_TRUE(doc.FindElem(L"b") && doc.InsertElem(L"y"));
  EXPECT_EQ(doc.GetDoc(), L"<r>\n  <a/>\n<x/>\n<y/>\n  <b/>\n</r>\n");
  ASSERT_TRUE(doc.RemoveElem());
  EXPECT_EQ(doc.GetDoc(), L"<r>\n  <a/>\n<x/>\n  <b/>\n</r>\n");
  ExpectLikeFreshParse(doc);
}

TEST(MarkupEdit, ElementsTakeTheFormAskedFor) {
  struct {
    const wchar_t* data;
    int flags;
    const wchar_t* expected;
  } const cases[] = {
      {nullptr, 0, L"<a/>"},
      {L"", MNF_WITHXHTMLSPACE, L"<a />"},
      {L"x&amp;<", 0, L"<a>x&amp;amp;&lt;</a>"},
      {L"x&amp;<", MNF_WITHREFS, L"<a>x&amp;&lt;</a>"},
      {L"x<&", MNF_WITHCDATA, L"<a><![CDATA[x<&]]></a>"},
      {L"]]>]]>", MNF_WITHCDATA, L"<a><![CDATA[]]]]><![CDATA[>]]]]><![CDATA[>]]></a>"},
      {nullptr, MNF_WITHNOEND, L"<a>"},
      {L"x", MNF_WITHNOEND, L"<a>x"},
  };
  for (const auto& c : cases) {
    CMarkup doc;
    ASSERT_TRUE(doc.AddElem(L"a", c.data, c.flags | kPlain));
    EXPECT_EQ(doc.GetDoc(), c.expected);
    ExpectLikeFreshParse(doc);
  }
}

TEST(MarkupEdit, AnElementWithoutEndTagGetsOneForItsFirstChild) {
  for (const wchar_t* text :
       {L"<r><a x='1' /><b/></r>", L"<r><a x='1'/><b/></r>", L"<r><a x=1\n/><b/></r>"}) {
    CMarkup doc(text);
    ASSERT_TRUE(doc.FindChildElem(L"a") && doc.IntoElem());
    ASSERT_TRUE(doc.AddChildElem(L"k", L"v", kPlain));
    EXPECT_EQ(doc.GetAttrib(L"x"), L"1");
    EXPECT_TRUE(doc.IsWellFormed());
    ExpectLikeFreshParse(doc);
    EXPECT_EQ(Outline(doc), L"r(a(k) b)");
  }
  CMarkup open(L"<r><p>text<b/></r>");
  ASSERT_TRUE(open.FindChildElem(L"p") && open.IntoElem());
  ASSERT_TRUE(open.AddChildElem(L"k", nullptr, kPlain));
  EXPECT_EQ(open.GetDoc(), L"<r><p><k/></p>text<b/></r>");
  ExpectLikeFreshParse(open);
}

TEST(MarkupEdit, ASlashAheadOfTheOneThatEndsATagDoesNotEndItAfterwards) {
  for (const wchar_t* const tag : {L"<r//>", L"<r/ />", L"<r a=x//>"}) {
    CMarkup doc(tag);
    ASSERT_TRUE(doc.FindElem() && doc.AddChildElem(L"k", nullptr, kPlain)) << tag;
    EXPECT_EQ(Outline(doc), L"r(k)") << tag;
    ExpectLikeFreshParse(doc);
  }
  CMarkup doc(L"<r a=x//>");
  ASSERT_TRUE(doc.FindElem());
  EXPECT_EQ(doc.GetAttrib(L"a"), L"x/");
  ASSERT_TRUE(doc.AddChildElem(L"k", nullptr, kPlain));
  EXPECT_EQ(doc.GetAttrib(L"a"), L"x/");
}

TEST(MarkupEdit, NamesThatWouldNotBeReadBackAreRefused) {
  CMarkup doc(L"<r/>");
  ASSERT_TRUE(doc.FindElem());
  for (const wchar_t* name : {L"", L"a b", L"a>", L"<a", L"a/", L"/a", L"!a", L"?a", L"a=", L"a\"",
                              L"a'", L"a;", L"a\\", L"a\n"}) {
    EXPECT_FALSE(doc.AddElem(name)) << name;
    EXPECT_FALSE(doc.AddChildElem(name)) << name;
    EXPECT_FALSE(doc.SetAttrib(name, L"v")) << name;
  }
  EXPECT_FALSE(doc.AddElem(nullptr));
  EXPECT_FALSE(doc.SetAttrib(nullptr, 1));
  EXPECT_EQ(doc.GetDoc(), L"<r/>");
}

TEST(MarkupEdit, TagsThatCannotBeRecordedAreRefused) {
  CMarkup doc(L"<r/>");
  ASSERT_TRUE(doc.FindElem());
  EXPECT_FALSE(doc.AddChildElem(std::wstring(1021, L'n'), L"x"));
  EXPECT_TRUE(doc.AddChildElem(std::wstring(1020, L'n'), L"x"));
  EXPECT_TRUE(doc.AddChildElem(std::wstring(1021, L'n')));
  EXPECT_TRUE(doc.IntoElem());
  const std::wstring before = doc.GetDoc();
  EXPECT_FALSE(doc.AddChildElem(L"k"));
  EXPECT_FALSE(doc.SetAttrib(L"a", std::wstring(0x3fffff, L'x')));
  EXPECT_EQ(doc.GetDoc(), before);
  EXPECT_TRUE(doc.SetAttrib(L"a", std::wstring(0x3fffff - 1021 - 3 - 5, L'x')));
  EXPECT_EQ(doc.x_Elem(doc.m_iPos).nStartTagLen, 0x3fffffu);
  EXPECT_FALSE(doc.SetAttrib(L"b", L""));
  EXPECT_TRUE(doc.SetAttrib(L"a", L""));
  ExpectLikeFreshParse(doc);
}

TEST(MarkupEdit, ElementsWithUnrecordedTagsAreNotEdited) {
  const std::wstring name(2000, L'n');
  const std::wstring text = L"<r><" + name + L"><k/></" + name + L"><z/></r>";
  CMarkup doc(text);
  ASSERT_TRUE(doc.FindChildElem(name) && doc.IntoElem());
  EXPECT_FALSE(doc.SetAttrib(L"a", L"v"));
  EXPECT_FALSE(doc.AddChildElem(L"c"));
  EXPECT_FALSE(doc.RemoveElem());
  ASSERT_TRUE(doc.IntoElem());
  EXPECT_FALSE(doc.AddElem(L"c"));
  EXPECT_FALSE(doc.AddNode(MNT_TEXT, L"c"));
  EXPECT_EQ(doc.GetDoc(), text);
}

TEST(MarkupEdit, AttributesAreSetAddedAndEscaped) {
  CMarkup doc(L"<r><a one='1' two = two three=/>t</r>");
  ASSERT_TRUE(doc.FindChildElem(L"a") && doc.IntoElem());
  ASSERT_TRUE(doc.SetAttrib(L"one", L"<'\"&>"));
  ASSERT_TRUE(doc.SetAttrib(L"two", -5));
  ASSERT_TRUE(doc.SetAttrib(L"four", L"4"));
  ASSERT_TRUE(doc.SetAttrib(L"three", L""));
  ASSERT_TRUE(doc.SetAttrib(L"five", L"&lt;", MNF_WITHREFS));
  ASSERT_TRUE(doc.SetAttrib(L"six", nullptr));
  EXPECT_EQ(doc.GetDoc(),
            L"<r><a one=\"&lt;&apos;&quot;&amp;&gt;\" two = \"-5\" three=\"\" four=\"4\" "
            L"five=\"&lt;\" six=\"\"/>t</r>");
  EXPECT_EQ(doc.GetAttrib(L"one"), L"<'\"&>");
  EXPECT_EQ(doc.GetAttrib(L"two"), L"-5");
  EXPECT_EQ(doc.GetAttrib(L"four"), L"4");
  EXPECT_EQ(doc.GetAttrib(L"five"), L"<");
  ExpectLikeFreshParse(doc);
}

TEST(MarkupEdit, AttributesOfAnElementMoveWhatItHolds) {
  CMarkup doc(L"<r><a ><b><c/></b></a><d/></r>");
  ASSERT_TRUE(doc.FindElem());
  ASSERT_TRUE(doc.SetAttrib(L"x", L"1"));
  ASSERT_TRUE(doc.FindChildElem(L"a") && doc.IntoElem());
  ASSERT_TRUE(doc.SetAttrib(L"y", L"2"));
  EXPECT_EQ(doc.GetDoc(), L"<r x=\"1\"><a y=\"2\" ><b><c/></b></a><d/></r>");
  ExpectLikeFreshParse(doc);
}

TEST(MarkupEdit, SetAttribNeedsAnElementOrInstruction) {
  CMarkup doc(L"<r/>");
  EXPECT_FALSE(doc.SetAttrib(L"a", L"v"));
  ASSERT_TRUE(doc.FindElem());
  ASSERT_TRUE(doc.AddNode(MNT_COMMENT, L"c", kPlain));
  EXPECT_FALSE(doc.SetAttrib(L"a", L"v"));
}

TEST(MarkupEdit, NodesAreAddedAtTheCurrentPlace) {
  CMarkup doc(L"<r><a/><b/></r>");
  ASSERT_TRUE(doc.FindChildElem(L"a") && doc.IntoElem());
  ASSERT_TRUE(doc.AddNode(MNT_TEXT, L"x<y"));
  EXPECT_EQ(doc.m_nNodeType, MNT_TEXT);
  EXPECT_EQ(doc.m_nNodeOffset, 7);
  EXPECT_EQ(doc.m_nNodeLength, 6);
  EXPECT_FALSE(doc.IntoElem());
  EXPECT_FALSE(doc.RemoveElem());
  EXPECT_EQ(doc.GetAttrib(L"q"), L"");
  ASSERT_TRUE(doc.AddNode(MNT_CDATA_SECTION, L"<z>]]>"));
  ASSERT_TRUE(doc.AddNode(MNT_COMMENT, L" c ", kPlain));
  ASSERT_TRUE(doc.InsertNode(MNT_PROCESSING_INSTRUCTION, L"pi", kPlain));
  ASSERT_TRUE(doc.SetAttrib(L"q", L"1"));
  EXPECT_EQ(doc.GetAttrib(L"q"), L"1");
  ASSERT_TRUE(doc.AddElem(L"n", nullptr, kPlain));
  EXPECT_EQ(doc.GetDoc(),
            L"<r><a/>x&lt;y<![CDATA[<z>]]]]><![CDATA[>]]><?pi q=\"1\"?><n/><!-- c --><b/></r>");
  ASSERT_TRUE(doc.FindElem(L"b"));
  ExpectLikeFreshParse(doc);
}

TEST(MarkupEdit, ADocumentTypeMayComeFirst) {
  CMarkup doc(L"<r/>");
  ASSERT_TRUE(doc.FindElem());
  ASSERT_TRUE(doc.InsertNode(MNT_DOCUMENT_TYPE, L"<!DOCTYPE r [<!ENTITY x '>'>]>"));
  ASSERT_TRUE(doc.InsertNode(MNT_PROCESSING_INSTRUCTION, L"xml"));
  ASSERT_TRUE(doc.SetAttrib(L"version", L"1.0"));
  EXPECT_EQ(doc.GetDoc(), L"<?xml version=\"1.0\"?>\n<!DOCTYPE r [<!ENTITY x '>'>]>\n<r/>");
  ExpectLikeFreshParse(doc);
}

TEST(MarkupEdit, NodesThatWouldNotBeReadBackAreRefused) {
  CMarkup doc(L"<r/>");
  struct {
    int type;
    const wchar_t* text;
  } const cases[] = {
      {MNT_COMMENT, L"a--b"},
      {MNT_COMMENT, L"a-"},
      {MNT_COMMENT, L"-->"},
      {MNT_PROCESSING_INSTRUCTION, L"a?>b"},
      {MNT_DOCUMENT_TYPE, L"r"},
      {MNT_DOCUMENT_TYPE, L"<!DOCTYPE r>x"},
      {MNT_DOCUMENT_TYPE, L"<a/>"},
      {MNT_TEXT, L""},
      {MNT_ELEMENT, L"a"},
      {MNT_LONE_END_TAG, L"a"},
      {MNT_DOCUMENT_TYPE, L"<!DOCT"},
      {0, L"a"},
  };
  for (const auto& c : cases) EXPECT_FALSE(doc.AddNode(c.type, c.text)) << c.text;
  EXPECT_EQ(doc.GetDoc(), L"<r/>");
}

TEST(MarkupEdit, RemovedElementsGoWithAllTheyHold) {
  CMarkup doc(L"<r><a/><b><c><d/></c></b><e/></r>");
  ASSERT_TRUE(doc.FindChildElem(L"b") && doc.IntoElem());
  ASSERT_TRUE(doc.RemoveElem());
  EXPECT_EQ(doc.GetDoc(), L"<r><a/><e/></r>");
  EXPECT_EQ(doc.x_GetTagName(doc.m_iPos), L"a");
  ExpectLikeFreshParse(doc);
  for (const int i : {3, 4, 5}) EXPECT_NE(doc.x_Elem(i).nFlags & MNF_DELETED, 0) << i;
  ASSERT_TRUE(doc.RemoveElem());
  EXPECT_EQ(doc.m_iPos, 0);
  EXPECT_FALSE(doc.RemoveElem());
  ASSERT_TRUE(doc.FindElem(L"e") && doc.RemoveElem());
  EXPECT_EQ(doc.GetDoc(), L"<r></r>");
  ExpectLikeFreshParse(doc);
  ASSERT_TRUE(doc.OutOfElem() && doc.RemoveElem());
  EXPECT_EQ(doc.GetDoc(), L"");
  EXPECT_FALSE(doc.IsWellFormed());
}

TEST(MarkupEdit, RemoveChildElemKeepsTheElement) {
  CMarkup doc(L"<r><a/><b/></r>");
  EXPECT_FALSE(doc.RemoveChildElem());
  ASSERT_TRUE(doc.FindElem());
  EXPECT_FALSE(doc.RemoveChildElem());
  ASSERT_TRUE(doc.FindChildElem(L"b") && doc.RemoveChildElem());
  EXPECT_EQ(doc.GetDoc(), L"<r><a/></r>");
  EXPECT_EQ(doc.x_GetTagName(doc.m_iPos), L"r");
  EXPECT_EQ(doc.x_GetTagName(doc.m_iPosChild), L"a");
  ExpectLikeFreshParse(doc);
}

TEST(MarkupEdit, DeletedPositionsAreUsedAgain) {
  CMarkup doc(L"<r><a><b/></a></r>");
  ASSERT_TRUE(doc.FindChildElem(L"a") && doc.RemoveChildElem());
  EXPECT_NE(doc.m_iPosDeleted, 0);
  const int free = doc.m_iPosFree;
  ASSERT_TRUE(doc.AddChildElem(L"c") && doc.AddChildElem(L"d"));
  EXPECT_EQ(doc.m_iPosFree, free);
  EXPECT_EQ(doc.m_iPosDeleted, 0);
  ASSERT_TRUE(doc.AddChildElem(L"e"));
  EXPECT_EQ(doc.m_iPosFree, free + 1);
  ExpectLikeFreshParse(doc);
}

TEST(MarkupEdit, EditingIsRefusedWhileAFileIsReadOrWritten) {
  CMarkup doc(L"<r><a/></r>");
  ASSERT_TRUE(doc.FindChildElem(L"a"));
  ASSERT_TRUE(doc.SavePos(L"p"));
  for (const int flag : {MDF_READFILE, MDF_WRITEFILE}) {
    doc.m_nDocFlags = flag;
    EXPECT_FALSE(doc.AddElem(L"x"));
    EXPECT_FALSE(doc.SetAttrib(L"x", 1));
    EXPECT_FALSE(doc.RemoveElem());
    EXPECT_FALSE(doc.RemoveChildElem());
    EXPECT_FALSE(doc.AddNode(MNT_TEXT, L"x"));
    EXPECT_FALSE(doc.SavePos(L"q"));
    EXPECT_FALSE(doc.RestorePos(L"p"));
  }
  EXPECT_EQ(doc.GetDoc(), L"<r><a/></r>");
}

TEST(MarkupEdit, SavedPositionsSurviveEdits) {
  CMarkup doc(L"<r><a><b/></a><c/></r>");
  ASSERT_TRUE(doc.SavePos());
  ASSERT_TRUE(doc.FindChildElem(L"a"));
  ASSERT_TRUE(doc.SavePos(L"child"));
  ASSERT_TRUE(doc.IntoElem() && doc.SavePos(L"main"));
  ASSERT_TRUE(doc.IntoElem() && doc.SavePos(L"inside"));
  ASSERT_TRUE(doc.RestorePos(L"main") && doc.InsertElem(L"new"));
  ASSERT_TRUE(doc.RestorePos(L"child"));
  EXPECT_EQ(doc.x_GetTagName(doc.m_iPos), L"r");
  EXPECT_EQ(doc.x_GetTagName(doc.m_iPosChild), L"a");
  ASSERT_TRUE(doc.RestorePos(L"main"));
  EXPECT_EQ(doc.x_GetTagName(doc.m_iPos), L"a");
  ASSERT_TRUE(doc.RestorePos(L"inside") && doc.FindElem());
  EXPECT_EQ(doc.x_GetTagName(doc.m_iPos), L"b");
  ASSERT_TRUE(doc.RestorePos());
  EXPECT_EQ(doc.m_iPosParent, 0);
  EXPECT_EQ(doc.m_iPos, 0);
  EXPECT_FALSE(doc.RestorePos(L"unknown"));
  EXPECT_FALSE(doc.RestorePos(L"main", 1));
}

TEST(MarkupEdit, ASavedPositionGoesWithItsElement) {
  CMarkup doc(L"<r><a><b/></a></r>");
  ASSERT_TRUE(doc.FindChildElem(L"a") && doc.IntoElem() && doc.FindChildElem(L"b"));
  ASSERT_TRUE(doc.SavePos(L"b"));
  doc.m_iPosChild = 0;
  ASSERT_TRUE(doc.RemoveElem() && doc.AddElem(L"n") && doc.AddChildElem(L"m"));
  EXPECT_FALSE(doc.RestorePos(L"b"));
}

TEST(MarkupEdit, SavedPositionsLiveInNumberedMaps) {
  CMarkup doc(L"<r><a/></r>");
  EXPECT_TRUE(doc.SetMapSize(100));
  ASSERT_TRUE(doc.SavePos(L"p", 0));
  ASSERT_TRUE(doc.FindElem() && doc.SavePos(L"p", 3));
  EXPECT_FALSE(doc.SetMapSize(100));
  EXPECT_TRUE(doc.SetMapSize(0x7fffffff, 1));
  EXPECT_FALSE(doc.SetMapSize(0, 2));
  ASSERT_TRUE(doc.RestorePos(L"p", 0));
  EXPECT_EQ(doc.m_iPos, 0);
  ASSERT_TRUE(doc.RestorePos(L"p", 3));
  EXPECT_EQ(doc.m_iPos, 1);
  EXPECT_FALSE(doc.SavePos(L"p", -1));
  EXPECT_FALSE(doc.SavePos(L"p", 0x10000));
  EXPECT_FALSE(doc.SavePos(nullptr));
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(doc.SavePos(std::to_wstring(i)));
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(doc.RestorePos(std::to_wstring(i)));
}

TEST(MarkupEdit, RandomEditsKeepTheIndexLikeAFreshParse) {
  std::mt19937 random(4711);
  const auto any = [&](int n) { return static_cast<int>(random() % n); };
  for (int round = 0; round < 40; ++round) {
    CMarkup doc(round % 2 == 0 ? L"<r/>" : L"<?xml?><r x=1><a/> t <b><c>u</c>\n</b></r>");
    for (int step = 0; step < 60; ++step) {
      const int flags = any(3) == 0 ? 0 : kPlain;
      const std::wstring name(1 + any(3), static_cast<wchar_t>(L'a' + any(5)));
      switch (any(12)) {
        case 0:
          doc.OutOfElem();
          break;
        case 1:
          doc.IntoElem();
          break;
        case 2:
          doc.FindElem();
          break;
        case 3:
          doc.FindChildElem();
          break;
        case 4:
          if (doc.m_iPosParent != 0) doc.RemoveElem();
          break;
        case 5:
          doc.RemoveChildElem();
          break;
        case 6:
          if (doc.m_iPosParent != 0) doc.AddElem(name, any(2) == 0 ? nullptr : L"<d>", flags);
          break;
        case 7:
          if (doc.m_iPosParent != 0) doc.InsertElem(name, nullptr, flags);
          break;
        case 8:
          doc.AddChildElem(name, any(2) == 0 ? nullptr : L"x", flags);
          break;
        case 9:
          doc.SetAttrib(name, std::wstring(any(9), L'&'));
          break;
        case 10:
          doc.AddNode(any(2) == 0 ? MNT_COMMENT : MNT_PROCESSING_INSTRUCTION, L"n", flags);
          break;
        default:
          if (doc.m_iPosParent != 0) doc.InsertNode(MNT_TEXT, L"a<b", flags);
          break;
      }
      ASSERT_NO_FATAL_FAILURE(ExpectLikeFreshParse(doc)) << round << ' ' << step;
    }
  }
}
