// The device library's record of calls, passed through.
#include "DeviceErrorCodes.h"
#include "OutputBuffer.h"
#include "vctk.h"
#include "VELClientTKImp.h"

BOOL CVELClientTKImp::CallQueueEnable(BOOL bCallQueueEnable, BOOL bHeadInfoEnable) {
  if (!m_soCallQueue) return Succeed(kErrorInvalidHandle);
  return Succeed(m_soCallQueue->Enable(bCallQueueEnable, bHeadInfoEnable));
}

BOOL CVELClientTKImp::CallQueueClear() {
  if (!m_soCallQueue) return Succeed(kErrorInvalidHandle);
  return Succeed(m_soCallQueue->Clear());
}

BOOL CVELClientTKImp::CallQueueGet(LPSTR pResult, INT* pResultLen) {
  if (!m_soCallQueue) return Succeed(kErrorInvalidHandle);
  if (pResultLen == nullptr) return Succeed(VCTK_ERROR_INVALID_PARAMETER);
  const CStringA text(m_soCallQueue->Get());
  if (text.IsEmpty()) return Succeed(kErrorNoDataYet);
  // 0xE0000004, the device library's code, where the other operations give 4: kept for hosts.
  return Succeed(CopyOutZeroFilled(text, pResult, pResultLen, kErrorBufferTooSmall));
}
