// Text encodings: names, single characters, whole texts and files. The first byte of the input
// chooses an encoding, the second a size of blocks; the rest are the bytes of a file.
#include <iconv.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "Fuzz.h"

namespace {

constexpr const wchar_t* kEncodings[] = {
    L"UTF-8",        L"UTF-16LE",     L"UTF-16BE",
    L"UTF-16",       L"UTF-32LE",     L"GB18030",
    L"GBK",          L"Big5",         L"Shift_JIS",
    L"EUC-JP",       L"EUC-KR",       L"ISO-8859-1",
    L"windows-1252", L"ISO-8859-7",   L"ISO-2022-JP",
    L"ISO-2022-KR",  L"UTF-7",        L"Big5-HKSCS",
    L"us-ascii",     L"windows-1258", L"",
};

// The well-formed byte sequences as the Unicode standard lists them; 0 for none.
size_t SequenceLength(const unsigned char* p, size_t left) {
  const struct {
    int first, last, second, secondLast;
    size_t length;
  } rows[] = {
      {0x00, 0x7f, 0, 0, 1},       {0xc2, 0xdf, 0x80, 0xbf, 2}, {0xe0, 0xe0, 0xa0, 0xbf, 3},
      {0xe1, 0xec, 0x80, 0xbf, 3}, {0xed, 0xed, 0x80, 0x9f, 3}, {0xee, 0xef, 0x80, 0xbf, 3},
      {0xf0, 0xf0, 0x90, 0xbf, 4}, {0xf1, 0xf3, 0x80, 0xbf, 4}, {0xf4, 0xf4, 0x80, 0x8f, 4}};
  for (const auto& row : rows) {
    if (p[0] < row.first || p[0] > row.last) continue;
    if (left < row.length) return 0;
    if (row.length > 1 && (p[1] < row.second || p[1] > row.secondLast)) return 0;
    for (size_t i = 2; i < row.length; ++i) {
      if ((p[i] & 0xc0) != 0x80) return 0;
    }
    return row.length;
  }
  return 0;
}

// One call of the system library; false unless all of it was converted.
bool SystemConversion(const std::string& encoding, const std::string& bytes, std::wstring& text) {
  const iconv_t handle = iconv_open("WCHAR_T", encoding.c_str());
  if (handle == reinterpret_cast<iconv_t>(-1)) return false;
  text.resize(bytes.length() * 4 + 16);
  char* from = const_cast<char*>(bytes.data());
  size_t left = bytes.length();
  char* to = reinterpret_cast<char*>(&text[0]);
  size_t room = text.length() * sizeof(wchar_t);
  bool good = iconv(handle, &from, &left, &to, &room) != static_cast<size_t>(-1) && left == 0;
  good = good && iconv(handle, nullptr, nullptr, &to, &room) != static_cast<size_t>(-1);
  iconv_close(handle);
  text.resize(text.length() - room / sizeof(wchar_t));
  return good;
}

template <typename Text>
Text WithoutZeros(Text text) {
  text.erase(std::remove(text.begin(), text.end(), 0), text.end());
  return text;
}

void CheckDetection(const std::string& bytes) {
  const std::string text = bytes.c_str();
  size_t at = 0;
  int sequences = 0;
  size_t length = 1;
  while (at < text.length() && length != 0) {
    const auto* const p = reinterpret_cast<const unsigned char*>(text.data()) + at;
    length = SequenceLength(p, text.length() - at);
    const char* decoded = text.data() + at;
    const int code = CMarkup::DecodeCharUTF8(decoded, text.data() + text.length());
    Require((code != -1) == (length != 0), "a sequence is valid or not");
    Require(decoded == text.data() + at + length, "decoding moves behind the sequence");
    if (*p >= 0x80) ++sequences;
    if (length == 0) break;
    char encoded[4];
    int encodedLength;
    CMarkup::EncodeCharUTF8(code, encoded, encodedLength);
    Require(text.compare(at, length, encoded, encodedLength) == 0, "encoding reverses decoding");
    at += length;
  }
  int counted;
  bool cut;
  const int size = static_cast<int>(text.length());
  const bool valid = CMarkup::DetectUTF8(text.data(), size, &counted, &cut);
  Require(valid == (at == text.length()) && counted == sequences, "UTF-8 is detected");
  Require(!valid || !cut, "valid text has no fault at its end");
}

void CheckTexts(const std::string& bytes) {
  const int size = static_cast<int>(bytes.length());
  std::vector<unsigned short> units(CMarkup::UTF8To16(nullptr, bytes.data(), size));
  const int count = CMarkup::UTF8To16(units.data(), bytes.data(), size);
  Require(count == static_cast<int>(units.size()), "UTF-16 has the length that was told");
  std::vector<char> back(CMarkup::UTF16To8(nullptr, units.data(), count));
  const int length = CMarkup::UTF16To8(back.data(), units.data(), count);
  Require(length == static_cast<int>(back.size()), "UTF-8 has the length that was told");
  const std::string text = bytes.c_str();
  if (!CMarkup::DetectUTF8(text.data(), static_cast<int>(text.length()))) return;
  Require(text == std::string(back.begin(), back.end()), "UTF-8 survives UTF-16");
}

void CheckConversion(const std::wstring& encoding, const std::string& bytes) {
  const int size = static_cast<int>(bytes.length());
  TextEncoding conversion(encoding, bytes.data(), size);
  const int count = conversion.PerformConversion(nullptr, TextEncoding::WIDE);
  Require(count >= 0, "the system knows the encoding");
  std::wstring text(count, 0);
  Require(conversion.PerformConversion(&text[0], TextEncoding::WIDE) == count, "length is told");
  std::wstring expected;
  if (SystemConversion(TextEncoding::IConvName(encoding), bytes, expected)) {
    Require(conversion.m_nFailedChars == 0, "nothing was lost");
    Require(text == expected, "the text is the system's");
  } else {
    Require(conversion.m_nFailedChars > 0, "what was lost is counted");
  }
  int whole = -1;
  if (conversion.FindRaggedEnd(whole)) {
    Require(whole >= 0 && whole < size, "an incomplete character lies at the end");
  }
}

std::wstring ReadInBlocks(const std::string& bytes, int blockSize, FilePos& reader) {
  // Writing to it is not meant; an empty file needs a place all the same.
  std::string copy = bytes + '\0';
  reader.m_fp = fmemopen(&copy[0], bytes.length(), "rb");
  reader.m_nBlockSizeBasis = blockSize;
  std::wstring text;
  Require(reader.m_fp != nullptr && reader.FileReadText(text), "memory can be read");
  fclose(reader.m_fp);
  reader.m_fp = nullptr;
  Require(reader.m_nFileByteLen == static_cast<long long>(bytes.length()), "all bytes are read");
  return text;
}

void CheckFile(const std::string& bytes, int blockSize) {
  FilePos whole(0), pieces(0);
  const std::wstring text = ReadInBlocks(bytes, FilePos::BLOCK_SIZE, whole);
  Require(ReadInBlocks(bytes, blockSize, pieces) == text, "blocks make no difference");
  Require(pieces.m_nDocFlags == whole.m_nDocFlags, "nor to the flags");
  Require(pieces.m_strEncoding == whole.m_strEncoding, "nor to the encoding");
  Require(text.find(L'\0') == std::wstring::npos, "zeros are removed");
  CMarkup results(whole.m_strIOResult);
  Require(results.FindElem(L"read") && results.FindElem(L"converted_to"), "reading is told");
  Require(results.GetAttrib(L"length") == std::to_wstring(text.length()),
          "with the length of the text");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const std::wstring encoding = kEncodings[data[0] % std::size(kEncodings)];
  const int blockSize = 1 + data[1] % 64;
  const std::string bytes(data + 2, data + size);
  const std::wstring name = Widen(data + 2, size - 2);
  const int page = CMarkup::GetEncodingCodePage(name);
  Require(page >= -1 && page <= 65005, "a code page");
  CMarkup::GetDeclaredEncoding(name);
  CheckDetection(bytes);
  CheckTexts(bytes);
  CheckConversion(encoding, bytes);
  CheckFile(bytes, blockSize);
  if (!encoding.empty()) {
    const std::string declared = TextEncoding::IConvName(encoding);
    CheckFile("<?xml version='1.0' encoding='" + declared + "'?>" + bytes, blockSize);
  }
  return 0;
}
