#include "VELClientTKImp.h"

#include <string.h>

#include "OutputBuffer.h"
#include "PinText.h"
#include "PublicFun.h"
#include "ToolkitLog.h"
#include "vctk.h"
#include "VelUsbKeyErrorMessage.h"

CVELClientTKImp::CVELClientTKImp()
    : m_LastError(0),
      m_hParent(nullptr),
      m_pVelUsbKey(nullptr),
      m_bChooseSingleCert(FALSE),
      m_bSetDigestAlg(FALSE),
      m_strDigestHash(L"SHA1"),
      m_bForcePinDialog(FALSE),
      RetryTimes(0) {}

CVELClientTKImp::~CVELClientTKImp() {
  WipeText(m_szUserPinCode);
}

BOOL CVELClientTKImp::Finalize() {
  // The call queue lives in the device library, so it goes before the library is closed.
  m_soCallQueue = nullptr;
  delete m_pVelUsbKey;
  m_pVelUsbKey = nullptr;
  return TRUE;
}

HMODULE CVELClientTKImp::ModuleFromAddress(PVOID) {
  return nullptr;
}

CString CVELClientTKImp::GetUnicodeStringEx(LPCSTR lpszValue) {
  CString text;
  CPublicFun::UTF8ToUnicode(lpszValue, text);
  return text;
}

CStringA CVELClientTKImp::GetUTF8StringEx(const CString& strValue) {
  CStringA text;
  CPublicFun::UnicodeToUTF8(strValue, text);
  return text;
}

// Differs from the other Get operations in ways that hosts know: it logs on entry, reports
// m_LastError instead of clearing it, has no code for a null pResultLen, and writes no terminator.
BOOL CVELClientTKImp::GetLastErrorMessage(LPSTR pResult, INT* pResultLen) {
  VCTK_LOG_ERROR(L"VELClientTKImp", L"GetLastErrorMessage", L"获取错误信息描述");
  __atomic_store_n(&CVELErrorMessage::retrytimes, RetryTimes, __ATOMIC_RELAXED);
  CString message;
  CVELErrorMessage::GetErrorcodeMessage(m_LastError, message);
  if (pResultLen == nullptr) return FALSE;
  if (message.IsEmpty()) {
    *pResultLen = 0;
    return FALSE;
  }
  const CStringA text = GetUTF8StringEx(message);
  const int length = text.GetLength();
  DWORD code;
  if (SettleWithoutCopy(length, pResult, pResultLen, VCTK_ERROR_OUT_BUFFER_SIZE_NOT_ENOUGH, code)) {
    if (code != VCTK_OK) m_LastError = code;
    return code == VCTK_OK;
  }
  memcpy(pResult, static_cast<const char*>(text), static_cast<size_t>(length));
  *pResultLen = length;
  return TRUE;
}

bool CVELClientTKImp::Succeed(DWORD code) {
  m_LastError = code;
  return code == 0;
}

BOOL CVELClientTKImp::CopyStoredText(const CString& text, DWORD emptyCode, LPSTR pResult,
                                     INT* pResultLen) {
  if (pResultLen == nullptr) return Succeed(VCTK_ERROR_INVALID_PARAMETER);
  if (text.IsEmpty()) return Succeed(emptyCode);
  return Succeed(CopyOut(GetUTF8StringEx(text), pResult, pResultLen));
}
