#pragma once
#include <stddef.h>

// Fills an array with text and decimal numbers and cuts what does not fit. The formatter of the
// system library takes longer for a line than all the rest of it does.
class LogText {
 public:
  template <size_t N>
  explicit LogText(wchar_t (&out)[N]) : m_at(out), m_end(out + N - 1), m_cut(false) {}

  LogText& operator<<(const wchar_t* text) {
    for (; *text != L'\0' && m_at < m_end; ++text) *m_at++ = *text;
    m_cut |= *text != L'\0';
    return *this;
  }

  LogText& operator<<(wchar_t c) {
    if (m_at < m_end) {
      *m_at++ = c;
    } else {
      m_cut = true;
    }
    return *this;
  }

  // As "%0*d" does: the sign counts as a digit.
  LogText& Number(int value, int digits) {
    wchar_t reversed[16];
    wchar_t* digit = reversed + 15;
    *digit = L'\0';
    const wchar_t* const enough = digit - digits + (value < 0 ? 1 : 0);
    unsigned rest = value < 0 ? 0u - static_cast<unsigned>(value) : static_cast<unsigned>(value);
    for (; rest != 0 || digit > enough; rest /= 10)
      *--digit = static_cast<wchar_t>(L'0' + rest % 10);
    if (value < 0) *--digit = L'-';
    return *this << digit;
  }

  // Terminates the text. False when it was cut.
  bool End() {
    *m_at = L'\0';
    return !m_cut;
  }

 private:
  wchar_t* m_at;
  wchar_t* const m_end;
  bool m_cut;
};
