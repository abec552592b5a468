#include "Waiting.h"

#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <chrono>
#include <system_error>

namespace vctk {
namespace {

const std::chrono::seconds kUnnoticed(1);

bool g_isTold = false;  // by another; the program waits on one thread only

}  // namespace

Waiting::Waiting(const char* doing) : m_doing(doing) {
  if (g_isTold || isatty(STDERR_FILENO) != 1) return;
  // Signals are for the thread that reads the keyboard.
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    m_thread = std::thread([this] { Tell(); });
    g_isTold = true;
  } catch (const std::system_error&) {
    // The work goes on, told of or not.
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void Waiting::LeaveToProgress() {
  g_isTold = true;
}

void Waiting::Tell() {
  std::unique_lock<std::mutex> lock(m_mutex);
  if (m_ended.wait_for(lock, kUnnoticed, [this] { return m_isOver; })) return;
  fprintf(stderr, "\r\033[K%s; a key, or its driver, takes its time ...", m_doing);
  fflush(stderr);
  m_ended.wait(lock, [this] { return m_isOver; });
  fputs("\r\033[K", stderr);
  fflush(stderr);
}

Waiting::~Waiting() {
  if (!m_thread.joinable()) return;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isOver = true;
  }
  m_ended.notify_all();
  m_thread.join();
  g_isTold = false;
}

}  // namespace vctk
