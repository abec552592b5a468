#pragma once
// Tells on the terminal that something goes on when it takes longer than a second, and takes that
// back when it is over. Nothing is written to what is no terminal. Not around what may ask the user
// something. One inside another says nothing more.
//
// A progress bar tells as much: none is told of from the first one on.
#include <condition_variable>
#include <mutex>
#include <thread>

namespace vctk {

class Waiting {
 public:
  explicit Waiting(const char* doing);  // "Looking for keys"
  ~Waiting();
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;

  static void LeaveToProgress();

 private:
  void Tell();

  const char* const m_doing;
  std::mutex m_mutex;
  std::condition_variable m_ended;
  bool m_isOver = false;
  std::thread m_thread;
};

}  // namespace vctk
