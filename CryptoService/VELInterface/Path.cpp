// Paths of wide text. A text that is no Unicode names nothing: replaced characters could name a
// file that was not meant.
#include <errno.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <wchar.h>

#include "LastError.h"
#include "VELInterface.h"

namespace {

constexpr mode_t kFolderMode = 0700;

struct NarrowPath {
  char text[PATH_MAX];
  DWORD error;  // 0, or why there is no text

  explicit NarrowPath(LPCWSTR path) : error(ERROR_SUCCESS) {
    text[0] = 0;
    if (path == nullptr) {
      error = ERROR_INVALID_PARAMETER;
      return;
    }
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

DWORD Inspect(const NarrowPath& path, struct stat* info) {
  if (path.error != ERROR_SUCCESS) return path.error;
  return stat(path.text, info) == 0 ? ERROR_SUCCESS : ErrorFromErrno(errno);
}

bool IsFolder(const char* path) {
  struct stat info;
  return stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

// Creates one folder; 183 when it exists, 80 when something else has its name. Loggers ask for
// folders that exist, hence the look before.
DWORD CreateFolder(const char* path) {
  if (IsFolder(path)) return ERROR_ALREADY_EXISTS;
  if (mkdir(path, kFolderMode) == 0) return ERROR_SUCCESS;
  if (errno == EEXIST) return IsFolder(path) ? ERROR_ALREADY_EXISTS : ERROR_FILE_EXISTS;
  return errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno);
}

void RemoveTrailingSlashes(char* path) {
  for (size_t length = strlen(path); length > 1 && path[length - 1] == '/'; --length) {
    path[length - 1] = 0;
  }
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
  DWORD error = narrow.error;
  if (error == ERROR_SUCCESS) {
    RemoveTrailingSlashes(narrow.text);
    error = CreateFolder(narrow.text);
    if (error == ERROR_PATH_NOT_FOUND && narrow.text[0] != 0) {
      CreateFoldersAbove(narrow.text);
      error = CreateFolder(narrow.text);
    }
  }
  if (error != ERROR_SUCCESS) SetThreadError(error);
  return static_cast<int>(error);
}
