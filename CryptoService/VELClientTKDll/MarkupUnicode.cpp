// UTF-8 and UTF-16, one character and whole texts; names of code pages.
#include <cstring>
#include <cwchar>

#include "Markup.h"

namespace {

constexpr int kMaxCode = 0x10ffff;

bool IsSurrogate(int code) {
  return code >= 0xd800 && code <= 0xdfff;
}

struct Sequence {
  int length;   // bytes, 0 for a byte that begins none
  int minimum;  // smallest code that needs so many
  int bits;     // of the code in the first byte
};

Sequence SequenceOf(unsigned char first) {
  if (first < 0x80) return {1, 0, first};
  if (first >= 0xc2 && first < 0xe0) return {2, 0x80, first & 0x1f};
  if (first >= 0xe0 && first < 0xf0) return {3, 0x800, first & 0x0f};
  if (first >= 0xf0 && first < 0xf5) return {4, 0x10000, first & 0x07};
  return {0, 0, 0};
}

}  // namespace

int CMarkup::DecodeCharUTF8(const char*& psz, const char* pszEnd) {
  if (psz == pszEnd) return -1;
  const Sequence sequence = SequenceOf(static_cast<unsigned char>(*psz));
  if (sequence.length == 0) return -1;
  int code = sequence.bits;
  for (int i = 1; i < sequence.length; ++i) {
    if (psz + i == pszEnd || (psz[i] & 0xc0) != 0x80) return -1;
    code = code << 6 | (psz[i] & 0x3f);
  }
  if (code < sequence.minimum || code > kMaxCode || IsSurrogate(code)) return -1;
  psz += sequence.length;
  return code;
}

void CMarkup::EncodeCharUTF8(int nChar, char* pszUTF8, int& nUTF8Len) {
  const int code = nChar < 0 || nChar > kMaxCode || IsSurrogate(nChar) ? '?' : nChar;
  nUTF8Len = code < 0x80 ? 1 : code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
  if (pszUTF8 == nullptr) return;
  if (nUTF8Len == 1) {
    *pszUTF8 = static_cast<char>(code);
    return;
  }
  const int lead[] = {0, 0, 0xc0, 0xe0, 0xf0};
  for (int i = 0; i < nUTF8Len; ++i) {
    const int bits = code >> 6 * (nUTF8Len - 1 - i);
    pszUTF8[i] = static_cast<char>(i == 0 ? lead[nUTF8Len] | bits : 0x80 | (bits & 0x3f));
  }
}

int CMarkup::DecodeCharUTF16(const unsigned short*& psz, const unsigned short* pszEnd) {
  if (psz == pszEnd) return -1;
  const int first = *psz;
  if (!IsSurrogate(first)) {
    ++psz;
    return first;
  }
  if (first >= 0xdc00 || psz + 1 == pszEnd || psz[1] < 0xdc00 || psz[1] > 0xdfff) return -1;
  const int code = 0x10000 + ((first & 0x3ff) << 10 | (psz[1] & 0x3ff));
  psz += 2;
  return code;
}

void CMarkup::EncodeCharUTF16(int nChar, unsigned short* pszUTF16, int& nUTF16Len) {
  const int code = nChar < 0 || nChar > kMaxCode || IsSurrogate(nChar) ? '?' : nChar;
  nUTF16Len = code < 0x10000 ? 1 : 2;
  if (pszUTF16 == nullptr) return;
  pszUTF16[0] =
      static_cast<unsigned short>(nUTF16Len == 1 ? code : 0xd800 | (code - 0x10000) >> 10);
  if (nUTF16Len == 2) pszUTF16[1] = static_cast<unsigned short>(0xdc00 | (code & 0x3ff));
}

bool CMarkup::DetectUTF8(const char* pText, int nTextLen, int* pnNonASCII, bool* pbErrorAtEnd) {
  if (pnNonASCII != nullptr) *pnNonASCII = 0;
  if (pbErrorAtEnd != nullptr) *pbErrorAtEnd = false;
  const char* const end = pText + nTextLen;
  for (const char* p = pText; p != end && *p != 0;) {
    if (static_cast<unsigned char>(*p) < 0x80) {
      ++p;
      continue;
    }
    if (pnNonASCII != nullptr) ++*pnNonASCII;
    if (DecodeCharUTF8(p, end) != -1) continue;
    if (pbErrorAtEnd != nullptr) *pbErrorAtEnd = BeginsCharUTF8(p, end);
    return false;
  }
  return true;
}

// Whether [p, end) is the beginning of a sequence that the end cuts off.
bool CMarkup::BeginsCharUTF8(const char* p, const char* end) {
  char whole[4];
  const int length = SequenceOf(static_cast<unsigned char>(*p)).length;
  if (end - p >= length) return false;
  memcpy(whole, p, end - p);
  // Valid with one filling or the other: the second byte is what the first may forbid.
  for (const char fill : {'\x80', '\xbf'}) {
    memset(whole + (end - p), fill, length - (end - p));
    const char* start = whole;
    if (DecodeCharUTF8(start, whole + length) != -1) return true;
  }
  return false;
}

int CMarkup::UTF16To8(char* pszUTF8, const unsigned short* pszUTF16, int nUTF16Len) {
  int total = 0;
  const unsigned short* const end = nUTF16Len < 0 ? nullptr : pszUTF16 + nUTF16Len;
  for (const unsigned short* p = pszUTF16; p != end && *p != 0;) {
    const int code = DecodeCharUTF16(p, end);
    if (code == -1) ++p;
    int length;
    EncodeCharUTF8(code, pszUTF8 != nullptr ? pszUTF8 + total : nullptr, length);
    total += length;
  }
  return total;
}

int CMarkup::UTF8To16(unsigned short* pszUTF16, const char* pszUTF8, int nUTF8Len) {
  int total = 0;
  const char* const end = nUTF8Len < 0 ? nullptr : pszUTF8 + nUTF8Len;
  for (const char* p = pszUTF8; p != end && *p != 0;) {
    const int code = DecodeCharUTF8(p, end);
    if (code == -1) ++p;
    int length;
    EncodeCharUTF16(code, pszUTF16 != nullptr ? pszUTF16 + total : nullptr, length);
    total += length;
  }
  return total;
}

void CMarkup::x_EndianSwapUTF16(unsigned short* pBuffer, int nCharCount) {
  for (int i = 0; i < nCharCount; ++i) {
    pBuffer[i] = static_cast<unsigned short>(pBuffer[i] << 8 | pBuffer[i] >> 8);
  }
}

int CMarkup::x_GetEncodingCodePage(MarkupCStr pszEncoding) {
  if (pszEncoding.IsEmpty()) return 0;
  if (wcsncmp(pszEncoding, L"UTF-32", 6) == 0) return 65005;
  wchar_t name[100];
  size_t length = 0;
  unsigned int sum = 0;
  for (const wchar_t* p = pszEncoding; *p != 0; ++p) {
    if (length == 99) return -1;
    name[length] = *p >= L'A' && *p <= L'Z' ? *p + (L'a' - L'A') : *p;
    sum += static_cast<unsigned int>(name[length++]);
  }
  const wchar_t* record = EncodingNameTable[sum % ENCODING_NAME_BUCKETS];
  while (record != nullptr && *record != 0) {
    const size_t recordLength = (record[0] - L'0') * 10 + (record[1] - L'0');
    if (recordLength == length && wmemcmp(record + 7, name, length) == 0) {
      return static_cast<int>(wcstol(std::wstring(record + 2, 5).c_str(), nullptr, 10));
    }
    record += 7 + recordLength;
  }
  return -1;
}

std::wstring CMarkup::GetDeclaredEncoding(MarkupCStr pszDoc) {
  if (pszDoc.IsEmpty()) return std::wstring();
  const wchar_t* start = pszDoc;
  if (*start == 0xfeff) ++start;
  NodePos node;
  TokenPos token(start, 0);
  int type = token.ParseNode(node);
  if (type == MNT_WHITESPACE) type = token.ParseNode(node);
  if (type != MNT_PROCESSING_INSTRUCTION) return std::wstring();
  token.m_nNext = node.nStart + 2;
  token.ReadTagName();
  if (!token.Match(L"xml") || !token.FindAttrib(L"encoding")) return std::wstring();
  return token.GetTokenText();
}
