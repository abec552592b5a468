// The attributes of a tag.
#include "Markup.h"
#include "MarkupScan.h"

using namespace markup_scan;

namespace {

// How a tag is read.
struct TagReading {
  const wchar_t* blocksEnd;  // as ScanTo takes it
  bool instruction;
  bool ignoreCase;
};

// How nearly all tags are read; the compiler leaves out what it does not ask for.
struct ElementReading {
  static constexpr const wchar_t* blocksEnd = nullptr;
  static constexpr bool instruction = false;
  static constexpr bool ignoreCase = false;
};

struct Attrib {
  const wchar_t* space;  // ahead of the name
  const wchar_t* name;
  const wchar_t* nameEnd;
  bool isWanted;
  Value value;
};

// Reads the name at attrib.name and compares it with the one that is wanted, in one go.
template <typename Reading>
inline void ScanAttribName(const Reading& reading, const wchar_t* wanted, Attrib& attrib) {
  const wchar_t* p = attrib.name;
  for (; !IsNameEnd(*p); ++p, ++wanted) {
    if (reading.ignoreCase ? Fold(*p) == Fold(*wanted) : *p == *wanted) continue;
    attrib.nameEnd = SkipName(p);
    attrib.isWanted = false;
    return;
  }
  attrib.nameEnd = p;
  attrib.isWanted = MayFollowName(*wanted);
}

// The next attribute from p on; false at the tag's end, which is then name.
template <typename Reading>
inline bool ScanAttrib(const wchar_t* p, const Reading& reading, const wchar_t* wanted,
                       Attrib& attrib) {
  for (;;) {
    attrib.space = p;
    p = SkipSpace(p);
    attrib.name = p;
    const bool mayEnd = static_cast<uint32_t>(*p) <= L'?';  // letters stand behind
    if (mayEnd && IsTagEnd(p, reading.instruction)) return false;
    ScanAttribName(reading, wanted, attrib);
    p = attrib.nameEnd;
    if (*p != L'=') p = SkipSpace(p);
    if (*p == L'=') {
      attrib.value = ScanValue(p + 1, reading.blocksEnd, reading.instruction);
      return true;
    }
    if (attrib.nameEnd == attrib.name) ++p;  // a stray character that no name can hold
  }
}

// The first attribute from p on that is wanted; false without, attrib is then the tag's end.
template <typename Reading>
inline bool LookUpAttrib(const wchar_t* p, const Reading& reading, const wchar_t* wanted,
                         Attrib& attrib) {
  for (; ScanAttrib(p, reading, wanted, attrib); p = attrib.value.next) {
    if (attrib.isWanted) return true;
  }
  return false;
}

// The value of the first attribute that is wanted, of the tag whose name begins at tag.
template <typename Reading>
inline Value FindValue(const wchar_t* tag, const Reading& reading, const wchar_t* wanted) {
  Attrib attrib;
  return LookUpAttrib(SkipName(tag), reading, wanted, attrib) ? attrib.value
                                                              : Value{nullptr, nullptr, nullptr};
}

[[gnu::noinline]] Value FindRareValue(const wchar_t* tag, const TagReading& reading,
                                      const wchar_t* wanted) {
  return FindValue(tag, reading, wanted);
}

bool TakeAttrib(TokenPos& token, bool found, const Attrib& attrib) {
  const wchar_t* const text = token.m_pDocText;
  const wchar_t* const first = found ? attrib.value.first : attrib.name;
  token.m_nPreSpaceStart = static_cast<int>(attrib.space - text);
  token.m_nPreSpaceLength = static_cast<int>(attrib.name - attrib.space);
  token.m_nL = static_cast<int>(first - text);
  token.m_nR = found ? static_cast<int>(attrib.value.end - text) - 1 : token.m_nL - 1;
  token.m_nNext = found ? static_cast<int>(attrib.value.next - text) : token.m_nL;
  return found;
}

}  // namespace

bool TokenPos::NextAttrib(TokenPos* attribute) {
  Attrib attrib;
  const TagReading reading = {m_pBlocksEnd, m_bInstruction, false};
  const bool found = ScanAttrib(m_pDocText + m_nNext, reading, L"", attrib);
  if (found && attribute != nullptr) {
    attribute->m_nL = static_cast<int>(attrib.name - m_pDocText);
    attribute->m_nR = static_cast<int>(attrib.nameEnd - m_pDocText) - 1;
  }
  return TakeAttrib(*this, found, attrib);
}

bool TokenPos::FindAttrib(const wchar_t* name) {
  Attrib attrib;
  const TagReading reading = {m_pBlocksEnd, m_bInstruction, (m_nTokenFlags & MDF_IGNORECASE) != 0};
  const bool found = LookUpAttrib(m_pDocText + m_nNext, reading, name, attrib);
  return TakeAttrib(*this, found, attrib);
}

std::wstring CMarkup::x_GetAttrib(int iPos, MarkupCStr name) const {
  if (name == nullptr) return std::wstring();
  const bool ignoreCase = (m_nDocFlags & MDF_IGNORECASE) != 0;
  Value value = {nullptr, nullptr, nullptr};
  if (iPos != 0 && (iPos != m_iPos || m_nNodeType == MNT_ELEMENT)) {
    const wchar_t* const tag = m_strDoc.c_str() + x_Elem(iPos).nStart + 1;
    value = ignoreCase ? FindRareValue(tag, {nullptr, false, true}, name)
                       : FindValue(tag, ElementReading(), name);
  } else if (iPos == m_iPos && m_nNodeLength != 0 && m_nNodeType == MNT_PROCESSING_INSTRUCTION) {
    const wchar_t* const tag = m_strDoc.c_str() + m_nNodeOffset + 2;
    value = FindRareValue(tag, {nullptr, true, ignoreCase}, name);
  }
  if (value.first == nullptr) return std::wstring();
  if (FindAmpersand(value.first, value.end) == nullptr) return std::wstring(value.first, value.end);
  return UnescapeText(value.first, static_cast<int>(value.end - value.first));
}
