#include "Pin.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Failure.h"
#include "Terminal.h"

namespace vctk {
namespace {

const char kAdvice[] = "Give the PIN on the terminal, with --pin-file or on standard input.";

// The toolkit and the device library keep copies of their own, so the whole process goes without.
void ForbidCoreDumps() {
  const rlimit none = {0, 0};
  setrlimit(RLIMIT_CORE, &none);
}

// Reads byte by byte: what is behind the line belongs to the next PIN, and no stream keeps a copy.
void ReadLine(int file, Pin& pin) {
  for (;;) {
    char c = '\0';
    const ssize_t count = read(file, &c, 1);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw Failure(kPin, std::string("cannot read the PIN: ") + strerror(errno));
    if (count == 0 || c == '\n') return;
    if (c == '\r') continue;
    const bool taken = pin.Append(c);
    explicit_bzero(&c, 1);
    if (!taken) throw Failure(kPin, "the PIN is too long or holds a zero byte");
  }
}

// A desktop starts programs with /dev/null, a terminal or nothing at all there.
bool StandardInputGives() {
  struct stat info;
  return fstat(STDIN_FILENO, &info) == 0 && !S_ISCHR(info.st_mode);
}

}  // namespace

Pin::Pin() {
  ForbidCoreDumps();
  mlock(m_text, sizeof(m_text));
  Clear();
}

Pin::~Pin() {
  Clear();
  munlock(m_text, sizeof(m_text));
}

void Pin::Clear() {
  explicit_bzero(m_text, sizeof(m_text));
  m_length = 0;
}

bool Pin::Equals(const Pin& other) const {
  return m_length == other.m_length && memcmp(m_text, other.m_text, m_length) == 0;
}

bool Pin::Append(char c) {
  if (c == '\0' || m_length == kMaxLength) return false;
  m_text[m_length++] = c;
  return true;
}

PinSource::PinSource(const std::string& file, bool standardInputTaken) {
  const bool ask = file.empty() && (standardInputTaken || !StandardInputGives());
  if (file == "-" && standardInputTaken) {
    throw Failure(kUsage, "standard input cannot give both the data and the PIN", kAdvice);
  }
  if (ask) {
    m_isTerminal = true;
    return;
  }
  if (file.empty() || file == "-") {
    m_file = STDIN_FILENO;
    return;
  }
  m_file = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  if (m_file < 0) throw FileFailure("cannot read the PIN file", file);
  m_isOwn = true;
}

PinSource::~PinSource() {
  if (m_isOwn) close(m_file);
}

void PinSource::Read(const std::string& prompt, Pin& pin) {
  pin.Clear();
  if (m_isTerminal) {
    AskTerminal(prompt, pin);
  } else {
    ReadLine(m_file, pin);
  }
  if (pin.IsEmpty()) throw Failure(kPin, "no PIN was given", kAdvice);
}

}  // namespace vctk
