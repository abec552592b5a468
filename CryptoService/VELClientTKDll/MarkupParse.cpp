// Indexing the elements of the document.
#include <climits>
#include <utility>

#include "Markup.h"

bool CMarkup::x_ParseDoc() {
  ResetPos();
  m_pSavedPosMaps->ReleaseMaps();
  m_iPosFree = 1;
  m_iPosDeleted = 0;
  // Offsets have 31 bits: a longer text is kept, but nothing in it can be indexed.
  const bool tooLong = m_strDoc.length() > INT_MAX;
  const int length = tooLong ? 0 : static_cast<int>(m_strDoc.length());
  x_AllocElemPos(length / 64 + 8);
  x_Elem(0) = ElemPos();
  if (tooLong) x_Elem(0).nFlags = MNF_ILLFORMED;
  if (length > 0) {
    TokenPos token(m_strDoc.c_str(), m_nDocFlags);
    const int root = x_ParseElem(0, token);
    x_Elem(0).nLength = length;
    if (root < 1) {
      x_AddResult(L"no_root_element");
    } else {
      x_Elem(0).iElemChild = root;
      if (x_Elem(root).iElemNext != 0) x_AddResult(L"root_has_sibling");
    }
  }
  ResetPos();
  return IsWellFormed();
}

void CMarkup::x_AllocElemPos(int nNewSize) {
  if (nNewSize == 0) nNewSize = m_iPosFree + m_iPosFree / 2;
  if (m_pElemPosTree->GetSize() < nNewSize) m_pElemPosTree->GrowElemPosTree(nNewSize);
}

int CMarkup::x_GetFreePos() {
  if (m_iPosFree == m_pElemPosTree->GetSize()) x_AllocElemPos();
  return m_iPosFree++;
}

int CMarkup::x_ParseElem(int iPosParent, TokenPos& token) {
  const int level = iPosParent != 0 ? (x_Elem(iPosParent).nFlags & ElemPos::LEVEL_MASK) + 1 : 0;
  int parent = iPosParent;
  int first = 0;
  ElemStack stack(token);
  NodePos node;
  for (;;) {
    const int type = token.ParseNode(node);
    if (type == MNT_ELEMENT) {
      const int pos = x_OpenElem(parent, node, level + stack.GetDepth());
      if (first == 0) first = pos;
      if ((node.nNodeFlags & MNF_EMPTY) != 0) continue;
      stack.Push(pos, token.m_nL, token.Length());
      parent = pos;
    } else if (type == TokenPos::NODE_END_TAG) {
      const int above = stack.FindAbove(token);
      if (above < 0) {
        x_SetIllFormed(parent, MNF_ILLDATA);
        if (m_strResult.length() < RESULT_LIMIT) {
          x_AddResult(L"lone_end_tag", token.GetTokenText(), 0, node.nStart);
        }
        continue;
      }
      x_CloseUnended(stack, above, token.m_nL - 1);
      parent = x_CloseElem(stack.GetAt(0).iPos, node);
      stack.Pop(1);
    } else if (type < 0) {
      if (!node.strMeta.empty()) {
        x_SetIllFormed(parent, MNF_ILLDATA);
        if (m_strResult.length() < RESULT_LIMIT) m_strResult += node.strMeta;
        node.strMeta.clear();
      }
      if (type == TokenPos::NODE_END_OF_DOCUMENT) break;
    }
  }
  x_CloseUnended(stack, stack.GetDepth(), static_cast<int>(m_strDoc.length()));
  return first;
}

int CMarkup::x_OpenElem(int iPosParent, const NodePos& node, int nLevel) {
  const int pos = x_GetFreePos();
  ElemPos& elem = x_Elem(pos);
  elem.nStart = node.nStart;
  elem.nLength = node.nLength;
  elem.nEndTagLen = 0;
  elem.nFlags = nLevel & ElemPos::LEVEL_MASK;
  elem.iElemChild = 0;
  if (node.nLength <= static_cast<int>(ElemPos::START_TAG_MAX)) {
    elem.nStartTagLen = static_cast<unsigned int>(node.nLength) & ElemPos::START_TAG_MAX;
  } else {
    elem.nStartTagLen = ElemPos::START_TAG_MAX;
    x_SetIllFormed(pos, MNF_ILLDATA);
  }
  x_LinkElem(iPosParent, LINK_LAST, pos);
  return pos;
}

// Returns the parent.
int CMarkup::x_CloseElem(int iPos, const NodePos& node) {
  ElemPos& elem = x_Elem(iPos);
  elem.nLength = node.nStart - elem.nStart + node.nLength;
  if (node.nLength <= static_cast<int>(ElemPos::END_TAG_MAX)) {
    elem.nEndTagLen = static_cast<unsigned int>(node.nLength) & ElemPos::END_TAG_MAX;
  } else {
    elem.nEndTagLen = ElemPos::END_TAG_MAX;
    x_SetIllFormed(iPos, MNF_ILLDATA);
  }
  return elem.iElemParent;
}

// The nCount innermost open elements have no end tag: each becomes a leaf, followed by what it
// held. All of them end up under the parent of the outermost, to which each element goes directly,
// so that the time does not grow with the depth.
void CMarkup::x_CloseUnended(ElemStack& stack, int nCount, int nExpected) {
  if (nCount == 0) return;
  const int parent = x_Elem(stack.GetAt(nCount - 1).iPos).iElemParent;
  int last = 0;
  for (int i = 0; i < nCount; ++i) {
    const int pos = stack.GetAt(i).iPos;
    x_ReportUnended(stack.GetAt(i), nExpected);
    ElemPos& elem = x_Elem(pos);
    const int child = elem.iElemChild;
    if (i == 0) last = child != 0 ? x_Elem(child).iElemPrev : pos;
    const int illData = elem.nFlags & MNF_ILLDATA;
    elem.nFlags = (elem.nFlags & ~MNF_ILLDATA) | MNF_NONENDED;
    x_SetIllFormed(elem.iElemParent, illData);
    elem.iElemChild = 0;
    elem.iElemNext = child;
    if (child == 0) continue;
    x_Elem(child).nFlags &= ~MNF_FIRST;
    x_Elem(child).iElemPrev = pos;
    // The last child is the element closed before, whose next is already one of its own.
    const int end = i == 0 ? 0 : x_Elem(stack.GetAt(i - 1).iPos).iElemNext;
    for (int c = child; c != end; c = x_Elem(c).iElemNext) x_Elem(c).iElemParent = parent;
  }
  x_Elem(x_Elem(parent).iElemChild).iElemPrev = last;
  stack.Pop(nCount);
}

void CMarkup::x_ReportUnended(const ElemStack::OpenTag& tag, int nExpected) {
  if (m_strResult.length() >= RESULT_LIMIT) return;
  const std::wstring name(m_strDoc, tag.nName, tag.nNameLen);
  x_AddResult(L"unended_start_tag", name, 0, x_Elem(tag.iPos).nStart, nExpected);
}

void CMarkup::x_SetIllFormed(int iPos, int nFlags) {
  x_Elem(0).nFlags |= MNF_ILLFORMED;
  x_Elem(iPos).nFlags |= nFlags;
}

void CMarkup::x_LinkElem(int iPosParent, int iPosBefore, int iPos) {
  ElemPos& parent = x_Elem(iPosParent);
  ElemPos& elem = x_Elem(iPos);
  elem.iElemParent = iPosParent;
  if (iPosBefore == 0 || parent.iElemChild == 0) {
    elem.iElemNext = parent.iElemChild;
    elem.iElemPrev = iPos;
    elem.nFlags |= MNF_FIRST;
    if (elem.iElemNext != 0) {
      ElemPos& next = x_Elem(elem.iElemNext);
      elem.iElemPrev = next.iElemPrev;
      next.iElemPrev = iPos;
      next.nFlags &= ~MNF_FIRST;
    }
    parent.iElemChild = iPos;
    return;
  }
  ElemPos& first = x_Elem(parent.iElemChild);
  if (iPosBefore == LINK_LAST) iPosBefore = first.iElemPrev;
  ElemPos& before = x_Elem(iPosBefore);
  elem.iElemNext = before.iElemNext;
  elem.iElemPrev = iPosBefore;
  before.iElemNext = iPos;
  if (elem.iElemNext != 0) {
    x_Elem(elem.iElemNext).iElemPrev = iPos;
  } else {
    first.iElemPrev = iPos;
  }
}
