// Where the wide and the narrow string differ: what they are made from, and their formats.
#include <stdlib.h>
#include <string.h>

#include <climits>
#include <cstdint>
#include <cwchar>
#include <new>

#include "VELCstring.h"

namespace {

template <typename Unit, typename C>
bool IsAscii(const C* text, size_t length) {
  Unit all = 0;
  for (size_t i = 0; i < length; ++i) all |= static_cast<Unit>(text[i]);
  return all < 0x80;
}

// Characters of a narrow text, bytes of a wide one, as the locale counts them; (size_t)-1 where it
// cannot. ASCII is counted alike by all of them, and large texts are ASCII most of the time.
size_t CountConverted(const char* text) {
  const size_t length = strlen(text);
  return IsAscii<unsigned char>(text, length) ? length : mbstowcs(nullptr, text, 0);
}
size_t CountConverted(const wchar_t* text) {
  const size_t length = wcslen(text);
  return IsAscii<uint32_t>(text, length) ? length : wcstombs(nullptr, text, 0);
}

// The length of the text that a conversion of a zero-terminated source wrote into room for `limit`
// units and a terminator: `result` counts the terminator if that was converted, too.
template <typename C>
int TextWithin(const C* text, int result, int limit) {
  if (result <= 0) return 0;
  return result > limit || text[result - 1] == 0 ? result - 1 : result;
}

}  // namespace

CString::CString(const wchar_t* text) : CStringT(SafeStrlen(text), text) {}

CString& CString::operator=(const CString& other) {
  Assign(other);
  return *this;
}

CString& CString::operator=(CString&& other) noexcept {
  Swap(other);
  return *this;
}

CString& CString::operator=(const wchar_t* text) {
  AssignCopy(SafeStrlen(text), text);
  return *this;
}

// Counted by the locale, converted as UTF-8: where the two disagree, what has no room in the block
// that was counted is cut, or gives the empty text.
CString& CString::operator=(const char* text) {
  const size_t count = text == nullptr ? 0 : CountConverted(text);
  if (count == 0 || count > INT_MAX || !AllocBeforeWrite(static_cast<int>(count), false)) {
    Release();
    return *this;
  }
  const int limit = static_cast<int>(count);
  ReleaseBuffer(TextWithin(m_pchData, tchar_mbstowcsz(m_pchData, text, limit), limit));
  return *this;
}

// The result counts the terminator if that was converted too; nothing is written behind it then.
int CString::tchar_mbstowcsz(wchar_t* target, const char* source, int limit) {
  const int result = MultiByteToWideChar(CP_ACP, 0, source, -1, target, limit + 1);
  if (result > 0 && result <= limit) target[result] = 0;
  return result;
}

BOOL CString::Format(const wchar_t* format, ...) try {
  if (format == nullptr) return FALSE;
  std::wstring converted(format);
  my_replace(converted, L"%s", L"%ls");
  va_list args;
  va_start(args, format);
  const BOOL done = FormatV(converted.c_str(), args);
  va_end(args);
  return done;
} catch (const std::bad_alloc&) {
  return FALSE;
}

CStringA::CStringA(const char* text) : CStringT(SafeStrlen(text), text) {}

CStringA& CStringA::operator=(const CStringA& other) {
  Assign(other);
  return *this;
}

CStringA& CStringA::operator=(CStringA&& other) noexcept {
  Swap(other);
  return *this;
}

CStringA& CStringA::operator=(const char* text) {
  AssignCopy(SafeStrlen(text), text);
  return *this;
}

CStringA& CStringA::operator=(const wchar_t* text) {
  const size_t count = text == nullptr ? 0 : CountConverted(text);
  if (count == 0 || count > INT_MAX || !AllocBeforeWrite(static_cast<int>(count), false)) {
    Release();
    return *this;
  }
  const int limit = static_cast<int>(count);
  ReleaseBuffer(TextWithin(m_pchData, char_wcstombsz(m_pchData, text, limit), limit));
  return *this;
}

int CStringA::char_wcstombsz(char* target, const wchar_t* source, int limit) {
  const int result = WideCharToMultiByte(CP_ACP, 0, source, -1, target, limit, nullptr, nullptr);
  if (result > 0 && result <= limit) target[result] = 0;
  return result;
}

BOOL CStringA::Format(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const BOOL done = FormatV(format, args);
  va_end(args);
  return done;
}

int my_replace(std::wstring& text, const std::wstring& from, const std::wstring& to) {
  if (from.empty()) return 0;
  const bool endless = to.find(from) != std::wstring::npos;
  // What stands before a match holds no other, so a search from the start finds nothing earlier
  // than one that begins in it.
  for (size_t at = text.find(from); at != std::wstring::npos; at = text.find(from, at)) {
    text.replace(at, from.size(), to);
    if (endless)
      at += to.size();
    else
      at -= at < from.size() ? at : from.size() - 1;
  }
  return 0;
}
