#pragma once
// The estimate behind FormatV: how many characters a printf format may need. It is no more exact
// than its rules, and texts that need more are cut by them.
#include <cstdarg>
#include <cwchar>

#include "VELInterface.h"

// Reads a copy of the arguments. String is CString or CStringA.
template <class String>
class FormatLength {
 public:
  typedef typename String::Char C;

  FormatLength(const C* format, va_list args) : m_at(format) { va_copy(m_args, args); }
  FormatLength(const FormatLength&) = delete;
  FormatLength& operator=(const FormatLength&) = delete;
  ~FormatLength() { va_end(m_args); }

  // May exceed what an int holds.
  long long Total() {
    long long total = 0;
    for (; *m_at != 0; ++m_at) {
      if (*m_at == '%' && *++m_at != '%')
        total += Conversion();
      else
        ++total;
      if (*m_at == 0) break;
    }
    return total;
  }

 private:
  enum Prefix { PREFIX_NONE, PREFIX_H, PREFIX_L, PREFIX_I64 };

  // From behind the percent sign to the type character.
  long long Conversion() {
    m_width = 0;
    m_precision = -1;
    const int extra = ReadFlagsAndWidth();
    if (*m_at == '.') {
      ++m_at;
      m_precision = *m_at == '*' ? (++m_at, Argument()) : ReadNumber();
    }
    if (m_width < 0) m_width = 0;
    return extra + Item(ReadPrefix());
  }

  int ReadFlagsAndWidth() {
    int extra = 0;
    bool given = false;
    for (;; ++m_at) {
      if (*m_at == '#') {
        extra += 2;
      } else if (*m_at == '*') {
        m_width = Argument();
        given = true;
      } else if (*m_at != '-' && *m_at != '+' && *m_at != '0' && *m_at != ' ') {
        break;
      }
    }
    if (!given) m_width = ReadNumber();
    return extra;
  }

  int ReadNumber() {
    const int number = String::tchar_cstrtoi(m_at);
    while (String::tchar_cstrisdigit(*m_at)) ++m_at;
    return number;
  }

  Prefix ReadPrefix() {
    if (m_at[0] == 'I' && m_at[1] == '6' && m_at[2] == '4') {
      m_at += 3;
      return PREFIX_I64;
    }
    switch (*m_at) {
      case 'h':
        ++m_at;
        return PREFIX_H;
      case 'l':
        ++m_at;
        return PREFIX_L;
      case 'F':
      case 'L':
      case 'N':
        ++m_at;
        return PREFIX_NONE;
      default:
        return PREFIX_NONE;
    }
  }

  // Types that are not listed, floating ones among them, count nothing and take no argument.
  long long Item(Prefix prefix) {
    switch (*m_at) {
      case 'c':
      case 'C':
        Argument();
        return Bounded(2);
      case 's':
      case 'S':
        return Bounded(TextLength(prefix));
      case 'd':
      case 'i':
      case 'o':
      case 'u':
      case 'x':
      case 'X':
      case 'p':
        SkipInteger(prefix);
        return IntegerLength();
      case 'n':
        va_arg(m_args, void*);
        return 0;
      default:
        return 0;
    }
  }

  // Without a prefix a small s is a text of the string's own kind and a large one of the other.
  int TextLength(Prefix prefix) {
    const bool own = *m_at == 's';
    const bool wide =
        prefix == PREFIX_L || (prefix != PREFIX_H && own == (sizeof(C) == sizeof(wchar_t)));
    const void* const text = va_arg(m_args, const void*);
    if (text == nullptr) return 6;  // "(null)"
    const int length = wide ? lstrlenW(static_cast<const wchar_t*>(text))
                            : lstrlenA(static_cast<const char*>(text));
    return length > 0 ? length : 1;
  }

  long long Bounded(int length) const {
    if (length < m_width) length = m_width;
    return m_precision >= 0 && m_precision < length ? m_precision : length;
  }

  long long IntegerLength() const {
    const long long asked = static_cast<long long>(m_width) + (m_precision > 0 ? m_precision : 0);
    return asked > 32 ? asked : 32;
  }

  void SkipInteger(Prefix prefix) {
    if (*m_at == 'p')
      va_arg(m_args, void*);
    else if (prefix == PREFIX_I64 || prefix == PREFIX_L)
      va_arg(m_args, long);
    else
      Argument();
  }

  int Argument() { return va_arg(m_args, int); }

  const C* m_at;
  va_list m_args;
  int m_width = 0;
  int m_precision = -1;  // -1 when absent
};
