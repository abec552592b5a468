#include "PipeWorkers.h"

#include <sys/socket.h>
#include <unistd.h>

namespace {
thread_local const PipeWorkers* t_workers = nullptr;
}

void PipeWorkers::Enlist() {
  const std::lock_guard<std::mutex> hold(m_lock);
  ++m_running;
}

void PipeWorkers::Retire() {
  const std::lock_guard<std::mutex> hold(m_lock);
  --m_running;
  m_changed.notify_all();
}

bool PipeWorkers::IsOwnThread() const {
  return t_workers == this;
}

void PipeWorkers::AwaitEnd() {
  std::unique_lock<std::mutex> hold(m_lock);
  if (!IsOwnThread()) {
    m_changed.wait(hold, [this] { return m_running == 0; });
    return;
  }
  ++m_waitingInside;
  m_changed.notify_all();
  m_changed.wait(hold, [this] { return m_running == m_waitingInside; });
  --m_waitingInside;
}

unsigned long PipeWorkers::Open(SOCKET opened) {
  const std::lock_guard<std::mutex> hold(m_lock);
  m_socket = opened;
  return ++m_connection;
}

void PipeWorkers::ShutDown(unsigned long wanted) {
  const std::lock_guard<std::mutex> hold(m_lock);
  if (Means(wanted)) shutdown(m_socket, SHUT_RDWR);
}

bool PipeWorkers::Close(unsigned long wanted) {
  const std::lock_guard<std::mutex> hold(m_lock);
  if (!Means(wanted)) return false;
  close(m_socket);
  m_socket = -1;
  return true;
}

SOCKET PipeWorkers::SocketOf(unsigned long wanted) {
  const std::lock_guard<std::mutex> hold(m_lock);
  return Means(wanted) ? m_socket : -1;
}

void PipeWorkers::Abandon() {
  const std::lock_guard<std::mutex> hold(m_lock);
  m_abandoned = true;
}

bool PipeWorkers::Abandoned() {
  const std::lock_guard<std::mutex> hold(m_lock);
  return m_abandoned;
}

PipeWorkers::Attend::Attend(PipeWorkers& workers) : m_workers(workers) {
  t_workers = &workers;
}

PipeWorkers::Attend::~Attend() {
  t_workers = nullptr;
  m_workers.Retire();
}
