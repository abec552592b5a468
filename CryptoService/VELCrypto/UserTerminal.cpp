#include "UserTerminal.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

namespace velcrypto {

namespace {

const char kControlling[] = "/dev/tty";

int Open(const char* terminal) {
  return open(terminal, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
}

}  // namespace

std::string UserTerminal() {
  const int file = Open(kControlling);
  if (file < 0) return std::string();
  const bool inFront = tcgetpgrp(file) == getpgrp();
  close(file);
  if (!inFront) return std::string();
  // The real name says more in the program's own messages.
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    char name[256];
    if (tcgetpgrp(stream) == getpgrp() && ttyname_r(stream, name, sizeof(name)) == 0) return name;
  }
  return kControlling;
}

TerminalSettings::TerminalSettings(const std::string& terminal) {
  if (terminal.empty()) return;
  m_file = Open(terminal.c_str());
  if (m_file < 0 || tcgetattr(m_file, &m_settings) == 0) return;
  close(m_file);
  m_file = -1;
}

TerminalSettings::~TerminalSettings() {
  if (m_file >= 0) close(m_file);
}

void TerminalSettings::PutBack() const {
  if (m_file < 0) return;
  // A process that has come into the background meanwhile would be stopped by its own call.
  sigset_t blocked, before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTTOU);
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  tcsetattr(m_file, TCSANOW, &m_settings);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace velcrypto
