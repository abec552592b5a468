#include "Watch.h"

#include <signal.h>

#include <system_error>
#include <thread>
#include <utility>

#include "../Object.h"

namespace velcrypto {

thread_local Watch::Task* Watch::t_task = nullptr;

namespace {

// The host's signal handlers are not to run on a thread that it knows nothing of.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &m_before);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t m_before;
};

}  // namespace

void Watch::CallBegins() {
  if (t_task == nullptr) return;
  const std::lock_guard<std::mutex> lock(t_task->mutex);
  t_task->lastCall = Clock::now();
}

bool Watch::WaitFor(Task& task, Clock::duration patience) {
  std::unique_lock<std::mutex> lock(task.mutex);
  while (!task.done) {
    const Clock::time_point deadline = task.lastCall + patience;
    if (Clock::now() >= deadline) return false;
    task.ended.wait_until(lock, deadline);
  }
  return true;
}

bool Watch::IsStuck() const {
  std::shared_ptr<Task> task;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    task = m_current;
  }
  if (task == nullptr) return false;
  const std::lock_guard<std::mutex> lock(task->mutex);
  return !task->done && Clock::now() >= task->lastCall + m_patience;
}

std::shared_ptr<Watch::Task> Watch::TakeTurn() {
  const auto task = std::make_shared<Task>();
  for (;;) {
    std::shared_ptr<Task> before;
    {
      const std::lock_guard<std::mutex> lock(m_mutex);
      before = m_current;
      if (before == nullptr) {
        task->lastCall = Clock::now();
        m_current = task;
        return task;
      }
    }
    if (!WaitFor(*before, m_patience)) return nullptr;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_current == before) m_current.reset();
  }
}

Outcome Watch::Run(std::function<Outcome()> work) {
  const Outcome stuck = {kTimeout, 0, "the module does not answer"};
  const std::shared_ptr<Task> task = TakeTurn();
  if (task == nullptr) return stuck;
  const auto run = [task, work = std::move(work)] {
    t_task = task.get();
    Outcome outcome = Contained(work);
    t_task = nullptr;
    const std::lock_guard<std::mutex> lock(task->mutex);
    task->outcome = std::move(outcome);
    task->done = true;
    task->ended.notify_all();
  };
  std::thread worker;
  try {
    const SignalsBlocked blocked;
    worker = std::thread(run);
  } catch (const std::system_error&) {
    run();  // no thread to be had
  }
  const bool done = WaitFor(*task, m_patience);
  // Only one that hangs is left to itself: what a thread leaves behind goes when it is joined.
  if (worker.joinable()) done ? worker.join() : worker.detach();
  if (!done) return stuck;
  const std::lock_guard<std::mutex> lock(task->mutex);
  return task->outcome;
}

}  // namespace velcrypto
