// Writing a file: its encoding, and the way it takes the old one's place.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <random>

#include "Markup.h"
#include "MarkupFile.h"

bool FilePos::FileWriteText(const std::string& file, const std::wstring& strDoc) {
  SpecifyWriteEncoding(strDoc);
  if (!EncodeText(strDoc)) return FileErrorAddResult();
  return WriteBeside(file);
}

// The flags come first, then what the document says of itself; UTF-8 without either.
void FilePos::SpecifyWriteEncoding(const std::wstring& strDoc) {
  for (const BomTableRow* row = BomTable; row->pszBom != nullptr; ++row) {
    if ((m_nDocFlags & row->nBomFlag) == 0) continue;
    m_strEncoding = row->pszBomEnc;
    return;
  }
  m_strEncoding = CMarkup::GetDeclaredEncoding(strDoc);
  const int unit = TextEncoding::UnitSize(m_strEncoding);
  if (unit == 2) {
    const bool little = TextEncoding::IConvName(m_strEncoding) == "UTF-16LE";
    m_strEncoding = little ? L"UTF-16LE" : L"UTF-16BE";
    m_nDocFlags |= little ? MDF_UTF16LEFILE : MDF_UTF16BEFILE;
  } else if (unit == 4 || m_strEncoding.empty() || !TextEncoding::IsKnown(m_strEncoding)) {
    m_strEncoding = L"UTF-8";
  }
}

// Fills the buffer; false when the text is too long.
bool FilePos::EncodeText(const std::wstring& strDoc) {
  errno = EFBIG;
  if (strDoc.length() > INT_MAX / sizeof(wchar_t)) return false;
  m_strBuffer.clear();
  for (const BomTableRow* row = BomTable; row->pszBom != nullptr; ++row) {
    if ((m_nDocFlags & row->nBomFlag) == 0) continue;
    m_strBuffer.assign(row->pszBom, row->nBomLen);
    CMarkup::x_AddResult(m_strIOResult, L"bom", row->pszBomEnc, MRC_ENCODING | MRC_LENGTH,
                         row->nBomLen);
    break;
  }
  AddFileResult(L"converted_from", true, static_cast<long long>(strDoc.length()));
  TextEncoding text(TextEncoding::WIDE, strDoc.data(),
                    static_cast<int>(strDoc.length() * sizeof(wchar_t)));
  const int count = text.PerformConversion(nullptr, m_strEncoding);
  errno = EFBIG;
  if (count < 0) return false;
  const size_t before = m_strBuffer.length();
  m_strBuffer.resize(before + static_cast<size_t>(count) * TextEncoding::UnitSize(m_strEncoding));
  if (count > 0) text.PerformConversion(&m_strBuffer[before], m_strEncoding);
  m_nFileByteLen = static_cast<long long>(m_strBuffer.length());
  AddFileResult(L"write", false, m_nFileByteLen);
  if (text.m_nFailedChars > 0) CMarkup::x_AddResult(m_strIOResult, L"conversion_loss");
  return true;
}

bool FilePos::WriteBeside(const std::string& file) {
  struct stat old;
  const bool exists = stat(file.c_str(), &old) == 0;
  if (exists && !S_ISREG(old.st_mode)) {
    return WriteBuffer(open(file.c_str(), O_WRONLY | O_CLOEXEC));
  }
  // A symbolic link stays; what it leads to is replaced.
  std::string target = file;
  if (char* const resolved = exists ? realpath(file.c_str(), nullptr) : nullptr) {
    target = resolved;
    free(resolved);
  }
  const std::string beside = target + "." + std::to_string(std::random_device()()) + ".tmp";
  const int fd = open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
  if (fd != -1 && exists) {
    // Not every user may give a file away; the permissions are what counts.
    if (fchown(fd, old.st_uid, old.st_gid) != 0) errno = 0;
    fchmod(fd, old.st_mode & 07777);
  }
  if (!WriteBuffer(fd)) {
    if (fd != -1) unlink(beside.c_str());
    return false;
  }
  if (rename(beside.c_str(), target.c_str()) == 0) return true;
  FileErrorAddResult();
  unlink(beside.c_str());
  return false;
}

// Writes all of the buffer and closes.
bool FilePos::WriteBuffer(int fd) {
  if (fd == -1) return FileErrorAddResult();
  m_fp = fdopen(fd, "wb");
  if (m_fp == nullptr) {
    close(fd);
    return FileErrorAddResult();
  }
  const size_t written = fwrite(m_strBuffer.data(), 1, m_strBuffer.length(), m_fp);
  m_nOpByteLen = static_cast<int>(written);
  bool good = written == m_strBuffer.length() && fflush(m_fp) == 0;
  // A pipe cannot be synchronised, and need not be.
  if (good && fsync(fd) != 0 && errno != EINVAL && errno != EROFS) good = false;
  if (!good) FileErrorAddResult();
  const bool closed = fclose(m_fp) == 0;
  m_fp = nullptr;
  return good && (closed || FileErrorAddResult());
}
