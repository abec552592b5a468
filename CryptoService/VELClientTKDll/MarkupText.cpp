// Escaping of characters and resolving of references.
#include <cstdint>
#include <cwchar>

#include "Markup.h"
#include "MarkupScan.h"

using namespace markup_scan;

namespace {

// The name between "&" and ";", at most nine characters, ASCII capitals folded.
struct ReferenceName {
  enum : int { MAX = 9 };
  wchar_t text[MAX];
  int length;
};

// Collects the name in [p, end); false unless a ";" ends it.
bool CollectName(const wchar_t* p, const wchar_t* end, ReferenceName& name) {
  name.length = 0;
  for (; p != end && *p != L';'; ++p) {
    if (static_cast<uint32_t>(*p) > 127 || *p == 0 || name.length == ReferenceName::MAX) {
      return false;
    }
    const wchar_t folded = *p >= L'A' && *p <= L'Z' ? *p + (L'a' - L'A') : *p;
    name.text[name.length++] = folded;
  }
  return p != end;
}

int DigitValue(wchar_t c) {
  if (c >= L'0' && c <= L'9') return c - L'0';
  return c >= L'a' && c <= L'f' ? c - L'a' + 10 : 16;
}

// 0 unless all of [digits, end) are digits of that base; nine of them fit in 64 bits.
uint32_t ParseNumber(const wchar_t* digits, const wchar_t* end, int base) {
  uint64_t number = 0;
  for (; digits != end; ++digits) {
    const int value = DigitValue(*digits);
    if (value >= base) return 0;
    number = number * base + value;
  }
  return static_cast<uint32_t>(number);
}

uint32_t LookUpName(const ReferenceName& name) {
  int sum = 0;
  for (int i = 0; i < name.length; ++i) sum += name.text[i];
  const wchar_t* record = PredefEntityTable[sum % PREDEF_ENTITY_BUCKETS];
  while (record != nullptr && *record != 0) {
    const int length = record[0] - L'0';
    if (length == name.length && wmemcmp(record + 5, name.text, length) == 0) {
      return ParseNumber(record + 1, record + 5, 10);
    }
    record += 5 + length;
  }
  return 0;
}

// The character of a reference, 0 when the name is none.
uint32_t DecodeReference(const ReferenceName& name) {
  const wchar_t* const end = name.text + name.length;
  if (name.length == 0) return 0;
  if (name.text[0] != L'#') return LookUpName(name);
  if (name.length > 1 && name.text[1] == L'x') return ParseNumber(name.text + 2, end, 16);
  return ParseNumber(name.text + 1, end, 10);
}

const wchar_t* EscapeSequence(wchar_t c, int flags) {
  const bool quotes = (flags & MNF_ESCAPEQUOTES) != 0;
  switch (c) {
    case L'<':
      return L"&lt;";
    case L'&':
      return L"&amp;";
    case L'>':
      return L"&gt;";
    case L'\'':
      return quotes ? L"&apos;" : nullptr;
    case L'"':
      return quotes ? L"&quot;" : nullptr;
    default:
      return nullptr;
  }
}

bool IsAsciiLetter(wchar_t c) {
  return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z');
}

bool IsReferenceStart(wchar_t c) {
  return IsAsciiLetter(c) || c == L'#' || c == L'_' || c == L':' || static_cast<uint32_t>(c) > 127;
}

bool IsReferencePart(wchar_t c) {
  return IsAsciiLetter(c) || (c >= L'0' && c <= L'9') || c == L'-' || c == L'.' || c == L':' ||
         c == L'_' || static_cast<uint32_t>(c) > 127;
}

// The length of the reference that begins at the "&", 0 when none does.
int ReferenceLength(const wchar_t* ampersand) {
  if (!IsReferenceStart(ampersand[1])) return 0;
  const wchar_t* p = ampersand + 2;
  while (IsReferencePart(*p)) ++p;
  return *p == L';' ? static_cast<int>(p + 1 - ampersand) : 0;
}

}  // namespace

std::wstring CMarkup::EscapeText(MarkupCStr text, int flags) {
  std::wstring result;
  if (text == nullptr) return result;
  const wchar_t* p = text;
  const size_t length = wcslen(p);
  result.reserve(length + length / 10 + 7);
  const wchar_t* copied = p;
  for (; *p != 0; ++p) {
    const wchar_t* const sequence = EscapeSequence(*p, flags);
    if (sequence == nullptr) continue;
    if (*p == L'&' && (flags & MNF_WITHREFS) != 0) {
      const int reference = ReferenceLength(p);
      if (reference > 0) {
        p += reference - 1;
        continue;
      }
    }
    result.append(copied, p).append(sequence);
    copied = p + 1;
  }
  result.append(copied, p);
  return result;  // the string itself, not a copy through append's reference
}

std::wstring CMarkup::UnescapeText(MarkupCStr text, int length) {
  if (text == nullptr) return std::wstring();
  const wchar_t* p = text;
  const wchar_t* const end = p + (length < 0 ? wcslen(p) : static_cast<size_t>(length));
  const wchar_t* ampersand = FindAmpersand(p, end);
  if (ampersand == nullptr) return std::wstring(p, end);
  std::wstring result;
  result.reserve(end - p);
  for (; ampersand != nullptr; ampersand = FindAmpersand(p, end)) {
    result.append(p, ampersand);
    p = ampersand + 1;
    ReferenceName name;
    const uint32_t code = CollectName(p, end, name) ? DecodeReference(name) : 0;
    result += code != 0 ? static_cast<wchar_t>(code) : L'&';
    if (code != 0) p += name.length + 1;
  }
  result.append(p, end);
  return result;
}
