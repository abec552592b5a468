#pragma once
// What a markup document's index says, written out for comparison, and the rules it always keeps.
#include <gtest/gtest.h>

#include <string>

#include "Markup.h"

// The elements as names, children in parentheses: "a(b c(d))".
inline std::wstring Outline(const CMarkup& doc, int iParent = 0) {
  std::wstring text;
  for (int i = doc.x_Elem(iParent).iElemChild; i != 0; i = doc.x_Elem(i).iElemNext) {
    if (!text.empty()) text += L' ';
    text += doc.x_GetTagName(i);
    if (doc.x_Elem(i).iElemChild != 0) text += L"(" + Outline(doc, i) + L")";
  }
  return text;
}

// Each element's markup in document order, a line each: offsets that are wrong show up as text.
inline std::wstring ElementTexts(const CMarkup& doc, int iParent = 0) {
  std::wstring text;
  for (int i = doc.x_Elem(iParent).iElemChild; i != 0; i = doc.x_Elem(i).iElemNext) {
    const ElemPos& elem = doc.x_Elem(i);
    const int endTag = elem.nStart + elem.nLength - static_cast<int>(elem.nEndTagLen);
    text += doc.GetDoc().substr(elem.nStart, elem.nStartTagLen) + L" ... " +
            doc.GetDoc().substr(endTag, elem.nEndTagLen) + L"\n" + ElementTexts(doc, i);
  }
  return text;
}

// Sibling chains, parents and tag places fit together. Not for elements with over-long tags.
inline void ExpectSoundIndex(const CMarkup& doc, int iParent = 0) {
  const int first = doc.x_Elem(iParent).iElemChild;
  int last = 0;
  int end = 0;
  for (int i = first; i != 0; last = i, i = doc.x_Elem(i).iElemNext) {
    const ElemPos& elem = doc.x_Elem(i);
    ASSERT_EQ(elem.iElemParent, iParent);
    ASSERT_EQ((elem.nFlags & MNF_FIRST) != 0, i == first);
    ASSERT_EQ(elem.nFlags & MNF_DELETED, 0);
    if (i != first) {
      ASSERT_EQ(elem.iElemPrev, last);
    }
    ASSERT_GE(elem.nStart, end);
    end = elem.nStart + elem.nLength;
    ASSERT_LE(static_cast<size_t>(end), doc.GetDoc().length());
    ASSERT_EQ(doc.GetDoc()[elem.nStart], L'<');
    ASSERT_EQ(doc.GetDoc()[elem.nStart + elem.nStartTagLen - 1], L'>');
    ASSERT_EQ(doc.GetDoc()[end - 1], L'>');
    if (elem.nEndTagLen != 0) {
      ASSERT_EQ(doc.GetDoc()[end - elem.nEndTagLen + 1], L'/');
    }
    if (elem.nEndTagLen == 0) {
      ASSERT_EQ(elem.iElemChild, 0);
    }
    ExpectSoundIndex(doc, i);
  }
  if (first != 0) {
    ASSERT_EQ(doc.x_Elem(first).iElemPrev, last);
  }
}
