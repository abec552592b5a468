#include "Files.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>

namespace velcrypto {

namespace {

bool WriteAll(int file, const std::vector<BYTE>& content) {
  for (size_t done = 0; done < content.size();) {
    const ssize_t count = write(file, content.data() + done, content.size() - done);
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) done += static_cast<size_t>(count);
  }
  return true;
}

bool SameTime(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

}  // namespace

FileStamp::FileStamp(const struct stat& info)
    : device(info.st_dev),
      inode(info.st_ino),
      size(info.st_size),
      modified(info.st_mtim),
      changed(info.st_ctim) {}

bool FileStamp::operator==(const FileStamp& other) const {
  return device == other.device && inode == other.inode && size == other.size &&
         SameTime(modified, other.modified) && SameTime(changed, other.changed);
}

Outcome SystemOutcome(Code fallback, const std::string& what) {
  const int error = errno;
  Code code = fallback;
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      code = kDeviceNotPresent;
      break;
    case EACCES:
    case EPERM:
    case ELOOP:
      code = kAccessDenied;
      break;
    case ENOMEM:
      code = kOutOfMemory;
      break;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
    case EROFS:
      code = kFileWriteFailed;
      break;
    default:
      break;
  }
  char text[128];
  return {code, static_cast<unsigned long>(error),
          what + ": " + strerror_r(error, text, sizeof(text))};
}

Descriptor OpenFolder(const std::string& path) {
  return Descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

Outcome ReadFileOf(const Descriptor& folder, const std::string& name, size_t maxSize,
                   std::vector<BYTE>* content, FileStamp* stamp) {
  // O_NONBLOCK, in case a pipe has taken the file's place.
  const Descriptor file(
      openat(folder.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat info;
  if (!file.ok() || fstat(file.get(), &info) != 0) {
    return SystemOutcome(kFileReadFailed, "open");
  }
  if (!S_ISREG(info.st_mode)) return {kFileReadFailed, 0, "not a regular file"};
  if (static_cast<size_t>(info.st_size) > maxSize) return {kFileContentWrong, 0, "too large"};
  *stamp = FileStamp(info);
  content->resize(static_cast<size_t>(info.st_size));
  size_t done = 0;
  while (done < content->size()) {
    const ssize_t count = read(file.get(), content->data() + done, content->size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return SystemOutcome(kFileReadFailed, "read");
    if (count == 0) break;
    done += static_cast<size_t>(count);
  }
  content->resize(done);
  return kOk;
}

Outcome ReplaceFile(const Descriptor& folder, const std::string& name,
                    const std::vector<BYTE>& content) {
  const std::string beside = "." + name + ".new";
  unlinkat(folder.get(), beside.c_str(), 0);  // left by a crash
  const Descriptor file(openat(folder.get(), beside.c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file.ok()) return SystemOutcome(kFileWriteFailed, "create");
  Outcome outcome;
  if (!WriteAll(file.get(), content)) {
    outcome = SystemOutcome(kFileWriteFailed, "write");
  } else if (fsync(file.get()) != 0) {
    outcome = SystemOutcome(kFileWriteFailed, "fsync");
  } else if (renameat(folder.get(), beside.c_str(), folder.get(), name.c_str()) != 0) {
    outcome = SystemOutcome(kFileWriteFailed, "rename");
  }
  if (!outcome.ok()) {
    unlinkat(folder.get(), beside.c_str(), 0);
    return outcome;
  }
  fsync(folder.get());
  return kOk;
}

}  // namespace velcrypto
