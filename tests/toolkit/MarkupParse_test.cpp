// How documents are indexed and what is found wrong with them.
#include <gtest/gtest.h>

#include <string>

#include "Markup.h"
#include "MarkupOutline.h"

TEST(MarkupParse, ElementsAreIndexedInDocumentOrder) {
  CMarkup doc(L"<a x='1'><b>text</b><!-- <no/> --><c/><![CDATA[<no/>]]><?pi <no/>?></a>");
  ASSERT_TRUE(doc.IsWellFormed());
  EXPECT_EQ(Outline(doc), L"a(b c)");
  ExpectSoundIndex(doc);
  const ElemPos& a = doc.x_Elem(1);
  EXPECT_EQ(a.nStart, 0);
  EXPECT_EQ(a.nLength, static_cast<int>(doc.GetDoc().length()));
  EXPECT_EQ(a.nStartTagLen, 9u);
  EXPECT_EQ(a.nEndTagLen, 4u);
  EXPECT_EQ(a.nFlags, MNF_FIRST | 0);
  EXPECT_EQ(doc.x_Elem(2).nFlags, MNF_FIRST | 1);
  EXPECT_EQ(doc.x_Elem(3).nFlags, 1);
  EXPECT_EQ(doc.x_Elem(3).nEndTagLen, 0u);
  EXPECT_EQ(doc.x_Elem(3).nLength, 4);
  EXPECT_EQ(doc.x_Elem(0).nLength, static_cast<int>(doc.GetDoc().length()));
  EXPECT_EQ(doc.x_Elem(0).iElemChild, 1);
}

TEST(MarkupParse, TheFirstChildKnowsTheLast) {
  CMarkup doc(L"<r><a/><b/><c/></r>");
  EXPECT_EQ(doc.x_Elem(1).iElemPrev, 1);
  EXPECT_EQ(doc.x_Elem(2).iElemPrev, 4);
  EXPECT_EQ(doc.x_Elem(3).iElemPrev, 2);
  EXPECT_EQ(doc.x_Elem(4).iElemPrev, 3);
  EXPECT_EQ(doc.x_Elem(4).iElemNext, 0);
}

TEST(MarkupParse, AQuotedGreaterThanDoesNotEndTheTag) {
  CMarkup doc(L"<a b='>' c = \"/>\"><d e='</a>'/></a>");
  EXPECT_TRUE(doc.IsWellFormed());
  EXPECT_EQ(Outline(doc), L"a(d)");
  ExpectSoundIndex(doc);
}

TEST(MarkupParse, AQuoteThatOpensNoValueHidesNothing) {
  CMarkup doc(L"<a'><b c=x'y>it's</b></a'>");
  EXPECT_TRUE(doc.IsWellFormed());
  EXPECT_EQ(Outline(doc), L"a(b)");
}

TEST(MarkupParse, OnlyASlashAtTheEndMakesATagEmpty) {
  CMarkup doc(L"<r><a b='/'></a><a b=/></a><a / ></a><a/b></a></r>");
  EXPECT_EQ(Outline(doc), L"r(a a a a)");
  EXPECT_EQ(doc.x_Elem(2).nEndTagLen, 4u);
  EXPECT_EQ(doc.x_Elem(3).nEndTagLen, 0u);
  EXPECT_EQ(doc.GetError(), L"lone end tag 'a' at offset 23");
}

TEST(MarkupParse, EndTagsMayHoldSpaceBehindTheName) {
  CMarkup doc(L"<a ><b></b \n></a\t>");
  EXPECT_TRUE(doc.IsWellFormed());
  EXPECT_EQ(doc.x_Elem(2).nEndTagLen, 6u);
}

TEST(MarkupParse, DocumentTypesMayHoldASubset) {
  for (const wchar_t* text :
       {L"<!DOCTYPE a><a/>", L"<!doctype html><a/>", L"<!DOCTYPE a SYSTEM \"[>'\"><a/>",
        L"<!DOCTYPE a [<!ELEMENT a (b|c)*><!ENTITY x '<y>]>'>]><a/>",
        L"<!DOCTYPE a [<!-- it's ]> --><?pi ' ]>?> %pe; <!ATTLIST a b CDATA \"]>\">] ><a/>",
        L"<!DOCTYPE a PUBLIC '-//x' \"y\"[\n]><a/>"}) {
    CMarkup doc(text);
    EXPECT_TRUE(doc.IsWellFormed()) << text << doc.GetError();
    EXPECT_EQ(Outline(doc), L"a") << text;
  }
}

TEST(MarkupParse, CommentsAndInstructionsNeedAnEndOfTheirOwn) {
  EXPECT_TRUE(CMarkup(L"<!----><?\?><![CDATA[]]><!-- - -- ---><a/>").IsWellFormed());
  EXPECT_EQ(CMarkup(L"<a/><!-->").GetError(), L"unterminated tag at offset 4");
  EXPECT_EQ(CMarkup(L"<a/><?>").GetError(), L"unterminated tag at offset 4");
}

TEST(MarkupParse, EveryFaultHasItsText) {
  struct {
    const wchar_t* text;
    const wchar_t* error;
  } const cases[] = {
      {L"<a/><b/>", L"root element has sibling"},
      {L"text", L"no root element"},
      {L" ", L"no root element"},
      {L"<a></b></a>", L"lone end tag 'b' at offset 3"},
      {L"</b><a/>", L"lone end tag 'b' at offset 0"},
      {L"<a></></a>", L"lone end tag '' at offset 3"},
      {L"<a></ a></a>", L"lone end tag '' at offset 3"},
      {L"<a><b></a>", L"start tag 'b' at offset 3 expecting end tag at offset 7"},
      {L"<a>x", L"start tag 'a' at offset 0 expecting end tag at offset 4"},
      {L"<a>< </a>", L"tag syntax error at offset 4 expecting tag name / ! or ?"},
      {L"<a><></a>", L"tag syntax error at offset 4 expecting tag name / ! or ?"},
      {L"<a><\n></a>", L"tag syntax error at offset 4 expecting tag name / ! or ?"},
      {L"<a><!5></a>", L"tag syntax error at offset 5 expecting 'DOCTYPE' [ or -"},
      {L"<a><!></a>", L"tag syntax error at offset 5 expecting 'DOCTYPE' [ or -"},
      {L"<!DOCTYPE a [<!5>]><a/>", L"tag syntax error at offset 15 expecting markup declaration"},
      {L"<!DOCTYPE a [<b>]><a/>", L"tag syntax error at offset 14 expecting markup declaration"},
      {L"<!DOCTYPE a [<!-x>]><a/>", L"tag syntax error at offset 16 expecting markup declaration"},
      {L"<a><!-x--></a>", L"tag syntax error at offset 6 expecting - to begin comment"},
      {L"<a><![CDADA[]]></a>", L"tag syntax error at offset 9 expecting 'CDATA'"},
      {L"<a/><b", L"unterminated tag at offset 4"},
      {L"<a/><b c='>", L"unterminated tag at offset 4"},
      {L"<a/></a", L"unterminated tag at offset 4"},
      {L"<a/><", L"unterminated tag at offset 4"},
      {L"<a/><!", L"unterminated tag at offset 4"},
      {L"<a/><!-", L"unterminated tag at offset 4"},
      {L"<a/><!-- --", L"unterminated tag at offset 4"},
      {L"<a/><![CDATA", L"unterminated tag at offset 4"},
      {L"<a/><![CDATA[ ]]", L"unterminated tag at offset 4"},
      {L"<a/><?x ", L"unterminated tag at offset 4"},
      {L"<a/><!DOCTYPE a [ >", L"unterminated tag at offset 4"},
  };
  for (const auto& c : cases) {
    CMarkup doc;
    EXPECT_FALSE(doc.SetDoc(c.text)) << c.text;
    EXPECT_EQ(doc.GetError(), c.error) << c.text;
    ExpectSoundIndex(doc);
  }
}

TEST(MarkupParse, ResultsAreEmptyElementsOnOneLine) {
  struct {
    const wchar_t* text;
    const wchar_t* result;
  } const cases[] = {
      {L"<a/><b/>", L"<root_has_sibling/>"},
      {L"<a></b></a>", L"<lone_end_tag tagname=\"b\" offset=\"3\"/>"},
      {L"<a><b></a>", L"<unended_start_tag tagname=\"b\" offset=\"3\" offset2=\"7\"/>"},
      {L"<a>< </a>", L"<first_tag_syntax offset=\"4\"/>"},
      {L"<a/><", L"<unterminated_tag_syntax type=\"tag\" offset=\"4\"/>"},
      {L"<a/><!", L"<unterminated_tag_syntax type=\"tag\" offset=\"4\"/>"},
      {L"<a/><b", L"<unterminated_tag_syntax type=\"start_tag\" offset=\"4\"/>"},
      {L"<a/></b", L"<unterminated_tag_syntax type=\"end_tag\" offset=\"4\"/>"},
      {L"<a/><!-- ", L"<unterminated_tag_syntax type=\"comment\" offset=\"4\"/>"},
      {L"<a/><![C", L"<unterminated_tag_syntax type=\"cdata_section\" offset=\"4\"/>"},
      {L"<a/><?b", L"<unterminated_tag_syntax type=\"processing_instruction\" offset=\"4\"/>"},
      {L"<a/><!D", L"<unterminated_tag_syntax type=\"document_type\" offset=\"4\"/>"},
      {L"</&<><a/>", L"<lone_end_tag tagname=\"&amp;\" offset=\"0\"/>"},
  };
  for (const auto& c : cases) EXPECT_EQ(CMarkup(c.text).m_strResult, c.result) << c.text;
}

TEST(MarkupParse, FaultsStandInTheOrderInWhichTheyAreFound) {
  EXPECT_EQ(CMarkup(L"<a></x>< <b><c></a><d><!--").GetError(),
            L"lone end tag 'x' at offset 3, "
            L"tag syntax error at offset 8 expecting tag name / ! or ?, "
            L"start tag 'c' at offset 12 expecting end tag at offset 16, "
            L"start tag 'b' at offset 9 expecting end tag at offset 16, "
            L"unterminated tag at offset 22, "
            L"start tag 'd' at offset 19 expecting end tag at offset 26, "
            L"root element has sibling");
}

TEST(MarkupParse, AnUnendedElementBecomesALeafFollowedByItsChildren) {
  CMarkup doc(L"<r><p/><a x='1'>t<b><c/></b><d/></r>");
  EXPECT_FALSE(doc.IsWellFormed());
  EXPECT_EQ(Outline(doc), L"r(p a b(c) d)");
  ExpectSoundIndex(doc);
  const ElemPos& a = doc.x_Elem(3);
  EXPECT_EQ(a.nFlags & MNF_NONENDED, MNF_NONENDED);
  EXPECT_EQ(a.nLength, 9);
  EXPECT_EQ(a.nEndTagLen, 0u);
  EXPECT_EQ(doc.GetError(), L"start tag 'a' at offset 7 expecting end tag at offset 33");
}

TEST(MarkupParse, ManyUnendedElementsKeepTheOrderOfTheDocument) {
  CMarkup doc(L"<r><a><b/><c><d/><e><f/></r>");
  EXPECT_EQ(Outline(doc), L"r(a b c d e f)");
  ExpectSoundIndex(doc);
  CMarkup open(L"<a><b/><c><d/><e>");
  EXPECT_EQ(Outline(open), L"a b c d e");
  ExpectSoundIndex(open);
  CMarkup twice(L"<r><a><b><c></a><d><e></r>");
  EXPECT_EQ(Outline(twice), L"r(a(b c) d e)");
  ExpectSoundIndex(twice);
}

TEST(MarkupParse, IllDataMovesFromAnUnendedElementToItsParent) {
  CMarkup doc(L"<r><a></x><b/></r>");
  EXPECT_EQ(doc.x_Elem(1).nFlags & MNF_ILLDATA, MNF_ILLDATA);
  EXPECT_EQ(doc.x_Elem(2).nFlags & MNF_ILLDATA, 0);
  CMarkup ended(L"<r><a></x></a></r>");
  EXPECT_EQ(ended.x_Elem(1).nFlags & MNF_ILLDATA, 0);
  EXPECT_EQ(ended.x_Elem(2).nFlags & MNF_ILLDATA, MNF_ILLDATA);
  CMarkup error(L"<r><a>< </a></r>");
  EXPECT_EQ(error.x_Elem(2).nFlags & MNF_ILLDATA, MNF_ILLDATA);
  for (const CMarkup* const each : {&doc, &ended, &error}) {
    EXPECT_EQ(each->x_Elem(0).nFlags & MNF_ILLFORMED, MNF_ILLFORMED);
  }
}

TEST(MarkupParse, ScanningGoesOnBehindASyntaxError) {
  CMarkup doc(L"<r>< <a/><!5<b/><![CDX<c/><!-<d/></r>");
  EXPECT_EQ(Outline(doc), L"r(a b c d)");
  ExpectSoundIndex(doc);
}

TEST(MarkupParse, AnEndTagClosesTheNearestOpenElementOfItsName) {
  CMarkup doc(L"<a><b><a><c></a></b></a>");
  EXPECT_EQ(Outline(doc), L"a(b(a(c)))");
  EXPECT_EQ(doc.x_Elem(3).nEndTagLen, 4u);
}

TEST(MarkupParse, EndTagsMatchAsNamesDo) {
  CMarkup brackets(L"<r><a[1]><b></a></a[1]></r>");
  EXPECT_EQ(Outline(brackets), L"r(a[1](b))");
  EXPECT_EQ(brackets.m_strResult,
            L"<unended_start_tag tagname=\"b\" offset=\"9\" offset2=\"13\"/>"
            L"<lone_end_tag tagname=\"a[1]\" offset=\"16\"/>");
  CMarkup folded;
  folded.m_nDocFlags = MDF_IGNORECASE;
  EXPECT_FALSE(folded.SetDoc(L"<R><Ab><c></aB></r>"));
  EXPECT_EQ(Outline(folded), L"R(Ab(c))");
  EXPECT_FALSE(CMarkup(L"<R></r>").IsWellFormed());
}

TEST(MarkupParse, NoFurtherResultsOnceTheReportHasAThousandCharacters) {
  std::wstring text = L"<r>";
  for (int i = 0; i < 500; ++i) text += i % 3 == 0 ? L"</x>" : i % 3 == 1 ? L"< " : L"<y>";
  CMarkup doc(text);
  EXPECT_GE(doc.m_strResult.length(), 1000u);
  EXPECT_LT(doc.m_strResult.length(), 1100u);
  EXPECT_EQ(doc.GetError().find(L"root element has sibling"), std::wstring::npos);
  std::wstring full(999, L'x');
  CMarkup::x_AddResult(full, L"a");
  EXPECT_EQ(full.length(), 1003u);
  CMarkup::x_AddResult(full, L"a");
  EXPECT_EQ(full.length(), 1003u);
}

TEST(MarkupParse, ResultsTakeTheirAttributesFromTheFlags) {
  CMarkup doc;
  doc.x_AddResult(L"a", L"v");
  doc.x_AddResult(L"b", L"v'", MRC_TYPE | MRC_COUNT, 0);
  doc.x_AddResult(L"c", L"v", MRC_ENCODING | MRC_LENGTH, 7, 8);
  doc.x_AddResult(L"d", nullptr, MRC_MSG | MRC_NUMBER, 2);
  EXPECT_EQ(doc.m_strResult,
            L"<a tagname=\"v\"/><b type=\"v&apos;\" count=\"0\"/>"
            L"<c encoding=\"v\" length=\"7\" offset2=\"8\"/><d n=\"2\"/>");
}

TEST(MarkupParse, TheTextEndsAtItsFirstZero) {
  CMarkup doc;
  EXPECT_FALSE(doc.SetDoc(std::wstring(L"<a>\0</a>", 8)));
  EXPECT_EQ(Outline(doc), L"a");
  EXPECT_TRUE(doc.SetDoc(std::wstring(L"<a/>\0<b/>", 9)));
}

TEST(MarkupParse, AnEndTagAbove1023CharactersIsNotRecordedAsShorter) {
  for (const int length : {1023, 1024, 5000}) {
    const std::wstring name(length - 3, L'n');
    CMarkup doc(L"<r><" + name + L"><k/></" + name + L"><z/></r>");
    const ElemPos& elem = doc.x_Elem(2);
    EXPECT_EQ(elem.nEndTagLen, 1023u);
    EXPECT_EQ(elem.nLength, 2 * length + 3);
    EXPECT_EQ(doc.IsWellFormed(), length == 1023);
    EXPECT_EQ((elem.nFlags & MNF_ILLDATA) != 0, length != 1023);
    EXPECT_EQ(doc.x_GetTagName(3), L"k");
    EXPECT_EQ(doc.x_GetTagName(4), L"z");
  }
}

TEST(MarkupParse, AStartTagAbove4194303CharactersIsNotRecordedAsShorter) {
  constexpr int kMax = 0x3fffff;
  for (const int length : {kMax, kMax + 1, kMax + 1000000}) {
    for (const bool empty : {false, true}) {
      const std::wstring value(length - (empty ? 12 : 11), L'v');
      CMarkup doc(L"<r><elem a='" + value + (empty ? L"'/>" : L"'><k/></elem>") +
                  L"<z b='1'/></r>");
      const ElemPos& elem = doc.x_Elem(2);
      EXPECT_EQ(elem.nStartTagLen, static_cast<unsigned>(kMax));
      EXPECT_EQ(elem.nLength, length + (empty ? 0 : 11));
      EXPECT_EQ(doc.IsWellFormed(), length == kMax);
      EXPECT_EQ(Outline(doc), empty ? L"r(elem z)" : L"r(elem(k) z)");
      ASSERT_TRUE(doc.FindChildElem(L"elem") && doc.IntoElem());
      EXPECT_EQ(doc.GetAttrib(L"a"), value);
      EXPECT_EQ(doc.SetAttrib(L"a", L"x"), length == kMax);
    }
  }
}
