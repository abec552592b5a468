// Dispatch and the local route; the service route is in VelFileServer.cpp.
#include "VelFile.h"

namespace {

bool IsUsable(HANDLE file) {
  return file != nullptr && file != INVALID_HANDLE_VALUE;
}

DWORD ResultOf(BOOL done) {
  return done ? ERROR_SUCCESS : GetLastError();
}

}  // namespace

CVelFile::CVelFile() : m_hFile(nullptr), m_dwFileID(0), m_bEnable(0) {}

CVelFile::~CVelFile() {
  CloseFile();
}

DWORD CVelFile::OpenFile(LPCWSTR path, int bWrite, int bOpenAlways, int bCreateAlways,
                         int bWriteBom) {
  if (path == nullptr || *path == L'\0') return ERROR_INVALID_PARAMETER;
  const CString wanted(path);  // the caller may have passed m_strFileName, which closing empties
  CloseFile();
  m_dwFileID = 0;  // also when its service is gone and could not be told
  if (m_bEnable && ServerIsExists()) {
    const DWORD result = ServerOpenFile(wanted, bWrite, bOpenAlways, bCreateAlways, bWriteBom);
    m_strFileName = wanted;
    return result;
  }
  return OpenLocal(wanted, bWrite, bOpenAlways, bCreateAlways, bWriteBom);
}

DWORD CVelFile::OpenLocal(LPCWSTR path, int bWrite, int bOpenAlways, int bCreateAlways,
                          int bWriteBom) {
  if (!bWrite && !PathFileExistsW(path)) return ERROR_FILE_NOT_FOUND;
  // Not the access error that opening a folder would give.
  if (PathIsDirectoryW(path)) return ERROR_TOO_MANY_OPEN_FILES;
  const CStringA narrow(path);
  m_hFile = VelCreateFile(narrow);
  const DWORD error = GetLastError();
  if (!IsUsable(m_hFile)) return error;
  const bool isNew = bCreateAlways || (bOpenAlways && error == ERROR_SUCCESS);
  if (isNew && bWriteBom) {
    BYTE bom[] = {0xFF, 0xFE};
    DWORD length = sizeof(bom);
    Write(bom, length);
  }
  m_strFileName = path;
  return ERROR_SUCCESS;
}

DWORD CVelFile::SeekTo(ULONGLONG pos) {
  if (m_dwFileID != 0) return ServerSeekTo(pos);
  if (!IsUsable(m_hFile)) return ERROR_FILE_NOT_FOUND;
  LARGE_INTEGER distance = {};
  distance.QuadPart = static_cast<long long>(pos);
  return ResultOf(SetFilePointerEx(m_hFile, distance, nullptr, FILE_BEGIN));
}

DWORD CVelFile::SeekToBegin() {
  return m_dwFileID != 0 ? ServerCommand(kSeekToBegin) : SeekTo(0);
}

DWORD CVelFile::SeekToEnd() {
  if (m_dwFileID != 0) return ServerCommand(kSeekToEnd);
  ULONGLONG size = 0;
  return GetFileSize(size) ? SeekTo(size) : GetLastError();
}

BOOL CVelFile::GetFileSize(ULONGLONG& size) {
  if (m_dwFileID != 0) return ServerGetFileSize(size);
  LARGE_INTEGER found = {};
  if (!GetFileSizeEx(m_hFile, &found)) return FALSE;
  size = static_cast<ULONGLONG>(found.QuadPart);
  return TRUE;
}

BOOL CVelFile::Read(PBYTE buf, DWORD& len) {
  if (m_dwFileID != 0) return ServerRead(buf, len);
  return ReadFile(m_hFile, buf, len, &len, nullptr);
}

BOOL CVelFile::Write(PBYTE buf, DWORD& len) {
  if (m_dwFileID != 0) return ServerWrite(buf, len);
  const DWORD wanted = len;
  len = 0;
  return WriteFile(m_hFile, buf, wanted, &len, nullptr);
}

DWORD CVelFile::Flush() {
  return m_dwFileID != 0 ? ServerCommand(kFlush) : ResultOf(FlushFileBuffers(m_hFile));
}

DWORD CVelFile::SetEndOfFile() {
  return m_dwFileID != 0 ? ServerCommand(kSetEndOfFile) : ResultOf(::SetEndOfFile(m_hFile));
}

DWORD CVelFile::CloseFile() {
  if (m_dwFileID != 0) return ServerCloseFile();
  if (IsUsable(m_hFile)) CloseHandle(m_hFile);
  m_hFile = nullptr;
  m_strFileName.Empty();
  return ERROR_SUCCESS;
}

DWORD CVelFile::GetFileID() {
  return m_hFile == INVALID_HANDLE_VALUE ? 0 : reinterpret_cast<DWORD>(m_hFile);
}

BOOL CVelFile::ServerIsExists() {
  return CPipeIPC::InstanceIsExists(kServiceSession, kServiceObject);
}
