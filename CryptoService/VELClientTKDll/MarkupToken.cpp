#include "MarkupToken.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <cstdint>
#include <cstring>
#include <cwchar>

#include "Markup.h"

namespace {

constexpr uint64_t Bit(unsigned c) {
  return uint64_t{1} << c;
}
constexpr uint64_t kSpace = Bit(' ') | Bit('\t') | Bit('\n') | Bit('\r');
// All below 64 that end a name; the backslash is the one above.
constexpr uint64_t kNameEnd = kSpace | Bit(0) | Bit('<') | Bit('>') | Bit('=') | Bit('/') |
                              Bit('?') | Bit('!') | Bit('"') | Bit('\'') | Bit(';');

inline bool InSet(uint64_t set, wchar_t c) {
  const uint32_t code = static_cast<uint32_t>(c);
  return code < 64 && (set >> code & 1) != 0;
}

inline bool IsSpace(wchar_t c) {
  return InSet(kSpace, c);
}
inline bool IsNameEnd(wchar_t c) {
  // Small letters, of which most names are made, all stand behind the last one.
  if (static_cast<uint32_t>(c) > L'\\') return false;
  return InSet(kNameEnd, c) || c == L'\\';
}
inline bool IsLetter(wchar_t c) {
  return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z');
}
inline wchar_t Fold(wchar_t c) {
  return c >= L'A' && c <= L'Z' ? c + (L'a' - L'A') : c;
}

// The first character at or behind p that stops, as the terminator must. Lengths are alike in many
// documents: branches that are guessed right are faster than arithmetic that has to be waited for.
template <typename Stops>
inline const wchar_t* SkipTo(const wchar_t* p, Stops stops) {
  for (;; p += 4) {
    if (stops(p[0])) return p;
    if (stops(p[1])) return p + 1;
    if (stops(p[2])) return p + 2;
    if (stops(p[3])) return p + 3;
  }
}

// What a name that is looked for may go on with.
inline bool MayFollowName(wchar_t c) {
  return c == 0 || c == L' ' || c == L'/' || c == L'=' || c == L'[' || c == L']';
}

inline const wchar_t* SkipSpace(const wchar_t* p) {
  while (IsSpace(*p)) ++p;
  return p;
}

inline const wchar_t* SkipName(const wchar_t* p) {
  return SkipTo(p, IsNameEnd);
}

typedef int Lanes __attribute__((vector_size(16)));
typedef long long Halves __attribute__((vector_size(16)));
static_assert(sizeof(wchar_t) * TokenPos::BLOCK == 2 * sizeof(Lanes), "a block is two vectors");

inline bool AnyLane(Lanes hits) {
#ifdef __SSE2__
  return _mm_movemask_epi8((__m128i)hits) != 0;  // NOLINT: same bits
#else
  const Halves halves = (Halves)hits;  // NOLINT: same bits
  return (halves[0] | halves[1]) != 0;
#endif
}

// The first c at or behind p, or the terminator. Blocks may begin ahead of blocksEnd.
inline const wchar_t* ScanTo(const wchar_t* p, wchar_t c, const wchar_t* blocksEnd) {
  const int code = static_cast<int>(c);
  for (; p < blocksEnd; p += TokenPos::BLOCK) {
    Lanes low, high;
    memcpy(&low, p, sizeof(low));
    memcpy(&high, p + TokenPos::BLOCK / 2, sizeof(high));
    if (AnyLane((low == code) | (low == 0) | (high == code) | (high == 0))) break;
  }
  return SkipTo(p, [c](wchar_t x) { return x == c || x == 0; });
}

// A ">" alone does not end an instruction, nor a "?" an element's tag.
inline bool IsTagEnd(const wchar_t* p, bool instruction) {
  if (*p == 0) return true;
  if (instruction) return *p == L'?' && p[1] == L'>';
  return *p == L'>' || (*p == L'/' && p[1] == L'>');
}

// The value behind a "=": its first character, its end and where scanning goes on. ParseNode and
// ScanAttrib share it, so that they agree on where a tag ends.
struct Value {
  const wchar_t* first;
  const wchar_t* end;
  const wchar_t* next;
};

inline Value ScanValue(const wchar_t* p, const wchar_t* blocksEnd, bool instruction) {
  if (*p != L'"') p = SkipSpace(p);
  if (*p == L'"' || *p == L'\'') {
    const wchar_t* const end = ScanTo(p + 1, *p, blocksEnd);
    return {p + 1, end, *end == 0 ? end : end + 1};
  }
  const wchar_t* end = p;
  while (!IsSpace(*end) && !IsTagEnd(end, instruction)) ++end;
  return {p, end, end};
}

}  // namespace

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

// The loops below compare a few characters, for which a call of the system library takes longer.
inline bool TokenPos::BeginsName(const wchar_t* token, int length, const wchar_t* name) const {
  if ((m_nTokenFlags & MDF_IGNORECASE) != 0) return StrNIACmp(token, name, length) == 0;
  for (int i = 0; i < length; ++i) {
    if (token[i] != name[i]) return false;
  }
  return true;
}

bool TokenPos::Match(const wchar_t* name) const {
  return BeginsName(GetTokenPtr(), Length(), name) && MayFollowName(name[Length()]);
}

// No character of the token ends a name, so this goes nowhere behind the name's end.
bool TokenPos::MatchTag(const wchar_t* name) const {
  if (!BeginsName(GetTokenPtr(), Length(), name)) return false;
  const wchar_t next = name[Length()];
  return IsNameEnd(next) || next == L'[' || next == L']';
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

// One attribute of a tag: its name, its value without quotes, where scanning goes on.
struct TokenPos::Attrib {
  const wchar_t* space;  // ahead of the name
  const wchar_t* name;
  const wchar_t* nameEnd;
  Value value;
};

// The next attribute from p on; false at the tag's end, which is then name.
inline bool TokenPos::ScanAttrib(const wchar_t* p, Attrib& attrib) const {
  for (;;) {
    attrib.space = p;
    p = SkipSpace(p);
    attrib.name = p;
    if (IsTagEnd(p, m_bInstruction)) return false;
    attrib.nameEnd = SkipName(p);
    p = SkipSpace(attrib.nameEnd);
    if (*p == L'=') {
      attrib.value = ScanValue(p + 1, m_pBlocksEnd, m_bInstruction);
      return true;
    }
    if (attrib.nameEnd == attrib.name) ++p;  // a stray character that no name can hold
  }
}

inline bool TokenPos::TakeAttrib(bool found, const Attrib& attrib) {
  const wchar_t* const first = found ? attrib.value.first : attrib.name;
  m_nPreSpaceStart = static_cast<int>(attrib.space - m_pDocText);
  m_nPreSpaceLength = static_cast<int>(attrib.name - attrib.space);
  m_nL = static_cast<int>(first - m_pDocText);
  m_nR = found ? static_cast<int>(attrib.value.end - m_pDocText) - 1 : m_nL - 1;
  m_nNext = found ? static_cast<int>(attrib.value.next - m_pDocText) : m_nL;
  return found;
}

bool TokenPos::NextAttrib(TokenPos* attribute) {
  Attrib attrib;
  const bool found = ScanAttrib(m_pDocText + m_nNext, attrib);
  if (found && attribute != nullptr) {
    attribute->m_nL = static_cast<int>(attrib.name - m_pDocText);
    attribute->m_nR = static_cast<int>(attrib.nameEnd - m_pDocText) - 1;
  }
  return TakeAttrib(found, attrib);
}

inline bool TokenPos::LookUpAttrib(const wchar_t* name) {
  Attrib attrib;
  const wchar_t* p = m_pDocText + m_nNext;
  while (ScanAttrib(p, attrib)) {
    const int length = static_cast<int>(attrib.nameEnd - attrib.name);
    if (BeginsName(attrib.name, length, name) && MayFollowName(name[length])) {
      return TakeAttrib(true, attrib);
    }
    p = attrib.value.next;
  }
  return TakeAttrib(false, attrib);
}

bool TokenPos::FindAttrib(const wchar_t* name) {
  return LookUpAttrib(name);
}

bool TokenPos::FindTagAttrib(const wchar_t* name) {
  m_bInstruction = m_nNext > 0 && m_pDocText[m_nNext - 1] == L'?';
  m_nNext = static_cast<int>(SkipName(m_pDocText + m_nNext) - m_pDocText);
  return LookUpAttrib(name);
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

inline int TokenPos::ParseStartTag(NodePos& node) {
  m_nNext = node.nStart + 1;
  ReadName();
  const wchar_t* p = m_pDocText + m_nNext;
  for (;;) {
    p = SkipTo(p, [](wchar_t c) { return static_cast<uint32_t>(c) <= L'>'; });
    if (*p == L'>') break;
    if (*p == 0) return Unterminated(node, L"start_tag");
    // A ">" inside a quoted value does not end the tag.
    p = *p == L'=' ? ScanValue(p + 1, m_pBlocksEnd, false).next : p + 1;
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
