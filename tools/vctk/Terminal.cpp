#include "Terminal.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include "Failure.h"
#include "Pin.h"

namespace vctk {
namespace {

const int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};
const size_t kSignalCount = sizeof(kSignals) / sizeof(kSignals[0]);

volatile sig_atomic_t g_signal = 0;

void NoteSignal(int number) {
  g_signal = number;
}

void Show(int terminal, const char* text, size_t size) {
  while (size > 0) {
    const ssize_t count = write(terminal, text, size);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    text += count;
    size -= static_cast<size_t>(count);
  }
}

// The controlling terminal without echo while it lives; the signals that would leave it so are
// only noted meanwhile, and the read in progress ends with EINTR.
class QuietTerminal {
 public:
  QuietTerminal() : m_file(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) {
    if (m_file < 0 || tcgetattr(m_file, &m_before) != 0) {
      if (m_file >= 0) close(m_file);
      throw Failure(kPin, "there is no terminal to ask for the PIN",
                    "Give the PIN with --pin-file or on standard input.");
    }
    g_signal = 0;
    struct sigaction note = {};
    note.sa_handler = NoteSignal;
    for (size_t i = 0; i < kSignalCount; ++i) sigaction(kSignals[i], &note, &m_actions[i]);
    termios quiet = m_before;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
    quiet.c_lflag |= ICANON | ISIG;
    tcsetattr(m_file, TCSAFLUSH, &quiet);
  }

  ~QuietTerminal() {
    tcsetattr(m_file, TCSAFLUSH, &m_before);
    for (size_t i = 0; i < kSignalCount; ++i) sigaction(kSignals[i], &m_actions[i], nullptr);
    close(m_file);
  }

  QuietTerminal(const QuietTerminal&) = delete;
  QuietTerminal& operator=(const QuietTerminal&) = delete;

  // True when a line was read, false when a signal came first.
  bool Ask(const std::string& prompt, Pin& pin) {
    Show(m_file, prompt.data(), prompt.size());
    const bool complete = ReadLine(pin);
    Show(m_file, "\n", 1);
    return complete;
  }

 private:
  bool ReadLine(Pin& pin) {
    while (g_signal == 0) {
      char c = '\0';
      const ssize_t count = read(m_file, &c, 1);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0 || c == '\n') return true;
      const bool taken = pin.Append(c);
      explicit_bzero(&c, 1);
      if (!taken) throw Failure(kPin, "the PIN is too long");
    }
    return false;
  }

  int m_file;
  termios m_before = {};
  struct sigaction m_actions[kSignalCount] = {};
};

}  // namespace

void AskTerminal(const std::string& prompt, Pin& pin) {
  for (;;) {
    bool complete = false;
    {
      QuietTerminal terminal;
      complete = terminal.Ask(prompt, pin);
    }
    if (complete) return;
    // The usual action of the signal; after a stop the program comes back here and asks again.
    pin.Clear();
    raise(g_signal);
  }
}

KeyboardSignals::KeyboardSignals() {
  g_signal = 0;
  struct sigaction note = {};
  note.sa_handler = NoteSignal;
  sigaction(SIGINT, &note, &m_interrupt);
  sigaction(SIGQUIT, &note, &m_quit);
}

KeyboardSignals::~KeyboardSignals() {
  sigaction(SIGINT, &m_interrupt, nullptr);
  sigaction(SIGQUIT, &m_quit, nullptr);
  if (g_signal != 0) raise(g_signal);
}

std::string Printable(const std::string& text) {
  std::string result;
  for (size_t i = 0; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    // U+0080 to U+009F, terminal commands too, are C2 80 to C2 9F in UTF-8.
    const bool second =
        c == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0;
    if (c < 0x20 || c == 0x7F || second) {
      result += '?';
      if (second) ++i;
    } else {
      result += text[i];
    }
  }
  return result;
}

}  // namespace vctk
