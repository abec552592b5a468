// Load and Save, and what their two directions share.
#include "MarkupFile.h"

#include <cerrno>
#include <cstring>

#include "Markup.h"

namespace {

constexpr int kFileFlags = MDF_READFILE | MDF_WRITEFILE;
constexpr int kBomFlags = MDF_UTF8PREAMBLE | MDF_UTF16LEFILE | MDF_UTF16BEFILE;

std::string NarrowName(const wchar_t* name) {
  std::string narrow;
  for (; name != nullptr && *name != 0; ++name) {
    char bytes[4];
    int length;
    CMarkup::EncodeCharUTF8(*name, bytes, length);
    narrow.append(bytes, length);
  }
  return narrow;
}

}  // namespace

FilePos::FilePos(int nDocFlags)
    : m_fp(nullptr),
      m_nDocFlags(nDocFlags),
      m_nOpByteLen(0),
      m_nBlockSizeBasis(BLOCK_SIZE),
      m_nFileByteLen(0),
      m_bEndOfFile(false),
      m_bUTF8Detected(false),
      m_nNulls(0),
      m_nFailedChars(0) {}

FilePos::~FilePos() {
  if (m_fp != nullptr) fclose(m_fp);
}

// Takes the text of errno; always false.
bool FilePos::FileErrorAddResult() {
  char buffer[256] = "";
  const char* const message = strerror_r(errno, buffer, sizeof(buffer));
  std::wstring wide;
  for (const char* p = message; *p != 0;) {
    const int code = CMarkup::DecodeCharUTF8(p);
    wide += static_cast<wchar_t>(code != -1 ? code : '?');
    if (code == -1) ++p;
  }
  CMarkup::x_AddResult(m_strIOResult, L"file_error", wide, MRC_MSG);
  return false;
}

void FilePos::AddFileResult(MarkupCStr name, bool bWide, long long nLength) {
  const std::wstring encoding = bWide ? L"UTF-32" : m_strEncoding.empty() ? L"ANSI" : m_strEncoding;
  CMarkup::x_AddResult(m_strIOResult, name, encoding, MRC_ENCODING | MRC_LENGTH,
                       static_cast<int>(nLength));
}

bool CMarkup::Load(MarkupCStr file) {
  return Load(NarrowName(file));
}

bool CMarkup::Load(const std::string& file) {
  if ((m_nDocFlags & kFileFlags) != 0) return false;
  std::wstring doc;
  m_strResult.clear();
  if (!ReadTextFile(file, doc, &m_strResult, &m_nDocFlags)) return false;
  m_strDoc.swap(doc);
  return x_ParseDoc();
}

bool CMarkup::Save(MarkupCStr file) {
  return Save(NarrowName(file));
}

bool CMarkup::Save(const std::string& file) {
  if ((m_nDocFlags & kFileFlags) != 0) return false;
  m_strResult.clear();
  return WriteTextFile(file, m_strDoc, &m_strResult, &m_nDocFlags);
}

bool CMarkup::ReadTextFile(const std::string& file, std::wstring& strDoc, std::wstring* pstrResult,
                           int* pnDocFlags) {
  FilePos reader(pnDocFlags != nullptr ? *pnDocFlags & ~kBomFlags : 0);
  std::wstring doc;
  const bool good = reader.FileOpenRead(file) && reader.FileReadText(doc);
  if (pstrResult != nullptr) *pstrResult += reader.m_strIOResult;
  if (!good) return false;
  strDoc.swap(doc);
  if (pnDocFlags != nullptr) *pnDocFlags = reader.m_nDocFlags;
  return true;
}

bool CMarkup::WriteTextFile(const std::string& file, const std::wstring& strDoc,
                            std::wstring* pstrResult, int* pnDocFlags) {
  FilePos writer(pnDocFlags != nullptr ? *pnDocFlags : 0);
  const bool good = writer.FileWriteText(file, strDoc);
  if (pstrResult != nullptr) *pstrResult += writer.m_strIOResult;
  return good;
}
