// Files over POSIX descriptors. A handle is no pointer: it is (descriptor + 1) * 4, so that
// descriptor 0 is no null handle, stray pointers are mostly refused, and nothing is allocated.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdint.h>
#include <sys/stat.h>
#include <unistd.h>

#include "LastError.h"
#include "VELInterface.h"

namespace {

constexpr uintptr_t kHandleStep = 4;
constexpr DWORD kLargestTransfer = 1 << 30;  // below what read and write take at once

HANDLE HandleOf(int descriptor) {
  return reinterpret_cast<HANDLE>((static_cast<uintptr_t>(descriptor) + 1) * kHandleStep);
}

// -1 for what cannot be a handle; one that was closed fails in the system call (EBADF).
int DescriptorOf(HANDLE handle) {
  const uintptr_t value = reinterpret_cast<uintptr_t>(handle);
  const uintptr_t number = value / kHandleStep;
  if (value % kHandleStep != 0 || number == 0 || number > INT_MAX) return -1;
  return static_cast<int>(number - 1);
}

BOOL Fail(DWORD error) {
  SetThreadError(error);
  return FALSE;
}

BOOL FailWithErrno() {
  return Fail(ErrorFromErrno(errno));
}

int OpenFile(const char* path, int flags) {
  int descriptor;
  do {
    descriptor = open(path, O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | flags, 0600);
  } while (descriptor < 0 && errno == EINTR);
  return descriptor;
}

// Reads or writes until `wanted` bytes are moved, the file ends or the system refuses.
template <typename Byte, typename Call>
BOOL Transfer(HANDLE file, Byte* bytes, DWORD wanted, LPDWORD done, LPVOID overlapped, Call call) {
  if (done == nullptr) return Fail(ERROR_INVALID_PARAMETER);
  *done = 0;
  if (overlapped != nullptr || (bytes == nullptr && wanted != 0)) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  const int descriptor = DescriptorOf(file);
  if (descriptor < 0) return Fail(ERROR_INVALID_HANDLE);
  while (*done < wanted) {
    const DWORD left = wanted - *done;
    const ssize_t moved =
        call(descriptor, bytes + *done, left < kLargestTransfer ? left : kLargestTransfer);
    if (moved == 0) break;
    if (moved > 0) {
      *done += static_cast<DWORD>(moved);
    } else if (errno != EINTR) {
      return FailWithErrno();
    }
  }
  return TRUE;
}

}  // namespace

HANDLE VelCreateFile(LPCSTR path) {
  if (path == nullptr) {
    SetThreadError(ERROR_INVALID_PARAMETER);
    return INVALID_HANDLE_VALUE;
  }
  // Opening and creating exclude each other, so the caller learns without a race who created the
  // file. Another process may remove or create it in between: then the other one is tried again.
  for (int attempt = 0; attempt < 100; ++attempt) {
    int descriptor = OpenFile(path, 0);
    if (descriptor >= 0) {
      SetThreadError(ERROR_ALREADY_EXISTS);
      return HandleOf(descriptor);
    }
    if (errno != ENOENT) break;
    descriptor = OpenFile(path, O_CREAT | O_EXCL);
    if (descriptor >= 0) {
      SetThreadError(ERROR_SUCCESS);
      return HandleOf(descriptor);
    }
    if (errno != EEXIST) break;
  }
  // A file that cannot be created for want of a name lacks its folder.
  SetThreadError(errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno));
  return INVALID_HANDLE_VALUE;
}

BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD wanted, LPDWORD done, LPVOID overlapped) {
  return Transfer(file, static_cast<char*>(buffer), wanted, done, overlapped, read);
}

BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD wanted, LPDWORD done, LPVOID overlapped) {
  if (!Transfer(file, static_cast<const char*>(buffer), wanted, done, overlapped, write)) {
    return FALSE;
  }
  return *done == wanted ? TRUE : Fail(ERROR_DISK_FULL);
}

BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPosition,
                      DWORD method) {
  static constexpr int kWhence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
  const int descriptor = DescriptorOf(file);
  if (descriptor < 0) return Fail(ERROR_INVALID_HANDLE);
  if (method > FILE_END) return Fail(ERROR_INVALID_PARAMETER);
  const off_t position = lseek(descriptor, distance.QuadPart, kWhence[method]);
  if (position < 0) {
    const bool beforeBeginning = errno == EINVAL && distance.QuadPart < 0;
    return beforeBeginning ? Fail(ERROR_NEGATIVE_SEEK) : FailWithErrno();
  }
  if (newPosition != nullptr) newPosition->QuadPart = position;
  return TRUE;
}

BOOL GetFileSizeEx(HANDLE file, PLARGE_INTEGER size) {
  if (size == nullptr) return Fail(ERROR_INVALID_PARAMETER);
  const int descriptor = DescriptorOf(file);
  if (descriptor < 0) return Fail(ERROR_INVALID_HANDLE);
  struct stat info;
  if (fstat(descriptor, &info) != 0) return FailWithErrno();
  size->QuadPart = info.st_size;
  return TRUE;
}

BOOL FlushFileBuffers(HANDLE file) {
  const int descriptor = DescriptorOf(file);
  if (descriptor < 0) return Fail(ERROR_INVALID_HANDLE);
  // The size is made durable with the bytes; only times may lag. EINVAL: a device that keeps none.
  int result;
  do {
    result = fdatasync(descriptor);
  } while (result != 0 && errno == EINTR);
  return result == 0 || errno == EINVAL ? TRUE : FailWithErrno();
}

BOOL SetEndOfFile(HANDLE file) {
  const int descriptor = DescriptorOf(file);
  if (descriptor < 0) return Fail(ERROR_INVALID_HANDLE);
  const off_t position = lseek(descriptor, 0, SEEK_CUR);
  if (position < 0) return FailWithErrno();
  int result;
  do {
    result = ftruncate(descriptor, position);
  } while (result != 0 && errno == EINTR);
  return result == 0 ? TRUE : FailWithErrno();
}

BOOL CloseHandle(HANDLE handle) {
  const int descriptor = DescriptorOf(handle);
  if (descriptor < 0) return Fail(ERROR_INVALID_HANDLE);
  // The descriptor is gone after EINTR too; another try could close somebody else's.
  return close(descriptor) == 0 || errno == EINTR ? TRUE : FailWithErrno();
}
