#include "CallQueue.h"

namespace velcrypto {

ULONG CallQueue::Enable(BOOL bCallQueueEnable, BOOL bHeadInfoEnable) {
  return Contained([&]() -> Outcome {
           Process::Current().calls.Enable(bCallQueueEnable != FALSE, bHeadInfoEnable != FALSE);
           return kOk;
         })
      .code;
}

ULONG CallQueue::Clear() {
  return Contained([]() -> Outcome {
           Process::Current().calls.Clear();
           return kOk;
         })
      .code;
}

LPCSTR CallQueue::Get() {
  const Outcome outcome = Contained([&]() -> Outcome {
    m_text = Process::Current().calls.Text();
    return kOk;
  });
  return outcome.ok() ? m_text.c_str() : "";
}

}  // namespace velcrypto
