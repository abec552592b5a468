#pragma once
// A markup file being read or written as a whole, between bytes in the file's encoding and wide
// text.
#include <cstdio>
#include <string>

#include "MarkupText.h"

struct FilePos {
  enum : int { BLOCK_SIZE = 16384 };
  enum : size_t { HEAD_SIZE = 1024 };  // what tells the encoding stands in so many bytes

  // nDocFlags are those of the document; its byte-order flags choose the encoding that is written,
  // and tell after reading what was found.
  explicit FilePos(int nDocFlags);
  FilePos(const FilePos&) = delete;
  FilePos& operator=(const FilePos&) = delete;
  ~FilePos();

  // Both return false with a "file_error" in m_strIOResult.
  bool FileOpenRead(const std::string& file);
  bool FileReadText(std::wstring& strDoc);

  // Replaces the file, which keeps its permissions, or makes it. The text is written beside it and
  // takes its place when all of it is on the disk; a device or a pipe is written directly. False
  // with a "file_error" in m_strIOResult, the old file then untouched.
  bool FileWriteText(const std::string& file, const std::wstring& strDoc);

  FILE* m_fp;
  int m_nDocFlags;
  int m_nOpByteLen;            // bytes of the last operation
  int m_nBlockSizeBasis;       // bytes of one read
  long long m_nFileByteLen;    // bytes read so far, or to be written
  std::wstring m_strEncoding;  // of the file; empty = the system's 8-bit one ("ANSI")
  std::string m_strBuffer;     // bytes read and not yet converted, or to be written
  std::wstring m_strIOResult;  // result elements of the operation

 private:
  bool IsUTF16() const;
  bool ReadBlock();
  bool ReadRest();
  bool FileSpecifyEncoding();
  bool FindBom();
  bool FindUTF16();
  bool FindDeclaredEncoding();
  int FileCheckRaggedEnd(bool bEndOfFile);
  void ConvertBlock(int nLength, std::wstring& strDoc);
  void SpecifyWriteEncoding(const std::wstring& strDoc);
  bool EncodeText(const std::wstring& strDoc);
  bool WriteBeside(const std::string& file);
  bool WriteBuffer(int fd);
  bool FileErrorAddResult();
  void AddFileResult(MarkupCStr name, bool bWide, long long nLength);

  bool m_bEndOfFile;
  bool m_bUTF8Detected;
  int m_nNulls;
  int m_nFailedChars;
};
