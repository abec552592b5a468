#include "PinCounter.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <time.h>

namespace velcrypto {

namespace {

const int kLockWaitMs = 10000;
const int kLockStepMs = 10;
const size_t kTextSize = 3;  // two digits and a line end; written in one piece

std::string FileNameOf(const std::string& certificateId) {
  return ".tries-" + certificateId;
}

bool Lock(int file) {
  for (int waited = 0; waited < kLockWaitMs; waited += kLockStepMs) {
    if (flock(file, LOCK_EX | LOCK_NB) == 0) return true;
    if (errno != EWOULDBLOCK && errno != EINTR) return false;
    const timespec step = {0, kLockStepMs * 1000000L};
    nanosleep(&step, nullptr);
  }
  errno = EWOULDBLOCK;
  return false;
}

// A new file is empty and grants all tries.
Outcome ReadLeft(int file, unsigned* left) {
  char text[kTextSize + 1] = {};
  const ssize_t size = pread(file, text, kTextSize, 0);
  if (size < 0) return SystemOutcome(kFileReadFailed, "PIN counter");
  *left = PinCounter::kMaxTries;
  if (size == 0) return kOk;
  unsigned value = 0;
  int used = 0;
  const bool whole = sscanf(text, "%2u\n%n", &value, &used) == 1 && size == kTextSize &&
                     text[kTextSize - 1] == '\n' && value <= PinCounter::kMaxTries;
  *left = whole ? value : 0;
  return kOk;
}

}  // namespace

// Unlocks by itself: a child that another thread forked meanwhile may hold the file open.
PinCounter::~PinCounter() {
  if (m_file.ok()) flock(m_file.get(), LOCK_UN);
}

Outcome PinCounter::Open(const Descriptor& folder, const std::string& certificateId) {
  m_file = Descriptor(openat(folder.get(), FileNameOf(certificateId).c_str(),
                             O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
  if (!m_file.ok()) return SystemOutcome(kFileWriteFailed, "PIN counter");
  if (!Lock(m_file.get())) return SystemOutcome(kTimeout, "PIN counter is in use");
  return ReadLeft(m_file.get(), &m_left);
}

Outcome PinCounter::Spend() {
  if (m_left == 0) return {kPinLocked, 0, "no try is left"};
  return Set(m_left - 1);
}

Outcome PinCounter::Set(unsigned left) {
  char text[kTextSize + 1];
  snprintf(text, sizeof(text), "%02u\n", left % 100);
  if (pwrite(m_file.get(), text, kTextSize, 0) != static_cast<ssize_t>(kTextSize) ||
      fdatasync(m_file.get()) != 0) {
    return SystemOutcome(kFileWriteFailed, "PIN counter");
  }
  m_left = left;
  return kOk;
}

Outcome PinCounter::Read(const Descriptor& folder, const std::string& certificateId,
                         unsigned* left) {
  const Descriptor file(openat(folder.get(), FileNameOf(certificateId).c_str(),
                               O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (file.ok()) return ReadLeft(file.get(), left);
  if (errno != ENOENT) return SystemOutcome(kFileReadFailed, "PIN counter");
  *left = kMaxTries;
  return kOk;
}

}  // namespace velcrypto
