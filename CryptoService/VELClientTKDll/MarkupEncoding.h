#pragma once
// Names of text encodings, byte-order marks and conversion between encodings.
#include <string>

#include "MarkupFlags.h"
#include "MarkupText.h"

// Bucket i holds the encoding names whose code points sum to i modulo 155, or null. Each record is
// two digits (the name's length), five digits (the code page) and the name in lowercase.
constexpr int ENCODING_NAME_BUCKETS = 155;
extern const wchar_t* const EncodingNameTable[ENCODING_NAME_BUCKETS];

struct BomTableRow {
  const char* pszBom;
  int nBomLen;  // bytes
  const wchar_t* pszBomEnc;
  int nBomFlag;  // MarkupDocFlags
};

// Three marks and an empty row.
extern const BomTableRow BomTable[4];

// One conversion by the system library. The source is not owned.
//
// Characters that cannot be converted become "?" and are counted; an incomplete one at the end is
// counted and left out.
struct TextEncoding {
  // nFromLen in bytes. The empty name is the system's 8-bit encoding.
  TextEncoding(MarkupCStr pszFromEncoding, const void* pFrom, int nFromLen);

  // Writes the text in the encoding to pTo, which has room for what a call with null returned.
  // Returns the units written (of 4, 2 or 1 bytes, see UnitSize), no terminator among them; -1 for
  // an encoding that the system does not know. Sets the two counters.
  int PerformConversion(void* pTo, MarkupCStr pszToEncoding);
  // Whether the source ends inside a character; nTruncBeforeBytes is then where that begins.
  bool FindRaggedEnd(int& nTruncBeforeBytes);

  // The name as iconv wants it: narrow, small letters raised; "UTF-16" becomes "UTF-16BE". Empty
  // for a name that no encoding can have.
  static std::string IConvName(MarkupCStr pszEncoding);
  // Bytes in a unit of the encoding.
  static int UnitSize(MarkupCStr pszEncoding);
  static bool IsKnown(MarkupCStr pszEncoding);

  std::wstring m_strFromEncoding;
  const void* m_pFrom;
  int m_nFromLen;
  std::wstring m_strToEncoding;
  int m_nFailedChars;  // characters lost
  int m_nToCount;      // units of output

  // The document's own text.
  static constexpr wchar_t WIDE[] = L"WCHAR_T";

 private:
  int Convert(char* pTo, size_t& nConverted);
  size_t SkipLength(const char* from, size_t left) const;
};
