#include "Progress.h"

#include <stdio.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

#include "Terminal.h"
#include "Waiting.h"

namespace vctk {
namespace {

const size_t kBar = 24;

// Columns of the terminal, less the last one, in which some of them wrap.
size_t Columns() {
  winsize size = {};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col < 2) return 79;
  return size.ws_col - 1u;
}

// As much of the UTF-8 text as surely fits: every letter beyond ASCII counts as two columns wide,
// as Chinese ones are.
std::string Fitting(const std::string& text, size_t columns) {
  size_t used = 0;
  size_t at = 0;
  while (at < text.size()) {
    size_t end = at + 1;
    while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) ++end;
    used += end - at > 1 ? 2 : 1;
    if (used > columns) break;
    at = end;
  }
  return text.substr(0, at);
}

}  // namespace

Progress::Progress(size_t steps)
    : m_steps(steps), m_isShown(steps > 1 && isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
  Hide();
}

void Progress::Show(size_t done, const std::string& name) {
  if (!m_isShown) return;
  Waiting::LeaveToProgress();
  const size_t full = kBar * std::min(done, m_steps) / m_steps;
  std::string line = "[" + std::string(full, '#') + std::string(kBar - full, '-') + "] " +
                     std::to_string(done) + "/" + std::to_string(m_steps) + " ";
  const size_t columns = Columns();
  if (line.size() > columns) line.resize(columns);
  line += Fitting(Printable(name), columns - line.size());
  fprintf(stderr, "\r\033[K%s", line.c_str());
  fflush(stderr);
}

void Progress::Hide() {
  if (!m_isShown) return;
  fputs("\r\033[K", stderr);
  fflush(stderr);
}

}  // namespace vctk
