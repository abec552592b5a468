#pragma once
// Work that may hang in a module, done by a thread of its own. The caller waits as long as one
// call after the other comes back, however slowly, and gives up when one does not.
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

#include "../Outcome.h"

namespace velcrypto {

class Watch {
 public:
  using Clock = std::chrono::steady_clock;

  explicit Watch(Clock::duration patience) : m_patience(patience) {}

  // Runs `work` when the work before it has ended. kTimeout when a call in it, or in the work
  // before, does not come back in time; `work` then goes on alone, so it must own what it uses.
  Outcome Run(std::function<Outcome()> work);

  // Whether work hangs now.
  bool IsStuck() const;

  // Called by the module's frame when a call begins.
  static void CallBegins();

 private:
  struct Task {
    std::mutex mutex;
    std::condition_variable ended;
    bool done = false;
    Clock::time_point lastCall = Clock::now();
    Outcome outcome;
  };

  std::shared_ptr<Task> TakeTurn();  // null when the work before hangs
  static bool WaitFor(Task& task, Clock::duration patience);

  static thread_local Task* t_task;

  const Clock::duration m_patience;
  mutable std::mutex m_mutex;
  std::shared_ptr<Task> m_current;
};

}  // namespace velcrypto
