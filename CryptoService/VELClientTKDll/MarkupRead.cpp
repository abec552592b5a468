// Reading a file: its encoding, its blocks, its characters.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <vector>

#include "Markup.h"
#include "MarkupFile.h"

namespace {

constexpr bool kBigEndian = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;
constexpr int kOtherEndFlag = kBigEndian ? MDF_UTF16LEFILE : MDF_UTF16BEFILE;

// Takes the zeros from that index on out and counts them.
template <typename Text>
int EraseNulls(Text& text, size_t from) {
  const auto end = std::remove(text.begin() + from, text.end(), 0);
  const int count = static_cast<int>(text.end() - end);
  text.erase(end, text.end());
  return count;
}

void SwapEnds(std::string& block) {
  const size_t count = block.length() / 2;
  std::vector<unsigned short> units(count + 1);
  memcpy(units.data(), block.data(), count * 2);
  CMarkup::x_EndianSwapUTF16(units.data(), static_cast<int>(count));
  memcpy(&block[0], units.data(), count * 2);
}

// Whether a block of it means something else than behind the block before: it shifts, or letters
// and the accents behind them become one character.
bool IsStateful(const std::wstring& encoding) {
  const int page = CMarkup::x_GetEncodingCodePage(encoding);
  const std::string name = TextEncoding::IConvName(encoding);
  return page == 65000 || page == 1258 || name.compare(0, 4, "TCVN") == 0 || page == 52936 ||
         (page >= 50220 && page <= 50229) || name.compare(0, 9, "ISO-2022-") == 0 ||
         name.compare(0, 4, "UTF-7") == 0;
}

}  // namespace

bool FilePos::IsUTF16() const {
  return (m_nDocFlags & (MDF_UTF16LEFILE | MDF_UTF16BEFILE)) != 0;
}

bool FilePos::FileOpenRead(const std::string& file) {
  m_fp = fopen(file.c_str(), "rbe");
  return m_fp != nullptr || FileErrorAddResult();
}

bool FilePos::FileReadText(std::wstring& strDoc) {
  strDoc.clear();
  do {
    if (!ReadBlock()) return false;
  } while (m_strBuffer.length() < HEAD_SIZE && !m_bEndOfFile);
  if (!FileSpecifyEncoding()) return false;
  for (;;) {
    // First of all, for a zero may stand inside a character that the end of a block cuts off.
    if (!IsUTF16()) m_nNulls += EraseNulls(m_strBuffer, 0);
    const int length = FileCheckRaggedEnd(m_bEndOfFile);
    ConvertBlock(length, strDoc);
    if (strDoc.length() > INT_MAX || m_nFileByteLen > INT_MAX) {
      errno = EFBIG;
      return FileErrorAddResult();
    }
    if (m_bEndOfFile) break;
    if (!ReadBlock()) return false;
  }
  AddFileResult(L"read", false, m_nFileByteLen);
  if (m_nNulls > 0) {
    CMarkup::x_AddResult(m_strIOResult, L"nulls_removed", nullptr, MRC_COUNT, m_nNulls);
  }
  if ((m_nDocFlags & kOtherEndFlag) != 0) {
    CMarkup::x_AddResult(m_strIOResult, L"endian_swap");
  }
  AddFileResult(L"converted_to", true, static_cast<long long>(strDoc.length()));
  if (m_nFailedChars > 0) CMarkup::x_AddResult(m_strIOResult, L"conversion_loss");
  if (m_bUTF8Detected) CMarkup::x_AddResult(m_strIOResult, L"utf8_detection");
  return true;
}

// Adds up to m_nBlockSizeBasis bytes to the buffer.
bool FilePos::ReadBlock() {
  const size_t kept = m_strBuffer.length();
  m_strBuffer.resize(kept + m_nBlockSizeBasis);
  const size_t count = fread(&m_strBuffer[kept], 1, m_nBlockSizeBasis, m_fp);
  m_strBuffer.resize(kept + count);
  m_nOpByteLen = static_cast<int>(count);
  m_nFileByteLen += m_nOpByteLen;
  m_bEndOfFile = count < static_cast<size_t>(m_nBlockSizeBasis);
  return ferror(m_fp) == 0 || FileErrorAddResult();
}

bool FilePos::ReadRest() {
  while (!m_bEndOfFile) {
    if (!ReadBlock()) return false;
    if (m_nFileByteLen > INT_MAX) {
      errno = EFBIG;
      return FileErrorAddResult();
    }
  }
  return true;
}

// Decides from the head of the file; false when reading more of the file for that failed.
bool FilePos::FileSpecifyEncoding() {
  if (FindBom() || FindUTF16()) return true;
  if (FindDeclaredEncoding()) return !IsStateful(m_strEncoding) || ReadRest();
  // Only the whole file can tell.
  if (!ReadRest()) return false;
  std::string text = m_strBuffer;
  EraseNulls(text, 0);
  if (CMarkup::DetectUTF8(text.data(), static_cast<int>(text.length()))) {
    m_strEncoding = L"UTF-8";
    m_bUTF8Detected = true;
  }
  return true;
}

bool FilePos::FindBom() {
  for (const BomTableRow* row = BomTable; row->pszBom != nullptr; ++row) {
    if (m_strBuffer.compare(0, row->nBomLen, row->pszBom, row->nBomLen) != 0) continue;
    m_strBuffer.erase(0, row->nBomLen);
    m_strEncoding = row->pszBomEnc;
    m_nDocFlags |= row->nBomFlag;
    CMarkup::x_AddResult(m_strIOResult, L"bom", row->pszBomEnc, MRC_ENCODING | MRC_LENGTH,
                         row->nBomLen);
    return true;
  }
  return false;
}

// A document begins with characters below 256: one byte of each of the first two is zero.
bool FilePos::FindUTF16() {
  if (m_strBuffer.length() < 4) return false;
  const char* const b = m_strBuffer.data();
  const bool little = b[0] != 0 && b[1] == 0 && b[2] != 0 && b[3] == 0;
  const bool big = b[0] == 0 && b[1] != 0 && b[2] == 0 && b[3] != 0;
  if (!little && !big) return false;
  m_strEncoding = little ? L"UTF-16LE" : L"UTF-16BE";
  m_nDocFlags |= little ? MDF_UTF16LEFILE : MDF_UTF16BEFILE;
  return true;
}

// A declaration that could be read byte by byte and names wider units is wrong, and not followed.
bool FilePos::FindDeclaredEncoding() {
  std::wstring start;
  for (size_t i = 0; i < m_strBuffer.length() && i < HEAD_SIZE; ++i) {
    if (m_strBuffer[i] != 0) start += static_cast<unsigned char>(m_strBuffer[i]);
  }
  const std::wstring declared = CMarkup::GetDeclaredEncoding(start);
  if (declared.empty() || !TextEncoding::IsKnown(declared)) return false;
  if (TextEncoding::UnitSize(declared) != 1) return false;
  m_strEncoding = declared;
  return true;
}

// The bytes of the buffer that are whole characters; at the end of the file all of them.
int FilePos::FileCheckRaggedEnd(bool bEndOfFile) {
  const int length = static_cast<int>(m_strBuffer.length());
  int whole = length;
  TextEncoding text(m_strEncoding, m_strBuffer.data(), length);
  if (!text.FindRaggedEnd(whole)) return length;
  if (!bEndOfFile) return whole;
  CMarkup::x_AddResult(m_strIOResult, L"truncation_error",
                       m_strEncoding.empty() ? L"ANSI" : m_strEncoding.c_str(), MRC_ENCODING);
  return length;
}

void FilePos::ConvertBlock(int nLength, std::wstring& strDoc) {
  // A character cut off by the end gives nothing, but tells that those ahead of it are complete.
  std::string block = m_strBuffer;
  m_strBuffer.erase(0, nLength);
  const int cutOff = m_strBuffer.empty() ? 0 : 1;
  std::wstring encoding = m_strEncoding;
  if (IsUTF16()) {
    encoding = kBigEndian ? L"UTF-16BE" : L"UTF-16LE";
    if ((m_nDocFlags & kOtherEndFlag) != 0) SwapEnds(block);
  }
  TextEncoding text(encoding, block.data(), static_cast<int>(block.length()));
  const int count = text.PerformConversion(nullptr, TextEncoding::WIDE);
  m_nFailedChars += text.m_nFailedChars - cutOff;
  if (count <= 0) return;
  const size_t before = strDoc.length();
  strDoc.resize(before + count);
  text.PerformConversion(&strDoc[before], TextEncoding::WIDE);
  if (IsUTF16()) m_nNulls += EraseNulls(strDoc, before);
}
