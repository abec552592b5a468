// Taking elements out, and positions kept under a name.
#include <iterator>

#include "Markup.h"

bool CMarkup::RemoveElem() {
  if ((m_nDocFlags & (MDF_READFILE | MDF_WRITEFILE)) != 0) return false;
  if (m_iPos == 0 || m_nNodeType != MNT_ELEMENT || !x_CanEdit(m_iPos)) return false;
  x_SetPos(m_iPosParent, x_RemoveElem(m_iPos), 0);
  return true;
}

bool CMarkup::RemoveChildElem() {
  if ((m_nDocFlags & (MDF_READFILE | MDF_WRITEFILE)) != 0) return false;
  if (m_iPosChild == 0 || !x_CanEdit(m_iPosChild)) return false;
  x_SetPos(m_iPosParent, m_iPos, x_RemoveElem(m_iPosChild));
  return true;
}

// Returns the sibling ahead, 0 = none.
int CMarkup::x_RemoveElem(int iPos) {
  const ElemPos elem = x_Elem(iPos);
  const int left = elem.nStart;
  int right = elem.nStart + elem.nLength;
  // With an element that has its lines to itself goes the line end behind it.
  const int length = static_cast<int>(m_strDoc.length());
  if (left == 0 || m_strDoc[left - 1] == L'\n') {
    if (right + 1 < length && m_strDoc[right] == L'\r' && m_strDoc[right + 1] == L'\n') ++right;
    if (right < length && m_strDoc[right] == L'\n') ++right;
  }
  x_UnlinkElem(iPos);
  x_DocChange(left, right - left, std::wstring());
  x_Adjust(elem.iElemParent, elem.iElemNext, left - right);
  x_ReleaseElems(iPos);
  return (elem.nFlags & MNF_FIRST) != 0 ? 0 : elem.iElemPrev;
}

void CMarkup::x_UnlinkElem(int iPos) {
  const ElemPos& elem = x_Elem(iPos);
  ElemPos& parent = x_Elem(elem.iElemParent);
  const bool first = (elem.nFlags & MNF_FIRST) != 0;
  if (first) {
    parent.iElemChild = elem.iElemNext;
  } else {
    x_Elem(elem.iElemPrev).iElemNext = elem.iElemNext;
  }
  if (elem.iElemNext != 0) {
    x_Elem(elem.iElemNext).iElemPrev = elem.iElemPrev;
    if (first) x_Elem(elem.iElemNext).nFlags |= MNF_FIRST;
  } else if (!first) {
    x_Elem(parent.iElemChild).iElemPrev = elem.iElemPrev;
  }
}

// The element and all below it, the innermost first, go to the chain of deleted positions.
void CMarkup::x_ReleaseElems(int iPos) {
  for (int i = iPos;;) {
    while (x_Elem(i).iElemChild != 0) i = x_Elem(i).iElemChild;
    ElemPos& elem = x_Elem(i);
    const int next = elem.iElemNext;
    elem.nFlags = MNF_DELETED;
    elem.iElemNext = m_iPosDeleted;
    m_iPosDeleted = i;
    if (i == iPos) break;
    x_Elem(elem.iElemParent).iElemChild = 0;
    i = next != 0 ? next : elem.iElemParent;
  }
  for (SavedPosMap& map : m_pSavedPosMaps->m_maps) {
    for (auto it = map.positions.begin(); it != map.positions.end();) {
      const bool gone = (x_Elem(it->second.iPos).nFlags & MNF_DELETED) != 0;
      it = gone ? map.positions.erase(it) : std::next(it);
    }
  }
}

int CMarkup::x_TakePos() {
  if (m_iPosDeleted == 0) return x_GetFreePos();
  const int pos = m_iPosDeleted;
  m_iPosDeleted = x_Elem(pos).iElemNext;
  return pos;
}

bool CMarkup::SavePos(MarkupCStr name, int nMap) {
  if (name == nullptr || (m_nDocFlags & (MDF_READFILE | MDF_WRITEFILE)) != 0) return false;
  SavedPosMap* const map = m_pSavedPosMaps->GetMap(nMap);
  if (map == nullptr) return false;
  SavedPos saved = {m_iPosParent, SavedPos::ROLE_PARENT};
  if (m_iPos != 0) saved = {m_iPos, SavedPos::ROLE_MAIN};
  if (m_iPosChild != 0) saved = {m_iPosChild, SavedPos::ROLE_CHILD};
  map->positions[std::wstring(name)] = saved;
  return true;
}

bool CMarkup::RestorePos(MarkupCStr name, int nMap) {
  if (name == nullptr || (m_nDocFlags & (MDF_READFILE | MDF_WRITEFILE)) != 0) return false;
  const SavedPosMap* const map = m_pSavedPosMaps->GetMap(nMap);
  if (map == nullptr) return false;
  const auto found = map->positions.find(std::wstring(name));
  if (found == map->positions.end()) return false;
  const int pos = found->second.iPos;
  const int parent = x_Elem(pos).iElemParent;
  switch (found->second.role) {
    case SavedPos::ROLE_PARENT:
      x_SetPos(pos, 0, 0);
      break;
    case SavedPos::ROLE_MAIN:
      x_SetPos(parent, pos, 0);
      break;
    case SavedPos::ROLE_CHILD:
      x_SetPos(x_Elem(parent).iElemParent, parent, pos);
      break;
  }
  return true;
}

bool CMarkup::SetMapSize(int nSize, int nMap) {
  if (nSize < 1 || (m_nDocFlags & (MDF_READFILE | MDF_WRITEFILE)) != 0) return false;
  SavedPosMap* const map = m_pSavedPosMaps->GetMap(nMap);
  if (map == nullptr || !map->positions.empty()) return false;
  map->positions.rehash(nSize < 0x10000 ? nSize : 0x10000);
  return true;
}
