#pragma once
#include <pthread.h>

// A plain mutex: a thread must not enter twice.
class CVELCritical {
 public:
  CVELCritical() { pthread_mutex_init(&m_csMain, nullptr); }
  CVELCritical(const CVELCritical&) = delete;
  CVELCritical& operator=(const CVELCritical&) = delete;
  virtual ~CVELCritical() { pthread_mutex_destroy(&m_csMain); }

  void EnterVELCritical() { pthread_mutex_lock(&m_csMain); }
  void LeaveVELCritical() { pthread_mutex_unlock(&m_csMain); }

  pthread_mutex_t m_csMain;
};

// Enters for the length of a block.
class CVELCriticalGuard {
 public:
  explicit CVELCriticalGuard(CVELCritical& critical) : m_critical(critical) {
    m_critical.EnterVELCritical();
  }
  CVELCriticalGuard(const CVELCriticalGuard&) = delete;
  CVELCriticalGuard& operator=(const CVELCriticalGuard&) = delete;
  ~CVELCriticalGuard() { m_critical.LeaveVELCritical(); }

 private:
  CVELCritical& m_critical;
};
