// Indexing the elements of the document.
#include <climits>
#include <utility>

#include "Markup.h"
#include "MarkupScan.h"

namespace {

// The text is copied whole even when memory for the index runs out.
class CopyGuard {
 public:
  CopyGuard(TokenPos& token, std::wstring* target) : m_token(target != nullptr ? &token : nullptr) {
    if (m_token != nullptr) m_token->BeginCopy(target);
  }
  CopyGuard(const CopyGuard&) = delete;
  CopyGuard& operator=(const CopyGuard&) = delete;
  ~CopyGuard() {
    if (m_token != nullptr) m_token->EndCopy();
  }

 private:
  TokenPos* m_token;
};

}  // namespace

bool CMarkup::x_ParseDoc() {
  return x_ParseText(m_strDoc.c_str(), m_strDoc.length(), nullptr);
}

// Copies the text to pstrCopy on the way unless that is null.
bool CMarkup::x_ParseText(const wchar_t* pText, size_t nLength, std::wstring* pstrCopy) {
  ResetPos();
  m_pSavedPosMaps->ReleaseMaps();
  m_iPosFree = 1;
  m_iPosDeleted = 0;
  // Offsets have 31 bits: a longer text is kept, but nothing in it can be indexed.
  const bool tooLong = nLength > INT_MAX;
  const int length = tooLong ? 0 : static_cast<int>(nLength);
  TokenPos token(pText, m_nDocFlags, nullptr, length);
  const CopyGuard guard(token, pstrCopy);
  x_AllocElemPos(length / 64 + 8);
  x_Elem(0) = ElemPos();
  if (tooLong) x_Elem(0).nFlags = MNF_ILLFORMED;
  if (length > 0) {
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

// iLast is the sibling ahead, 0 = none; the first child learns the last one when the parent closes.
// Inlined with its counterpart, for a call costs half as much as what they do.
[[gnu::always_inline]] inline int CMarkup::x_OpenElem(int iPosParent, int iLast, int nStart,
                                                      int nLength, int nLevel) {
  const int pos = x_GetFreePos();
  const bool tooLong = nLength > static_cast<int>(ElemPos::START_TAG_MAX);
  ElemPos& elem = x_Elem(pos);
  elem.nStart = nStart;
  elem.nLength = nLength;
  // Next to each other, so that they are one store: nothing is read back.
  elem.nStartTagLen =
      (tooLong ? unsigned{ElemPos::START_TAG_MAX} : nLength) & ElemPos::START_TAG_MAX;
  elem.nEndTagLen = 0;
  elem.nFlags = (nLevel & ElemPos::LEVEL_MASK) | (iLast == 0 ? static_cast<int>(MNF_FIRST) : 0);
  elem.iElemParent = iPosParent;
  elem.iElemChild = 0;
  elem.iElemNext = 0;
  elem.iElemPrev = iLast != 0 ? iLast : pos;
  if (iLast != 0) {
    x_Elem(iLast).iElemNext = pos;
  } else {
    x_Elem(iPosParent).iElemChild = pos;
  }
  if (tooLong) x_SetIllFormed(pos, MNF_ILLDATA);
  return pos;
}

[[gnu::always_inline]] inline void CMarkup::x_CloseElem(int iPos, int iLast, const NodePos& node) {
  ElemPos& elem = x_Elem(iPos);
  elem.nLength = node.nStart - elem.nStart + node.nLength;
  if (iLast != 0) x_Elem(elem.iElemChild).iElemPrev = iLast;
  if (node.nLength <= static_cast<int>(ElemPos::END_TAG_MAX)) {
    elem.nEndTagLen = static_cast<unsigned int>(node.nLength) & ElemPos::END_TAG_MAX;
  } else {
    elem.nEndTagLen = ElemPos::END_TAG_MAX;
    x_SetIllFormed(iPos, MNF_ILLDATA);
  }
}

int CMarkup::x_ParseElem(int iPosParent, TokenPos& token) {
  const int level = iPosParent != 0 ? (x_Elem(iPosParent).nFlags & ElemPos::LEVEL_MASK) + 1 : 0;
  const int sibling = x_Elem(iPosParent).iElemChild;
  int parent = iPosParent;
  int last = sibling != 0 ? x_Elem(sibling).iElemPrev : 0;  // child of the parent so far
  int depth = 0;
  int first = 0;
  ElemStack stack(token, *m_pElemPosTree);
  NodePos node;
  for (;;) {
    const int type = token.ParseNode(node);
    token.CopyScanned();
    if (type == MNT_ELEMENT) {
      last = x_OpenElem(parent, last, node.nStart, node.nLength, level + depth);
      if (first == 0) first = last;
      if ((node.nNodeFlags & MNF_EMPTY) != 0) continue;
      parent = last;
      last = 0;
      ++depth;
    } else if (type == TokenPos::NODE_END_TAG) {
      const bool top = depth > 0 && token.MatchTag(token.m_pDocText + x_Elem(parent).nStart + 1);
      const int above = top ? 0 : stack.FindAbove(token, parent, depth);
      if (above < 0) {
        x_ReportLoneEndTag(parent, token, node);
        continue;
      }
      if (above > 0) parent = x_CloseUnended(token, parent, last, above, token.m_nL - 1);
      x_CloseElem(parent, last, node);
      last = parent;
      parent = x_Elem(parent).iElemParent;
      depth -= above + 1;
      stack.Close(depth);
    } else if (type < 0) {
      if ((node.nNodeFlags & MNF_ILLDATA) != 0) x_ReportFault(parent, token, node);
      if (type == TokenPos::NODE_END_OF_DOCUMENT) break;
    }
  }
  if (depth > 0) x_CloseUnended(token, parent, last, depth, token.DocLength());
  if (last != 0) x_Elem(x_Elem(iPosParent).iElemChild).iElemPrev = last;
  return first;
}

// The nCount innermost open elements, iPos the last of them, have no end tag: each becomes a leaf,
// followed by what it held. All end up under the parent of the outermost, which is returned. Each
// element goes there directly, so that the time does not grow with the depth. iLast is the last
// child of iPos, and then of that parent.
int CMarkup::x_CloseUnended(const TokenPos& token, int iPos, int& iLast, int nCount,
                            int nExpected) {
  int parent = iPos;
  for (int i = 0; i < nCount; ++i) parent = x_Elem(parent).iElemParent;
  if (iLast == 0) iLast = iPos;
  int end = 0;  // the former children from here on have their parent already
  for (int i = 0; i < nCount; ++i) {
    x_ReportUnended(token, iPos, nExpected);
    ElemPos& elem = x_Elem(iPos);
    const int outer = elem.iElemParent;
    const int child = elem.iElemChild;
    x_SetIllFormed(outer, elem.nFlags & MNF_ILLDATA);
    elem.nFlags = (elem.nFlags & ~MNF_ILLDATA) | MNF_NONENDED;
    elem.iElemChild = 0;
    elem.iElemNext = child;
    if (child != 0) {
      x_Elem(child).nFlags &= ~MNF_FIRST;
      x_Elem(child).iElemPrev = iPos;
      for (int c = child; c != end; c = x_Elem(c).iElemNext) x_Elem(c).iElemParent = parent;
    }
    end = child;
    iPos = outer;
  }
  return parent;
}

void CMarkup::x_ReportUnended(TokenPos token, int iPos, int nExpected) {
  if (m_strResult.length() >= RESULT_LIMIT) return;
  token.m_nNext = x_Elem(iPos).nStart + 1;
  token.ReadTagName();
  x_AddResult(L"unended_start_tag", token.GetTokenText(), 0, x_Elem(iPos).nStart, nExpected);
}

void CMarkup::x_ReportLoneEndTag(int iPosParent, const TokenPos& token, const NodePos& node) {
  x_SetIllFormed(iPosParent, MNF_ILLDATA);
  if (m_strResult.length() >= RESULT_LIMIT) return;
  x_AddResult(L"lone_end_tag", token.GetTokenText(), 0, node.nStart);
}

void CMarkup::x_ReportFault(int iPosParent, TokenPos& token, NodePos& node) {
  x_SetIllFormed(iPosParent, MNF_ILLDATA);
  if (m_strResult.length() < RESULT_LIMIT) m_strResult += node.strMeta;
  if (m_strResult.length() >= RESULT_LIMIT) token.OmitResults();
  node.strMeta.clear();
}

void CMarkup::x_SetIllFormed(int iPos, int nFlags) {
  x_Elem(0).nFlags |= MNF_ILLFORMED;
  x_Elem(iPos).nFlags |= nFlags;
}

void CMarkup::x_LinkElem(int iPosParent, int iPosBefore, int iPos) {
  ElemPos& parent = x_Elem(iPosParent);
  ElemPos& elem = x_Elem(iPos);
  elem.iElemParent = iPosParent;
  if (iPosBefore == 0) {
    elem.iElemNext = parent.iElemChild;
    elem.iElemPrev = iPos;
    elem.nFlags |= MNF_FIRST;
    parent.iElemChild = iPos;
  } else {
    elem.iElemNext = x_Elem(iPosBefore).iElemNext;
    elem.iElemPrev = iPosBefore;
    x_Elem(iPosBefore).iElemNext = iPos;
  }
  if (elem.iElemNext == 0) {
    x_Elem(parent.iElemChild).iElemPrev = iPos;
    return;
  }
  ElemPos& next = x_Elem(elem.iElemNext);
  if (iPosBefore == 0) elem.iElemPrev = next.iElemPrev;
  next.iElemPrev = iPos;
  next.nFlags &= ~MNF_FIRST;
}
