#include "Terminal.h"

#include <errno.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <stdexcept>
#include <vector>

Terminal::Terminal(const Invocation& invocation) {
  std::vector<std::string> words = invocation.command;
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(&word[0]);
  arguments.push_back(nullptr);
  m_child = forkpty(&m_file, nullptr, nullptr, nullptr);
  if (m_child < 0) throw std::runtime_error(std::string("forkpty: ") + strerror(errno));
  if (m_child > 0) return;
  // The test program has one thread, so the child may do as it likes.
  for (const char* name : {"HOME", "LC_ALL", "LANG", "VEL_KEYSTORE", "VCTK_KEY_LIST"})
    unsetenv(name);
  for (const auto& [name, value] : invocation.environment) setenv(name.c_str(), value.c_str(), 1);
  if (!invocation.folder.empty() && chdir(invocation.folder.c_str()) != 0) _exit(126);
  execvp(arguments[0], arguments.data());
  _exit(127);
}

Terminal::~Terminal() {
  if (m_child > 0) {
    kill(m_child, SIGKILL);
    waitpid(m_child, nullptr, 0);
  }
  close(m_file);
}

// A pseudo-terminal whose program has ended reads as EIO.
bool Terminal::TakeMore() {
  pollfd polled = {m_file, POLLIN, 0};
  const int ready = poll(&polled, 1, 200000);
  if (ready < 0 && errno == EINTR) return true;
  if (ready == 0) throw std::runtime_error("nothing more is shown; so far: " + m_shown);
  char block[4096];
  const ssize_t count = read(m_file, block, sizeof(block));
  if (count <= 0) return false;
  m_shown.append(block, static_cast<size_t>(count));
  return true;
}

std::string Terminal::WaitFor(const std::string& text) {
  for (;;) {
    const size_t at = m_shown.find(text);
    if (at != std::string::npos) {
      const std::string before = m_shown.substr(0, at + text.size());
      m_shown.erase(0, at + text.size());
      return before;
    }
    if (!TakeMore()) throw std::runtime_error("\"" + text + "\" is not shown but: " + m_shown);
  }
}

void Terminal::Type(const std::string& keys) {
  if (write(m_file, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) {
    throw std::runtime_error("the terminal does not take the keys");
  }
}

bool Terminal::Echoes() const {
  termios settings;
  if (tcgetattr(m_file, &settings) != 0) throw std::runtime_error("tcgetattr fails");
  return (settings.c_lflag & ECHO) != 0;
}

Outcome Terminal::Finish() {
  while (TakeMore()) {
  }
  int status = 0;
  while (waitpid(m_child, &status, 0) < 0 && errno == EINTR) {
  }
  m_child = -1;
  Outcome outcome;
  outcome.out = m_shown;
  outcome.exitCode = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  return outcome;
}
