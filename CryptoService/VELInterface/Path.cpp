// Paths of wide text. A text that is no Unicode names nothing: replaced characters could name a
// file that was not meant.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wchar.h>

#include "LastError.h"
#include "VELInterface.h"

namespace {

constexpr mode_t kFolderMode = 0700;

struct NarrowPath {
  DWORD error;  // 0, or why there is no text
  char text[PATH_MAX];

  explicit NarrowPath(LPCWSTR path) : error(ERROR_SUCCESS) {
    if (path == nullptr) {
      text[0] = 0;
      error = ERROR_INVALID_PARAMETER;
    } else if (!CopyAscii(path)) {
      Convert(path);
    }
  }

 private:
  // Most paths are short and ASCII. False for another.
  bool CopyAscii(LPCWSTR path) {
    for (size_t i = 0; i < PATH_MAX; ++i) {
      if (static_cast<wint_t>(path[i]) >= 0x80) return false;
      text[i] = static_cast<char>(path[i]);
      if (text[i] == 0) return true;
    }
    return false;
  }

  void Convert(LPCWSTR path) {
    text[0] = 0;
    const int count = WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, path, -1, text, PATH_MAX,
                                          nullptr, nullptr);
    if (count == 0) error = GetLastError();
    if (error == ERROR_INSUFFICIENT_BUFFER) error = ERROR_FILENAME_EXCED_RANGE;
    // A text that fills the buffer to the last byte lacks its terminator.
    if (count == PATH_MAX && text[PATH_MAX - 1] != 0) error = ERROR_FILENAME_EXCED_RANGE;
  }
};

BOOL Answer(DWORD error) {
  if (error == ERROR_SUCCESS) return TRUE;
  SetThreadError(error);
  return FALSE;
}

int Fail(DWORD error) {
  SetThreadError(error);
  return static_cast<int>(error);
}

DWORD Inspect(const NarrowPath& path, struct stat* info) {
  if (path.error != ERROR_SUCCESS) return path.error;
  return stat(path.text, info) == 0 ? ERROR_SUCCESS : ErrorFromErrno(errno);
}

bool IsFolder(const char* path) {
  struct stat info;
  return stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

// Whether the path, which ends with a slash, leads to a folder: the cheapest question about it that
// the system answers.
bool LeadsToFolder(const char* path) {
  return faccessat(AT_FDCWD, path, F_OK, AT_EACCESS) == 0;
}

// Creates one folder; 183 when it exists, 80 when something else has its name.
DWORD CreateFolder(const char* path) {
  if (mkdir(path, kFolderMode) == 0) return ERROR_SUCCESS;
  if (errno == EEXIST) return IsFolder(path) ? ERROR_ALREADY_EXISTS : ERROR_FILE_EXISTS;
  return errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno);
}

// Returns the length that is left.
size_t RemoveTrailingSlashes(char* path) {
  size_t length = strlen(path);
  for (; length > 1 && path[length - 1] == '/'; --length) path[length - 1] = 0;
  return length;
}

// Creates every folder that leads to the last component, from the top; their failures show when
// the next one below them fails.
void CreateFoldersAbove(char* path) {
  for (char* slash = strchr(path + 1, '/'); slash != nullptr; slash = strchr(slash + 1, '/')) {
    *slash = 0;
    mkdir(path, kFolderMode);
    *slash = '/';
  }
}

}  // namespace

BOOL PathFileExistsW(LPCWSTR path) {
  struct stat info;
  return Answer(Inspect(NarrowPath(path), &info));
}

BOOL PathIsDirectoryW(LPCWSTR path) {
  struct stat info;
  const DWORD error = Inspect(NarrowPath(path), &info);
  if (error == ERROR_SUCCESS && !S_ISDIR(info.st_mode)) return Answer(ERROR_PATH_NOT_FOUND);
  return Answer(error);
}

BOOL PathRemoveFileSpecW(LPWSTR path) {
  if (path == nullptr) return Answer(ERROR_INVALID_PARAMETER);
  wchar_t* end = wcsrchr(path, L'/');
  if (end == nullptr) end = path;
  while (end > path && end[-1] == L'/') --end;
  if (end == path && *path == L'/') ++end;  // the root stays
  if (*end == 0) return FALSE;
  *end = 0;
  return TRUE;
}

int SHCreateDirectoryExW(HWND, LPCWSTR path, LPCVOID) {
  NarrowPath narrow(path);
  if (narrow.error != ERROR_SUCCESS) return Fail(narrow.error);
  const size_t length = RemoveTrailingSlashes(narrow.text);
  if (length == 0) return Fail(ERROR_PATH_NOT_FOUND);
  if (length + 1 < PATH_MAX) {
    // Loggers ask for folders that exist, line by line.
    memcpy(narrow.text + length, "/", 2);
    if (LeadsToFolder(narrow.text)) return Fail(ERROR_ALREADY_EXISTS);
    narrow.text[length] = 0;
  }
  DWORD error = CreateFolder(narrow.text);
  if (error == ERROR_PATH_NOT_FOUND) {
    CreateFoldersAbove(narrow.text);
    error = CreateFolder(narrow.text);
  }
  return error == ERROR_SUCCESS ? 0 : Fail(error);
}
