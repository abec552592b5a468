#include "MarkupToken.h"

#include <cwchar>

#include "Markup.h"
#include "MarkupScan.h"

using namespace markup_scan;

bool TokenPos::EndsName(wchar_t c) {
  return IsNameEnd(c);
}

int TokenPos::StrNIACmp(const wchar_t* p1, const wchar_t* p2, int nLen) {
  for (int i = 0; i < nLen; ++i) {
    const wchar_t c1 = Fold(p1[i]);
    const wchar_t c2 = Fold(p2[i]);
    if (c1 != c2) return c1 < c2 ? -1 : 1;
    if (c1 == 0) break;
  }
  return 0;
}

bool TokenPos::Match(const wchar_t* name) const {
  return BeginsName(name) && MayFollowName(name[Length()]);
}

inline void TokenPos::ReadName() {
  m_nL = m_nNext;
  m_nNext = static_cast<int>(SkipName(m_pDocText + m_nNext) - m_pDocText);
  m_nR = m_nNext - 1;
}

void TokenPos::ReadTagName() {
  m_bInstruction = m_nNext > 0 && m_pDocText[m_nNext - 1] == L'?';
  ReadName();
}

void TokenPos::CopyPiece() {
  m_pCopy->append(m_pDocText + m_pCopy->length(), m_nNext - m_pCopy->length());
  m_nCopyNext = m_nNext < INT_MAX - COPY_PIECE ? m_nNext + COPY_PIECE : INT_MAX;
}

inline int TokenPos::EndNode(NodePos& node, int nNodeType, const wchar_t* end) {
  m_nNext = static_cast<int>(end - m_pDocText);
  node.nLength = m_nNext - node.nStart;
  node.nNodeType = nNodeType;
  return nNodeType;
}

[[gnu::cold]] int TokenPos::Unterminated(NodePos& node, const wchar_t* kind) {
  node.nNodeFlags = MNF_ILLDATA;
  if (m_bResults) {
    CMarkup::x_AddResult(node.strMeta, L"unterminated_tag_syntax", kind, MRC_TYPE, node.nStart);
  }
  return EndNode(node, NODE_END_OF_DOCUMENT, m_pDocText + node.nStart);
}

[[gnu::cold]] int TokenPos::SyntaxError(NodePos& node, const wchar_t* result, const wchar_t* at) {
  node.nNodeFlags = MNF_ILLDATA;
  if (m_bResults) {
    CMarkup::x_AddResult(node.strMeta, result, nullptr, 0, static_cast<int>(at - m_pDocText));
  }
  return EndNode(node, NODE_ERROR, at);
}

[[gnu::noinline]] int TokenPos::ParseExclamation(NodePos& node) {
  const wchar_t* const p = m_pDocText + node.nStart + 2;
  if (*p == L'-') {
    if (p[1] == 0) return Unterminated(node, L"comment");
    if (p[1] != L'-') return SyntaxError(node, L"comment_tag_syntax", p + 1);
    return ParseUntil(node, MNT_COMMENT, p + 2, L"-->");
  }
  if (*p == L'[') return ParseCDataSection(node);
  if (IsLetter(*p)) return ParseDocumentType(node);
  if (*p == 0) return Unterminated(node, L"tag");
  return SyntaxError(node, L"exclamation_tag_syntax", p);
}

int TokenPos::ParseCDataSection(NodePos& node) {
  const wchar_t* p = m_pDocText + node.nStart + 3;
  for (const wchar_t c : {L'C', L'D', L'A', L'T', L'A', L'['}) {
    if (*p == 0) return Unterminated(node, L"cdata_section");
    if (*p != c) return SyntaxError(node, L"cdata_section_syntax", p);
    ++p;
  }
  return ParseUntil(node, MNT_CDATA_SECTION, p, L"]]>");
}

[[gnu::noinline]] int TokenPos::ParseUntil(NodePos& node, int nNodeType, const wchar_t* from,
                                           const wchar_t* end) {
  const int length = static_cast<int>(wcslen(end));
  for (const wchar_t* p = from; *(p = ScanTo(p, *end, m_pBlocksEnd)) != 0; ++p) {
    if (wcsncmp(p, end, length) == 0) return EndNode(node, nNodeType, p + length);
  }
  const wchar_t* const kind = nNodeType == MNT_COMMENT         ? L"comment"
                              : nNodeType == MNT_CDATA_SECTION ? L"cdata_section"
                                                               : L"processing_instruction";
  return Unterminated(node, kind);
}

int TokenPos::ParseDocumentType(NodePos& node) {
  bool subset = false;
  const wchar_t* p = m_pDocText + node.nStart + 2;
  for (; *p != 0; ++p) {
    if (*p == L'"' || *p == L'\'') {
      p = ScanTo(p + 1, *p, m_pBlocksEnd);
    } else if (*p == L'[' || *p == L']') {
      subset = *p == L'[';
    } else if (*p == L'>' && !subset) {
      return EndNode(node, MNT_DOCUMENT_TYPE, p + 1);
    } else if (*p == L'<' && subset) {
      NodePos inner;
      TokenPos declaration(*this);
      declaration.m_nNext = static_cast<int>(p - m_pDocText);
      if (p[1] == L'?' || (p[1] == L'!' && p[2] == L'-' && p[3] == L'-')) {
        if (declaration.ParseNode(inner) == NODE_END_OF_DOCUMENT) break;
        p = m_pDocText + declaration.m_nNext - 1;
      } else if (p[1] != L'!') {
        if (p[1] != 0) return SyntaxError(node, L"doctype_tag_syntax", p + 1);
      } else if (!IsLetter(p[2]) && p[2] != 0) {
        const wchar_t* const at = p + 2;
        return SyntaxError(node, L"doctype_tag_syntax", *at == L'-' && at[1] != 0 ? at + 1 : at);
      }
    }
    if (*p == 0) break;
  }
  return Unterminated(node, L"document_type");
}

inline int TokenPos::ParseText(NodePos& node) {
  const wchar_t* const start = m_pDocText + node.nStart;
  if (*start == 0) return EndNode(node, NODE_END_OF_DOCUMENT, start);
  const wchar_t* const end = SkipSpace(start);
  if (*end == 0 || *end == L'<') return EndNode(node, MNT_WHITESPACE, end);
  return EndNode(node, MNT_TEXT, ScanTo(end, L'<', m_pBlocksEnd));
}

// Inlined, for half of the nodes are start tags, and most of them short.
[[gnu::always_inline]] inline int TokenPos::ParseStartTag(NodePos& node) {
  m_nNext = node.nStart + 1;
  ReadName();
  const wchar_t* p = m_pDocText + m_nNext;
  for (;;) {
    p = SkipTo(p, [](wchar_t c) { return InSet(Bit('=') | Bit('>') | Bit(0), c); });
    if (*p == L'>') break;
    if (*p == 0) return Unterminated(node, L"start_tag");
    // A ">" inside a quoted value does not end the tag.
    p = ScanValue(p + 1, m_pBlocksEnd, false).next;
  }
  if (p[-1] == L'/') node.nNodeFlags = MNF_EMPTY;
  return EndNode(node, MNT_ELEMENT, p + 1);
}

inline int TokenPos::ParseEndTag(NodePos& node) {
  m_nNext = node.nStart + 2;
  ReadName();
  const wchar_t* end = m_pDocText + m_nNext;
  if (*end != L'>') end = ScanTo(end, L'>', m_pBlocksEnd);
  if (*end == 0) return Unterminated(node, L"end_tag");
  return EndNode(node, NODE_END_TAG, end + 1);
}

int TokenPos::ParseNode(NodePos& node) {
  node.nStart = m_nNext;
  node.nNodeFlags = 0;
  const wchar_t* const start = m_pDocText + m_nNext;
  if (*start != L'<') return ParseText(node);
  if (static_cast<uint32_t>(start[1]) > L'?') return ParseStartTag(node);
  if (start[1] == L'/') return ParseEndTag(node);
  switch (start[1]) {
    case L'!':
      return ParseExclamation(node);
    case L'?':
      return ParseUntil(node, MNT_PROCESSING_INSTRUCTION, start + 2, L"?>");
    case 0:
      return Unterminated(node, L"tag");
    case L' ':
    case L'\t':
    case L'\n':
    case L'\r':
    case L'>':
      return SyntaxError(node, L"first_tag_syntax", start + 1);
    default:
      return ParseStartTag(node);
  }
}
