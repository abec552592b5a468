#include "Watch.h"

#include <signal.h>

#include <system_error>
#include <utility>

#include "../Object.h"

namespace velcrypto {

thread_local Watch::Desk* Watch::t_desk = nullptr;

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

// A sleeping thread takes longer to wake than a small listing takes, and waking it costs about the
// processor time that waiting awake costs. So both sides stay awake for a while, unless the work is
// so long that the wake does not matter.
const std::chrono::microseconds kAwake(100);

// Whether it holds before it is time to sleep. Whoever else has work for the processor gets it.
template <typename Condition>
bool HoldsSoon(Condition&& condition) {
  const auto end = Watch::Clock::now() + kAwake;
  while (!condition()) {
    if (Watch::Clock::now() >= end) return false;
    std::this_thread::yield();
  }
  return true;
}

}  // namespace

void Watch::CallBegins() {
  if (t_desk != nullptr) t_desk->lastCall = Clock::now();
}

bool Watch::IsStuck() const {
  const Lock lock(m_desk->mutex);
  return m_desk->current != nullptr && IsLate();
}

template <typename Condition>
bool Watch::WaitFor(Lock& lock, Condition&& condition) {
  while (!condition()) {
    if (IsLate()) return false;
    m_desk->ended.wait_until(lock, m_desk->lastCall.load() + m_patience);
  }
  return true;
}

// The work gives back what it holds before anybody hears of its end.
void Watch::Do(Desk& desk, Task& task, Lock& lock) {
  lock.unlock();
  t_desk = &desk;
  const auto start = Clock::now();
  Outcome outcome = Contained(task.work);
  const bool quick = Clock::now() - start < kAwake;
  t_desk = nullptr;
  task.work = nullptr;
  lock.lock();
  desk.quick = quick;
  task.outcome = std::move(outcome);
  desk.current.reset();
  task.done = true;
  desk.ended.notify_all();
}

void Watch::Serve(const std::shared_ptr<Desk>& desk, unsigned number) {
  Lock lock(desk->mutex);
  const auto called = [&] { return desk->server != number || desk->current != nullptr; };
  for (;;) {
    if (desk->quick && !called()) {
      const unsigned calls = desk->calls;
      lock.unlock();
      HoldsSoon([&] { return desk->calls != calls; });
      lock.lock();
    }
    desk->given.wait(lock, called);
    if (desk->server != number) return;
    const std::shared_ptr<Task> task = desk->current;
    Do(*desk, *task, lock);
  }
}

bool Watch::StartThread(const std::shared_ptr<Desk>& desk) {
  if (desk->thread.joinable()) return true;
  const SignalsBlocked blocked;
  try {
    desk->thread = std::thread(Serve, desk, ++desk->server);
    return true;
  } catch (const std::system_error&) {
    return false;  // no thread to be had
  }
}

// After the lock was given back, so that the thread does not run into it.
void Watch::CallThread() {
  ++m_desk->calls;
  m_desk->given.notify_all();
}

Outcome Watch::Run(std::function<Outcome()> work) {
  const Outcome stuck = {kTimeout, 0, "the module does not answer"};
  const auto task = std::make_shared<Task>();
  task->work = std::move(work);
  Lock lock(m_desk->mutex);
  if (!WaitFor(lock, [&] { return m_desk->current == nullptr; })) return stuck;
  m_desk->current = task;
  m_desk->lastCall = Clock::now();
  if (!StartThread(m_desk)) Do(*m_desk, *task, lock);
  const bool quick = m_desk->quick;
  lock.unlock();
  CallThread();
  if (quick && HoldsSoon([&] { return task->done.load(); })) return task->outcome;
  lock.lock();
  if (!WaitFor(lock, [&] { return task->done.load(); })) return stuck;
  return task->outcome;
}

// What a thread leaves behind goes when it is joined.
void Watch::Rest() {
  std::thread thread;
  {
    const Lock lock(m_desk->mutex);
    if (m_desk->current != nullptr) return;
    ++m_desk->server;
    thread.swap(m_desk->thread);
  }
  CallThread();
  if (thread.joinable()) thread.join();
}

Watch::~Watch() {
  Rest();
  const Lock lock(m_desk->mutex);
  ++m_desk->server;
  if (m_desk->thread.joinable()) m_desk->thread.detach();
}

}  // namespace velcrypto
