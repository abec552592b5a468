#pragma once
// The process's call record as an object.
#include <string>

#include "Object.h"
#include "VELUsbKeyDll.h"

namespace velcrypto {

class CallQueue : public Object<IVELCallQueue> {
 public:
  ULONG Enable(BOOL bCallQueueEnable, BOOL bHeadInfoEnable) override;
  ULONG Clear() override;
  LPCSTR Get() override;

 private:
  std::string m_text;
};

}  // namespace velcrypto
