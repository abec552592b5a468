// Editing the document in place: new elements and nodes, attributes.
#include <climits>
#include <cwchar>

#include "Markup.h"

namespace {

constexpr int kFileFlags = MDF_READFILE | MDF_WRITEFILE;

bool IsName(const wchar_t* name) {
  if (name == nullptr || *name == 0) return false;
  for (; *name != 0; ++name) {
    if (TokenPos::EndsName(*name)) return false;
  }
  return true;
}

// A section cannot hold its own end: there it is split in two.
std::wstring CDataSection(const wchar_t* text) {
  std::wstring section = L"<![CDATA[";
  while (const wchar_t* const end = wcsstr(text, L"]]>")) {
    section.append(text, end + 2).append(L"]]><![CDATA[");
    text = end + 2;
  }
  section.append(text).append(L"]]>");
  return section;
}

bool IsBlank(wchar_t c) {
  return c == L' ' || c == L'\t';
}
bool IsSpace(wchar_t c) {
  return IsBlank(c) || c == L'\n' || c == L'\r';
}

}  // namespace

bool CMarkup::x_CreateElem(NodePos& node, ElemPos& elem, MarkupCStr name, MarkupCStr data) const {
  if (!IsName(name)) return false;
  const std::wstring tag(name);
  std::wstring content;
  if (!data.IsEmpty()) {
    content = (node.nNodeFlags & MNF_WITHCDATA) != 0
                  ? CDataSection(data)
                  : EscapeText(data, node.nNodeFlags & MNF_WITHREFS);
  }
  std::wstring& text = node.strMeta;
  text = L"<" + tag;
  const bool noEnd = (node.nNodeFlags & MNF_WITHNOEND) != 0;
  const bool empty = !noEnd && content.empty();
  if (empty && (node.nNodeFlags & MNF_WITHXHTMLSPACE) != 0) text += L' ';
  text += empty ? L"/>" : L">";
  const size_t startTagLen = text.length();
  const size_t endTagLen = empty || noEnd ? 0 : tag.length() + 3;
  if (startTagLen > ElemPos::START_TAG_MAX || endTagLen > ElemPos::END_TAG_MAX) return false;
  text += content;
  if (endTagLen != 0) text.append(L"</").append(tag).append(L">");
  elem.nLength = static_cast<int>(noEnd ? startTagLen : text.length());
  elem.nStartTagLen = startTagLen & ElemPos::START_TAG_MAX;
  elem.nEndTagLen = endTagLen & ElemPos::END_TAG_MAX;
  elem.nFlags = noEnd ? static_cast<int>(MNF_NONENDED) : 0;
  return true;
}

bool CMarkup::x_CreateNode(NodePos& node, ElemPos& elem, MarkupCStr name, MarkupCStr text) const {
  const std::wstring value(text == nullptr ? L"" : text);
  switch (node.nNodeType) {
    case MNT_ELEMENT:
      return x_CreateElem(node, elem, name, text);
    case MNT_TEXT:
      node.strMeta = EscapeText(value, node.nNodeFlags & MNF_WITHREFS);
      node.nNodeFlags |= MNF_WITHNOLINES;
      return !value.empty();
    case MNT_CDATA_SECTION:
      node.strMeta = CDataSection(value.c_str());
      node.nNodeFlags |= MNF_WITHNOLINES;
      return true;
    case MNT_COMMENT:
      if (value.find(L"--") != std::wstring::npos || (!value.empty() && value.back() == L'-')) {
        return false;
      }
      node.strMeta = L"<!--" + value + L"-->";
      break;
    case MNT_PROCESSING_INSTRUCTION:
      node.strMeta = L"<?" + value + L"?>";
      break;
    case MNT_DOCUMENT_TYPE:
      node.strMeta = value;
      break;
    default:
      return false;
  }
  NodePos parsed;
  TokenPos token(node.strMeta.c_str(), m_nDocFlags);
  return token.ParseNode(parsed) == node.nNodeType &&
         static_cast<size_t>(parsed.nLength) == node.strMeta.length();
}

bool CMarkup::x_AddElem(MarkupCStr name, MarkupCStr data, int flags) {
  const bool child = (flags & MNF_CHILD) != 0;
  if ((m_nDocFlags & kFileFlags) != 0) return false;
  if (child && (m_iPos == 0 || m_nNodeType != MNT_ELEMENT)) return false;
  NodePos node(flags);
  node.nNodeType = MNT_ELEMENT;
  ElemPos elem = ElemPos();
  if (!x_CreateNode(node, elem, name, data)) return false;
  const int parent = child ? m_iPos : m_iPosParent;
  int before = child ? m_iPosChild : m_iPos;
  if (!x_InsertNew(parent, before, node)) return false;
  const int pos = x_TakePos();
  elem.nStart = node.nStart;
  const int level = parent == 0 ? 0 : x_Elem(parent).nFlags + 1;
  elem.nFlags |= level & ElemPos::LEVEL_MASK;
  x_Elem(pos) = elem;
  x_LinkElem(parent, before, pos);
  x_SetPos(m_iPosParent, child ? m_iPos : pos, child ? pos : 0);
  return true;
}

bool CMarkup::x_AddNode(int nNodeType, MarkupCStr text, int flags) {
  if ((m_nDocFlags & kFileFlags) != 0 || nNodeType == MNT_ELEMENT) return false;
  NodePos node(flags);
  node.nNodeType = nNodeType;
  ElemPos none = ElemPos();
  if (!x_CreateNode(node, none, nullptr, text)) return false;
  int before = m_iPos;
  if (!x_InsertNew(m_iPosParent, before, node)) return false;
  x_SetPos(m_iPosParent, before, 0);
  m_nNodeType = nNodeType;
  m_nNodeOffset = node.nStart;
  m_nNodeLength = node.nLength;
  return true;
}

bool CMarkup::x_InsertNew(int iPosParent, int& iPosRel, NodePos& node) {
  // Room for two tags of a parent that has to be opened.
  constexpr size_t kMaxLength = INT_MAX - 2 * ElemPos::END_TAG_MAX;
  if (m_strDoc.length() + node.strMeta.length() > kMaxLength) return false;
  if (iPosParent != 0 && !x_CanEdit(iPosParent)) return false;
  const bool leaf = iPosParent != 0 && x_Elem(iPosParent).nEndTagLen == 0;
  if (leaf && !x_OpenEmptyElem(iPosParent)) return false;
  int at = x_InsertOffset(iPosParent, iPosRel, node.nNodeFlags);
  const bool lines = (node.nNodeFlags & MNF_WITHNOLINES) == 0;
  if (lines) at = x_LineOffset(at);
  std::wstring text;
  if (lines && at > 0 && m_strDoc[at - 1] != L'\n') text = L'\n';
  node.nStart = at + static_cast<int>(text.length());
  node.nLength = static_cast<int>(node.strMeta.length());
  text += node.strMeta;
  if (lines) text += L'\n';
  x_DocChange(at, 0, text);
  const int after = iPosRel != 0 ? x_Elem(iPosRel).iElemNext : x_Elem(iPosParent).iElemChild;
  x_Adjust(iPosParent, after, static_cast<int>(text.length()));
  return true;
}

// iPosRel becomes the sibling ahead of the place, 0 = none.
int CMarkup::x_InsertOffset(int iPosParent, int& iPosRel, int nFlags) const {
  const bool insert = (nFlags & MNF_INSERT) != 0;
  if (m_nNodeLength != 0 && (nFlags & MNF_CHILD) == 0) {
    return insert ? m_nNodeOffset : m_nNodeOffset + m_nNodeLength;
  }
  const ElemPos& parent = x_Elem(iPosParent);
  if (insert && iPosRel == 0) iPosRel = parent.iElemChild;
  if (iPosRel != 0) {
    const ElemPos& rel = x_Elem(iPosRel);
    if (!insert) return rel.nStart + rel.nLength;
    iPosRel = (rel.nFlags & MNF_FIRST) != 0 ? 0 : rel.iElemPrev;
    return rel.nStart;
  }
  if (parent.iElemChild != 0) iPosRel = x_Elem(parent.iElemChild).iElemPrev;
  if (iPosParent == 0) return static_cast<int>(m_strDoc.length());
  return parent.nStart + parent.nLength - static_cast<int>(parent.nEndTagLen);
}

// Behind a line end that follows, ahead of an indentation that leads here.
int CMarkup::x_LineOffset(int nAt) const {
  const int length = static_cast<int>(m_strDoc.length());
  int end = nAt;
  while (end < length && IsBlank(m_strDoc[end])) ++end;
  if (end < length && m_strDoc[end] == L'\r') ++end;
  if (end < length && m_strDoc[end] == L'\n') return end + 1;
  int start = nAt;
  while (start > 0 && IsBlank(m_strDoc[start - 1])) --start;
  return start > 0 && m_strDoc[start - 1] == L'\n' ? start : nAt;
}

bool CMarkup::x_CanEdit(int iPos) const {
  const ElemPos& elem = x_Elem(iPos);
  const bool illData = (elem.nFlags & MNF_ILLDATA) != 0;
  if (elem.nEndTagLen == ElemPos::END_TAG_MAX && illData) return false;
  if (elem.nStartTagLen != ElemPos::START_TAG_MAX) return true;
  // An element without end tag has handed its flag on, but is as long as its start tag.
  return !illData && (elem.nEndTagLen != 0 || elem.nLength == ElemPos::START_TAG_MAX);
}

// Gives an element without end tag one of its own, with nothing in between.
bool CMarkup::x_OpenEmptyElem(int iPos) {
  const std::wstring name = x_GetTagName(iPos);
  if (name.length() + 3 > ElemPos::END_TAG_MAX) return false;
  ElemPos& elem = x_Elem(iPos);
  const int end = elem.nStart + static_cast<int>(elem.nStartTagLen);
  int left = end - 1;
  if (m_strDoc[left - 1] == L'/') {
    --left;
    while (IsSpace(m_strDoc[left - 1])) --left;
  }
  // A slash ahead of this one would now end the tag itself.
  const std::wstring close = m_strDoc[left - 1] == L'/' ? L" >" : L">";
  const std::wstring tags = close + L"</" + name + L">";
  const int shift = static_cast<int>(tags.length()) - (end - left);
  x_DocChange(left, end - left, tags);
  const int tagEnd = left + static_cast<int>(close.length());
  elem.nStartTagLen = static_cast<unsigned int>(tagEnd - elem.nStart) & ElemPos::START_TAG_MAX;
  elem.nEndTagLen = (name.length() + 3) & ElemPos::END_TAG_MAX;
  elem.nFlags &= ~MNF_NONENDED;
  x_Adjust(iPos, 0, shift);
  return true;
}

bool CMarkup::x_SetAttrib(MarkupCStr name, MarkupCStr value, int flags) {
  const bool element = m_nNodeType == MNT_ELEMENT && m_iPos != 0;
  const bool instruction = m_nNodeType == MNT_PROCESSING_INSTRUCTION && m_nNodeLength != 0;
  if ((m_nDocFlags & kFileFlags) != 0 || !IsName(name) || !(element || instruction)) return false;
  if (element && !x_CanEdit(m_iPos)) return false;
  std::wstring text = L'"' + EscapeText(value, (flags & MNF_WITHREFS) | MNF_ESCAPEQUOTES) + L'"';
  int left, right;
  if (!x_FindAttribValue(name, left, right)) {
    text = L" " + std::wstring(name) + L"=" + text;
    // A "=" without value would take the new name for its own.
    if (m_strDoc[left - 1] == L'=') text.insert(0, L"\"\"");
  }
  const size_t replaced = right - left;
  const size_t tagLen = element ? x_Elem(m_iPos).nStartTagLen : 0;
  if (tagLen + text.length() > ElemPos::START_TAG_MAX + replaced) return false;
  if (m_strDoc.length() + text.length() > INT_MAX + replaced) return false;
  x_DocChange(left, right - left, text);
  x_GrowTag(static_cast<int>(text.length()) - static_cast<int>(replaced));
  return true;
}

// Sets the range of the attribute's value and its quotes in the current tag; without such an
// attribute returns false, and both are the place for one: behind the last.
bool CMarkup::x_FindAttribValue(MarkupCStr name, int& nLeft, int& nRight) const {
  const bool element = m_nNodeType == MNT_ELEMENT;
  const int start = element ? x_Elem(m_iPos).nStart : m_nNodeOffset;
  const int length = element ? static_cast<int>(x_Elem(m_iPos).nStartTagLen) : m_nNodeLength;
  TokenPos token(m_strDoc.c_str(), m_nDocFlags);
  token.m_nNext = start + (element ? 1 : 2);
  token.ReadTagName();
  if (token.FindAttrib(name)) {
    const wchar_t ahead = m_strDoc[token.m_nL - 1];
    const int quote = ahead == L'"' || ahead == L'\'' ? 1 : 0;
    nLeft = token.m_nL - quote;
    nRight = token.m_nR + 1 + quote;
    return true;
  }
  nLeft = start + length - 1;
  if (!element || m_strDoc[nLeft - 1] == L'/') --nLeft;
  while (IsSpace(m_strDoc[nLeft - 1])) --nLeft;
  nRight = nLeft;
  return false;
}

// The tag of the current element or processing instruction is nShift characters longer.
void CMarkup::x_GrowTag(int nShift) {
  if (m_nNodeType == MNT_ELEMENT) {
    ElemPos& elem = x_Elem(m_iPos);
    elem.nStartTagLen = (elem.nStartTagLen + nShift) & ElemPos::START_TAG_MAX;
    x_Adjust(m_iPos, elem.iElemChild, nShift);
    return;
  }
  m_nNodeLength += nShift;
  const int next = m_iPos != 0 ? x_Elem(m_iPos).iElemNext : x_Elem(m_iPosParent).iElemChild;
  x_Adjust(m_iPosParent, next, nShift);
}

void CMarkup::x_DocChange(int nLeft, int nReplace, const std::wstring& strInsert) {
  m_strDoc.replace(nLeft, nReplace, strInsert);
}

void CMarkup::x_Adjust(int iPosParent, int iPosAfter, int nShift) {
  for (;;) {
    for (int i = iPosAfter; i != 0; i = x_NextInside(i, iPosParent)) x_Elem(i).nStart += nShift;
    x_Elem(iPosParent).nLength += nShift;
    if (iPosParent == 0) return;
    iPosAfter = x_Elem(iPosParent).iElemNext;
    iPosParent = x_Elem(iPosParent).iElemParent;
  }
}

int CMarkup::x_NextInside(int iPos, int iPosTop) const {
  if (x_Elem(iPos).iElemChild != 0) return x_Elem(iPos).iElemChild;
  while (x_Elem(iPos).iElemNext == 0) {
    iPos = x_Elem(iPos).iElemParent;
    if (iPos == iPosTop) return 0;
  }
  return x_Elem(iPos).iElemNext;
}
