#include "Markup.h"

#include <sys/mman.h>

#include <climits>
#include <cstdint>
#include <cwchar>
#include <functional>

namespace {

// Room for a long text in large pages: to touch fresh small ones costs more than to parse the text.
void ReserveLarge(std::wstring& text, size_t length) {
  constexpr uintptr_t kLargePage = 2 << 20;
  if (length <= text.capacity()) return;
  text.reserve(length);
  const uintptr_t start = reinterpret_cast<uintptr_t>(text.data());
  const uintptr_t first = (start + kLargePage - 1) / kLargePage * kLargePage;
  const uintptr_t end = (start + length * sizeof(wchar_t)) / kLargePage * kLargePage;
  // Only advice: nothing depends on its being taken.
  if (first < end) madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
}

}  // namespace

CMarkup::CMarkup(const wchar_t* doc)
    : m_iPosParent(0),
      m_iPos(0),
      m_iPosChild(0),
      m_iPosFree(1),
      m_iPosDeleted(0),
      m_nNodeType(0),
      m_nNodeOffset(0),
      m_nNodeLength(0),
      m_nDocFlags(0),
      m_pFilePos(nullptr),
      m_pSavedPosMaps(new SavedPosMapArray),
      m_pElemPosTree(new ElemPosTree) {
  SetDoc(doc);
}

CMarkup::~CMarkup() {
  delete m_pSavedPosMaps;
  delete m_pElemPosTree;
}

bool CMarkup::SetDoc(const wchar_t* doc) {
  if ((m_nDocFlags & (MDF_READFILE | MDF_WRITEFILE)) != 0) return false;
  if (doc != nullptr) return x_SetText(doc, wcslen(doc));
  m_strDoc.clear();
  m_pElemPosTree->Clear();
  m_strResult.clear();
  return x_ParseDoc();
}

bool CMarkup::SetDoc(const std::wstring& doc) {
  if ((m_nDocFlags & (MDF_READFILE | MDF_WRITEFILE)) != 0) return false;
  return x_SetText(doc.c_str(), doc.length());
}

bool CMarkup::x_SetText(const wchar_t* pText, size_t nLength) {
  m_strResult.clear();
  const std::less<const wchar_t*> before;
  const wchar_t* const own = m_strDoc.data();
  const bool isOwn = !before(pText, own) && !before(own + m_strDoc.capacity(), pText);
  // Copying first would fetch a text from memory twice that no cache can hold.
  if (isOwn || nLength < LATE_COPY || nLength > INT_MAX) {
    m_strDoc.assign(pText, nLength);
    return x_ParseDoc();
  }
  m_strDoc.clear();
  ReserveLarge(m_strDoc, nLength);
  return x_ParseText(pText, nLength, &m_strDoc);
}

bool CMarkup::IsWellFormed() const {
  if ((m_nDocFlags & MDF_WRITEFILE) != 0) return true;
  if (m_pElemPosTree->GetSize() == 0) return (m_nDocFlags & MDF_READFILE) != 0;
  const ElemPos& document = x_Elem(0);
  if ((document.nFlags & MNF_ILLFORMED) != 0) return false;
  if ((m_nDocFlags & MDF_READFILE) != 0) return true;
  return document.iElemChild != 0 && x_Elem(document.iElemChild).iElemNext == 0;
}

void CMarkup::x_SetPos(int iPosParent, int iPos, int iPosChild) {
  m_iPosParent = iPosParent;
  m_iPos = iPos;
  m_iPosChild = iPosChild;
  m_nNodeOffset = 0;
  m_nNodeLength = 0;
  m_nNodeType = iPos != 0 ? MNT_ELEMENT : 0;
}

bool CMarkup::FindElem(MarkupCStr name) {
  if ((m_nDocFlags & MDF_WRITEFILE) != 0 || m_pElemPosTree->GetSize() == 0) return false;
  const bool first = m_iPos == 0;
  const ElemPos& from = x_Elem(first ? m_iPosParent : m_iPos);
  const int parent = first ? m_iPosParent : from.iElemParent;  // siblings have the same
  int found = first ? from.iElemChild : from.iElemNext;
  if (!name.IsEmpty()) found = x_FindElem(m_iPosParent, m_iPos, PathPos(name));
  if (found == 0) return false;
  x_SetPos(parent, found, 0);
  return true;
}

bool CMarkup::FindChildElem(MarkupCStr name) {
  if ((m_nDocFlags & (MDF_READFILE | MDF_WRITEFILE)) != 0) return false;
  if (m_iPos == 0 && !FindElem()) return false;
  const int found = x_FindElem(m_iPos, m_iPosChild, PathPos(name));
  if (found == 0) return false;
  x_SetPos(x_Elem(m_iPos).iElemParent, m_iPos, found);
  return true;
}

bool CMarkup::IntoElem() {
  if (m_iPos == 0 || m_nNodeType != MNT_ELEMENT) return false;
  x_SetPos(m_iPos, m_iPosChild, 0);
  return true;
}

bool CMarkup::OutOfElem() {
  if (m_iPosParent == 0) return false;
  x_SetPos(x_Elem(m_iPosParent).iElemParent, m_iPosParent, m_iPos);
  return true;
}

int CMarkup::x_FindElem(int iPosParent, int iPos, PathPos path) const {
  if (!path.ParsePath() || (path.IsPath() && !path.IsRelative())) return 0;
  if (m_pElemPosTree->GetSize() == 0) return 0;
  iPos = x_NextElem(iPosParent, iPos);
  if (!path.IsPath()) return iPos;
  TokenPos token(m_strDoc.c_str(), m_nDocFlags);
  for (; iPos != 0; iPos = x_Elem(iPos).iElemNext) {
    token.m_nNext = x_Elem(iPos).nStart + 1;
    token.ReadTagName();
    if (token.Match(path.GetPtr())) return iPos;
  }
  return 0;
}

std::wstring CMarkup::x_GetTagName(int iPos) const {
  TokenPos token(m_strDoc.c_str(), m_nDocFlags);
  token.m_nNext = x_Elem(iPos).nStart + 1;
  token.ReadTagName();
  return token.GetTokenText();
}
