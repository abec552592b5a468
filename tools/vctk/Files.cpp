#include "Files.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Failure.h"

namespace vctk {
namespace {

int g_standardOutput = STDOUT_FILENO;

bool WriteAll(int file, const std::string& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = write(file, bytes.data() + done, bytes.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    done += static_cast<size_t>(count);
  }
  return true;
}

// Room for the whole file at once where its size is known; one byte more shows the end.
size_t FirstRoom(int file, size_t maxSize) {
  struct stat info;
  if (fstat(file, &info) != 0 || !S_ISREG(info.st_mode)) return 64 * 1024;
  const size_t size = static_cast<size_t>(info.st_size);
  return (size < maxSize ? size : maxSize) + 1;
}

std::string ReadAll(int file, const std::string& path, size_t maxSize) {
  std::string bytes(FirstRoom(file, maxSize), '\0');
  size_t done = 0;
  for (;;) {
    if (done == bytes.size()) bytes.resize(bytes.size() * 2);
    const ssize_t count = read(file, &bytes[done], bytes.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw FileFailure("cannot read", path);
    if (count == 0) break;
    done += static_cast<size_t>(count);
    if (done > maxSize) {
      throw Failure(kFile,
                    "cannot read: " + path + ": more than " + std::to_string(maxSize) + " bytes");
    }
  }
  bytes.resize(done);
  return bytes;
}

// Renaming over a symbolic link would replace the link.
std::string BehindLinks(const std::string& path) {
  char* const real = realpath(path.c_str(), nullptr);
  const std::string result = real == nullptr ? path : real;
  free(real);
  return result;
}

// mkostemp makes private files; a signature is as public as the user's other files.
void GiveUsualMode(int file) {
  const mode_t mask = umask(0);
  umask(mask);
  fchmod(file, 0666 & ~mask);
}

}  // namespace

void ClaimStandardOutput() {
  signal(SIGPIPE, SIG_IGN);
  const int real = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  g_standardOutput = real;
  if (real >= 0) dup2(STDERR_FILENO, STDOUT_FILENO);
}

void Print(const std::string& text) {
  if (!WriteAll(g_standardOutput, text)) throw FileFailure("cannot write", "standard output");
}

bool StandardOutputIsTerminal() {
  return isatty(g_standardOutput) == 1;
}

std::string ReadFile(const std::string& path, size_t maxSize) {
  if (path == "-") return ReadAll(STDIN_FILENO, "standard input", maxSize);
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  if (file < 0) throw FileFailure("cannot read", path);
  try {
    std::string bytes = ReadAll(file, path, maxSize);
    close(file);
    return bytes;
  } catch (...) {
    close(file);
    throw;
  }
}

OutputFile::OutputFile(const std::string& path) : m_path(path) {
  if (path.empty()) return;
  struct stat info;
  const bool exists = stat(path.c_str(), &info) == 0;
  if (exists && access(path.c_str(), W_OK) != 0) throw FileFailure("cannot write", path);
  if (exists && !S_ISREG(info.st_mode)) {
    m_file = open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
  } else {
    if (exists) m_path = BehindLinks(path);
    m_temporary = m_path + ".XXXXXX";
    m_file = mkostemp(&m_temporary[0], O_CLOEXEC);
    if (m_file < 0) m_temporary.clear();
  }
  if (m_file < 0) throw FileFailure("cannot write", path);
}

OutputFile::~OutputFile() {
  if (m_file >= 0) close(m_file);
  if (!m_temporary.empty()) unlink(m_temporary.c_str());
}

void OutputFile::Commit(const std::string& bytes) {
  if (m_path.empty()) {
    Print(bytes);
    return;
  }
  if (!WriteAll(m_file, bytes)) throw FileFailure("cannot write", m_path);
  if (!m_temporary.empty()) {
    GiveUsualMode(m_file);
    if (fsync(m_file) != 0 && errno != EINVAL) throw FileFailure("cannot write", m_path);
  }
  const int file = m_file;
  m_file = -1;
  if (close(file) != 0) throw FileFailure("cannot write", m_path);
  if (m_temporary.empty()) return;
  if (rename(m_temporary.c_str(), m_path.c_str()) != 0) throw FileFailure("cannot write", m_path);
  m_temporary.clear();
}

}  // namespace vctk
