#pragma once
// Reference counting for the objects that the library hands out, and the frame of their
// operations: no exception leaves the library.
#include <atomic>
#include <new>

#include "Backends.h"
#include "OpenSsl.h"
#include "Process.h"
#include "SmartObject.h"

namespace velcrypto {

// An implementation of Interface; made by `new` with the count 0, destroyed by the last Release.
// When the last object of the process goes, all logins end.
template <typename Interface>
class Object : public Interface {
 public:
  Object() : m_process(Process::Current()) { ++m_process.objects; }
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  virtual ~Object() {
    // An object that the parent made does not count in a forked child.
    if (--m_process.objects == 0 && &m_process == &Process::Current()) CloseBackends();
  }

  void Destroy() override { delete this; }
  unsigned long AddRef() override { return ++m_references; }
  unsigned long Release() override {
    const unsigned long left = --m_references;
    if (left == 0) Destroy();
    return left;
  }

 private:
  Process& m_process;
  std::atomic<unsigned long> m_references{0};
};

// The native code of the calling thread's last failed operation.
unsigned long& LastNativeCode();

// Runs `work`, which returns an Outcome; whatever goes wrong in it becomes one.
template <typename Work>
Outcome Contained(Work&& work) noexcept {
  Outcome outcome;
  try {
    const OpenSslScope scope;
    outcome = work();
  } catch (const std::bad_alloc&) {
    outcome.code = kOutOfMemory;
  } catch (...) {
    outcome.code = kFailed;
  }
  if (!outcome.ok()) LastNativeCode() = outcome.native;
  return outcome;
}

// Contained, and a line of the call record when it is on.
template <typename Work>
ULONG Recorded(const char* operation, Work&& work) noexcept {
  CallTimer timer(operation);
  const Outcome outcome = Contained([&] { return work(timer.device); });
  timer.Finish(outcome);
  return outcome.code;
}

}  // namespace velcrypto
