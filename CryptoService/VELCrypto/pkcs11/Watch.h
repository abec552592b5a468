#pragma once
// Work that may hang in a module, done by a thread of its own. The caller waits as long as one
// call after the other comes back, however slowly, and gives up when one does not.
//
// The thread starts with the first work and stays for the next, for starting one takes longer than
// a listing of few certificates. After work of less than 0.1 ms it stays awake for as long, and so
// does the caller of the next work: waking takes nearly as long as such work.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "../Outcome.h"

namespace velcrypto {

class Watch {
 public:
  using Clock = std::chrono::steady_clock;

  explicit Watch(Clock::duration patience) : m_patience(patience) {}
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  // Runs `work` when the work before it has ended. kTimeout when a call in it, or in the work
  // before, does not come back in time; `work` then goes on alone, so it must own what it uses.
  Outcome Run(std::function<Outcome()> work);

  // Whether work hangs now.
  bool IsStuck() const;

  // Ends the thread, unless it is at work.
  void Rest();

  // Called by the module's frame when a call begins.
  static void CallBegins();

 private:
  struct Task {
    std::function<Outcome()> work;
    Outcome outcome;
    std::atomic<bool> done{false};  // set under the desk's mutex, when the outcome is there
  };
  // What callers and the thread share. The thread may outlive the watch.
  struct Desk {
    std::mutex mutex;  // guards all but the atomic ones
    std::condition_variable given, ended;
    std::shared_ptr<Task> current;
    std::thread thread;
    unsigned server = 0;             // the number of the thread that is to work; others leave
    bool quick = false;              // so was the last work
    std::atomic<unsigned> calls{0};  // for the thread to look at the desk
    std::atomic<Clock::time_point> lastCall{Clock::time_point()};
  };
  using Lock = std::unique_lock<std::mutex>;

  static bool StartThread(const std::shared_ptr<Desk>& desk);
  static void Serve(const std::shared_ptr<Desk>& desk, unsigned number);
  static void Do(Desk& desk, Task& task, Lock& lock);
  bool IsLate() const { return Clock::now() >= m_desk->lastCall.load() + m_patience; }
  void CallThread();
  template <typename Condition>
  bool WaitFor(Lock& lock, Condition&& condition);

  static thread_local Desk* t_desk;

  const Clock::duration m_patience;
  const std::shared_ptr<Desk> m_desk = std::make_shared<Desk>();
};

}  // namespace velcrypto
