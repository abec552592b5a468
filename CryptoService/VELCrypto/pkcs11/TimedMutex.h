#pragma once
// A mutex that is waited for a while at most. Not std::timed_mutex: the thread sanitizer of g++ 12
// does not know the call by which that one takes the lock, and takes the unlocking for a fault.
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace velcrypto {

class TimedMutex {
 public:
  void lock() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_freed.wait(lock, [this] { return !m_taken; });
    m_taken = true;
  }

  // False when it was not free in time.
  bool try_lock_for(std::chrono::steady_clock::duration patience) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_freed.wait_for(lock, patience, [this] { return !m_taken; })) return false;
    m_taken = true;
    return true;
  }

  void unlock() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_taken = false;
    m_freed.notify_one();
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_freed;
  bool m_taken = false;
};

}  // namespace velcrypto
