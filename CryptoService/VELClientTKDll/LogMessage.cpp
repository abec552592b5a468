#include "LogMessage.h"

#include <wchar.h>

#include <iterator>
#include <new>

#include "LogText.h"
#include "VELCstring.h"

namespace {

const size_t kMessageCharacters = 8192;  // the terminator among them

// Text, "%d" and "%ls", of which most messages consist. False for all else.
bool FormatSimple(LogText& text, LPCTSTR format, va_list args) {
  for (; *format != L'\0'; ++format) {
    if (*format != L'%') {
      text << *format;
    } else if (format[1] == L'd') {
      text.Number(va_arg(args, int), 1);
      format += 1;
    } else if (format[1] == L'l' && format[2] == L's') {
      const wchar_t* const argument = va_arg(args, const wchar_t*);
      text << (argument != nullptr ? argument : L"(null)");
      format += 2;
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace

WideTextFormat::WideTextFormat(LPCTSTR format) {
  LogText text(m_short);
  for (LPCTSTR from = format; *from != L'\0'; ++from) {
    text << *from;
    if (from[0] == L'%' && from[1] == L's') text << L'l';
  }
  if (text.End()) return;
  m_long = format;
  my_replace(m_long, L"%s", L"%ls");
}

bool LogMessage::Format(LPCTSTR format, va_list args) {
  va_list again, third;
  va_copy(again, args);
  va_copy(third, args);
  LogText text(m_short);
  const bool simple = FormatSimple(text, format, args);
  const bool done =
      (simple ? text.End() : vswprintf(m_short, std::size(m_short), format, again) >= 0) ||
      FormatLong(format, third);
  va_end(third);
  va_end(again);
  return done;
}

bool LogMessage::FormatLong(LPCTSTR format, va_list args) {
  m_long.reset(new (std::nothrow) wchar_t[kMessageCharacters]);
  if (m_long == nullptr) return false;
  va_list again;
  va_copy(again, args);
  if (vswprintf(m_long.get(), kMessageCharacters, format, args) < 0) {
    // Too long, or a text that is none: what was formatted so far is there but not terminated. Few
    // messages come here, so only they pay for clearing 32 KiB.
    wmemset(m_long.get(), L'\0', kMessageCharacters);
    vswprintf(m_long.get(), kMessageCharacters, format, again);
    m_long[kMessageCharacters - 1] = L'\0';
  }
  va_end(again);
  return true;
}
