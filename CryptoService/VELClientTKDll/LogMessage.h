#pragma once
#include <cstdarg>
#include <memory>
#include <string>

#include "VELInterface.h"

// A format with every "%s" made "%ls". May throw std::bad_alloc.
class WideTextFormat {
 public:
  explicit WideTextFormat(LPCTSTR format);

  LPCTSTR Text() const { return m_long.empty() ? m_short : m_long.c_str(); }

 private:
  wchar_t m_short[256];  // most of them
  std::wstring m_long;
};

// The message of a log line, as vswprintf makes it but cut at 8191 characters.
class LogMessage {
 public:
  // False without memory.
  bool Format(LPCTSTR format, va_list args);

  LPCTSTR Text() const { return m_long != nullptr ? m_long.get() : m_short; }

 private:
  bool FormatLong(LPCTSTR format, va_list args);

  wchar_t m_short[256];  // most of them; hosts' threads may have small stacks
  std::unique_ptr<wchar_t[]> m_long;
};
