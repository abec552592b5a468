#include "MarkupEncoding.h"

#include <iconv.h>

#include <cerrno>
#include <cstring>
#include <cwchar>

#include "Markup.h"

const BomTableRow BomTable[4] = {
    {"\xef\xbb\xbf", 3, L"UTF-8", MDF_UTF8PREAMBLE},
    {"\xff\xfe", 2, L"UTF-16LE", MDF_UTF16LEFILE},
    {"\xfe\xff", 2, L"UTF-16BE", MDF_UTF16BEFILE},
    {nullptr, 0, nullptr, 0},
};

namespace {

class Converter {
 public:
  Converter(const std::string& to, const std::string& from)
      : m_handle(iconv_open(to.c_str(), from.c_str())) {}
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  ~Converter() {
    if (IsOpen()) iconv_close(m_handle);
  }
  bool IsOpen() const {
    return m_handle != reinterpret_cast<iconv_t>(-1);  // NOLINT: the system library's convention
  }

  // Converts to the end of the source or its first fault; null source: back to the first state.
  // Output beyond what one call takes goes to sink. 0, or the fault's errno.
  template <typename Sink>
  int Run(const char** from, size_t* left, const Sink& sink) {
    for (;;) {
      char buffer[4096];
      char* to = buffer;
      size_t room = sizeof(buffer);
      char* source = from != nullptr ? const_cast<char*>(*from) : nullptr;
      const size_t result = iconv(m_handle, from != nullptr ? &source : nullptr, left, &to, &room);
      const int error = result == static_cast<size_t>(-1) ? errno : 0;
      if (from != nullptr) *from = source;
      sink(buffer, sizeof(buffer) - room);
      if (error != E2BIG) return error;
    }
  }

 private:
  iconv_t m_handle;
};

bool BeginsWith(const std::string& text, const char* prefix) {
  return text.compare(0, strlen(prefix), prefix) == 0;
}

// A question mark in units of the source.
std::string QuestionMark(const std::string& encoding, int unitSize) {
  std::string mark(unitSize, '\0');
  const bool bigEndian = BeginsWith(encoding, "UTF") && encoding.find("BE") != std::string::npos;
  mark[bigEndian ? unitSize - 1 : 0] = '?';
  if (unitSize == sizeof(wchar_t) && !BeginsWith(encoding, "UTF")) {
    const wchar_t wide = L'?';
    memcpy(&mark[0], &wide, sizeof(wide));
  }
  return mark;
}

}  // namespace

TextEncoding::TextEncoding(MarkupCStr pszFromEncoding, const void* pFrom, int nFromLen)
    : m_strFromEncoding(pszFromEncoding == nullptr ? L"" : pszFromEncoding),
      m_pFrom(pFrom),
      m_nFromLen(nFromLen),
      m_nFailedChars(0),
      m_nToCount(0) {}

std::string TextEncoding::IConvName(MarkupCStr pszEncoding) {
  std::string name;
  if (pszEncoding.IsEmpty()) return name;
  for (const wchar_t* p = pszEncoding; *p != 0; ++p) {
    if (*p < L'!' || *p > L'~' || name.length() == 99) return std::string();
    name += static_cast<char>(*p >= L'a' && *p <= L'z' ? *p - (L'a' - L'A') : *p);
  }
  // A mark of the converter's own would otherwise lead the text.
  if (name == "UTF-16") name = "UTF-16BE";
  return name;
}

int TextEncoding::UnitSize(MarkupCStr pszEncoding) {
  const std::string name = IConvName(pszEncoding);
  for (const char* const four : {"UTF-32", "UTF32", "UCS-4", "UCS4", "WCHAR_T"}) {
    if (BeginsWith(name, four)) return 4;
  }
  for (const char* const two : {"UTF-16", "UTF16", "UCS-2", "UCS2", "UNICODE"}) {
    if (BeginsWith(name, two)) return 2;
  }
  return 1;
}

bool TextEncoding::IsKnown(MarkupCStr pszEncoding) {
  return pszEncoding.IsEmpty() || (!IConvName(pszEncoding).empty() &&
                                   Converter(IConvName(WIDE), IConvName(pszEncoding)).IsOpen());
}

int TextEncoding::PerformConversion(void* pTo, MarkupCStr pszToEncoding) {
  m_strToEncoding = pszToEncoding == nullptr ? L"" : pszToEncoding;
  size_t converted;
  return Convert(static_cast<char*>(pTo), converted);
}

bool TextEncoding::FindRaggedEnd(int& nTruncBeforeBytes) {
  m_strToEncoding = WIDE;
  size_t converted;
  if (Convert(nullptr, converted) < 0) return false;
  nTruncBeforeBytes = static_cast<int>(converted);
  return nTruncBeforeBytes < m_nFromLen;
}

// nConverted are the source's bytes without an incomplete character at the end.
int TextEncoding::Convert(char* pTo, size_t& nConverted) {
  m_nFailedChars = 0;
  m_nToCount = 0;
  nConverted = 0;
  const std::string fromName = IConvName(m_strFromEncoding);
  const std::string toName = IConvName(m_strToEncoding);
  if (fromName.empty() != m_strFromEncoding.empty()) return -1;
  if (toName.empty() != m_strToEncoding.empty()) return -1;
  Converter converter(toName, fromName);
  if (!converter.IsOpen()) return -1;
  size_t written = 0;
  const auto sink = [&](const char* bytes, size_t count) {
    if (pTo != nullptr) memcpy(pTo + written, bytes, count);
    written += count;
  };
  const char* from = static_cast<const char*>(m_pFrom);
  size_t left = m_nFromLen;
  const std::string mark = QuestionMark(fromName, UnitSize(m_strFromEncoding));
  int error = 0;
  while (left != 0 && (error = converter.Run(&from, &left, sink)) == EILSEQ) {
    ++m_nFailedChars;
    const char* source = mark.data();
    size_t sourceLeft = mark.length();
    converter.Run(&source, &sourceLeft, sink);
    const size_t skipped = SkipLength(from, left);
    from += skipped;
    left -= skipped;
  }
  if (error == EINVAL) ++m_nFailedChars;
  converter.Run(nullptr, nullptr, sink);
  nConverted = m_nFromLen - left;
  m_nToCount = static_cast<int>(written / UnitSize(m_strToEncoding));
  return m_nToCount;
}

// The bytes of the character that could not be converted.
size_t TextEncoding::SkipLength(const char* from, size_t left) const {
  const size_t unit = UnitSize(m_strFromEncoding);
  if (unit > 1) return unit < left ? unit : left;
  const char* p = from;
  if (CMarkup::x_GetEncodingCodePage(m_strFromEncoding) == 65001 &&
      CMarkup::DecodeCharUTF8(p, from + left) != -1) {
    return p - from;
  }
  return 1;
}
