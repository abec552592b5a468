// The exported functions: each forwards to the toolkit object behind the handle.
#include <exception>
#include <new>

#include "DeviceErrorCodes.h"
#include "ToolkitLog.h"
#include "vctk.h"
#include "VELClientTKImp.h"

namespace {

const int kNullHandle = -1;
const int kNullHandleOfPinSigning = static_cast<int>(kErrorInvalidParameter);

CVELClientTKImp* ObjectOf(HANDLE handle) {
  return static_cast<CVELClientTKImp*>(handle);
}

// Hosts are written in C and other languages that no exception may enter: exhausted memory and what
// a device library throws against its contract become codes.
template <typename Call>
int Guard(HANDLE handle, Call call) {
  CVELClientTKImp& object = *ObjectOf(handle);
  try {
    return call(object);
  } catch (const std::bad_alloc&) {
    object.m_LastError = kErrorNoMemory;
  } catch (const std::exception&) {
    object.m_LastError = kErrorGeneral;
  }
  return static_cast<int>(object.m_LastError);
}

// Calls a method that returns TRUE or FALSE; FALSE becomes the code that it stored.
template <typename Method, typename... Args>
int Forward(int nullCode, HANDLE handle, Method method, Args... args) {
  if (handle == nullptr) return nullCode;
  return Guard(handle, [&](CVELClientTKImp& object) {
    return (object.*method)(args...) ? VCTK_OK : static_cast<int>(object.GetLastError());
  });
}

// Calls a method whose own number is the result.
template <typename Method, typename... Args>
int ForwardDirect(HANDLE handle, Method method, Args... args) {
  if (handle == nullptr) return kNullHandle;
  return Guard(
      handle, [&](CVELClientTKImp& object) { return static_cast<int>((object.*method)(args...)); });
}

void LogMessageCall(const wchar_t* format, int code) {
  VCTK_LOG_ERROR(L"DllExport", L"VCTK_GetLastErrorMessage", format, code);
}

}  // namespace

HANDLE VCTK_Initialize(const char* lpszSupportKeyXML) {
  const HANDLE handle = new CVELClientTKImp;
  if (Forward(kNullHandle, handle, &CVELClientTKImp::Initialize, lpszSupportKeyXML) == VCTK_OK) {
    return handle;
  }
  VCTK_Finalize(handle);
  return nullptr;
}

void VCTK_SetParentWindow(HANDLE handle, HWND hParaent) {
  if (handle != nullptr) ObjectOf(handle)->SetParentWindow(hParaent);
}

int VCTK_Finalize(HANDLE handle) {
  if (handle == nullptr) return kNullHandle;
  CVELClientTKImp* const object = ObjectOf(handle);
  object->Finalize();
  delete object;
  return VCTK_OK;
}

int VCTK_GetLastError(HANDLE handle) {
  return handle == nullptr ? kNullHandle : static_cast<int>(ObjectOf(handle)->GetLastError());
}

// Success is logged at the error level, too: support reads these lines with the level at 3.
int VCTK_GetLastErrorMessage(HANDLE handle, char* pResult, int* pResultLen) {
  if (handle == nullptr) {
    LogMessageCall(L"VCTK_GetLastErrorMessage [%d]", kNullHandle);
    return kNullHandle;
  }
  CVELClientTKImp* const object = ObjectOf(handle);
  if (object->GetLastErrorMessage(pResult, pResultLen)) {
    LogMessageCall(L"VCTK_GetLastErrorMessage [%d]", VCTK_OK);
    return VCTK_OK;
  }
  LogMessageCall(L"错误码[0x%x]", static_cast<int>(object->GetLastError()));
  return static_cast<int>(object->GetLastError());
}

int VCTK_SetDigestAlg(HANDLE handle, const char* lpszDigestAlg) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::SetDigestAlg, lpszDigestAlg);
}

int VCTK_GetDigestAlg(HANDLE handle, char* pResult, int* pResultLen) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::GetSignHash, pResult, pResultLen);
}

int VCTK_SetChooseSingleCert(HANDLE handle, int isChooseSingleCert) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::SetChooseSingleCert, isChooseSingleCert);
}

int VCTK_AddFilter(HANDLE handle, unsigned long ulType, const char* lpszValue) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::AddFilter, ulType, lpszValue);
}

int VCTK_ClearFilter(HANDLE handle) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::ClearFilter);
}

int VCTK_P1Sign(HANDLE handle, const char* lpszValue, int isBase64) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::P1Sign, lpszValue, isBase64);
}

int VCTK_GetP1SignResult(HANDLE handle, char* pResult, int* pResultLen) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::GetP1SignResult, pResult, pResultLen);
}

int VCTK_P7Sign(HANDLE handle, const char* lpszValue, int isBase64, int isDetach,
                int isIncludeCert) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::P7Sign, lpszValue, isBase64, isDetach,
                 isIncludeCert);
}

int VCTK_GetP7SignResult(HANDLE handle, char* pResult, int* pResultLen) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::GetP7SignResult, pResult, pResultLen);
}

int VCTK_P7SignFromP1(HANDLE handle, const char* lpszValue, int isBase64, int isDetach) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::P7SignFromP1, lpszValue, isBase64,
                 isDetach);
}

int VCTK_GetP7SignFromP1Result(HANDLE handle, char* pResult, int* pResultLen) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::GetP7SignFromP1Result, pResult, pResultLen);
}

int VCTK_GetSignVersion(HANDLE handle, char* pResult, int* pResultLen) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::GetSignVersion, pResult, pResultLen);
}

int VCTK_GetSignCert(HANDLE handle, char* pResult, int* pResultLen) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::GetSignCert, pResult, pResultLen);
}

int VCTK_GetSignCertType(HANDLE handle, char* pResult, int* pResultLen) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::GetSignCertType, pResult, pResultLen);
}

int VCTK_CallQueueEnable(HANDLE handle, int isCallQueueEnable, int isHeadInfoEnable) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::CallQueueEnable, isCallQueueEnable,
                 isHeadInfoEnable);
}

int VCTK_CallQueueClear(HANDLE handle) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::CallQueueClear);
}

int VCTK_CallQueueGet(HANDLE handle, char* pResult, int* pResultLen) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::CallQueueGet, pResult, pResultLen);
}

int VCTK_GetCertList(HANDLE handle, const char* pSeparatorCert, const char* pSeparatorCertItem,
                     char* pResult, int* pResultLen) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::GetCertList, pSeparatorCert,
                 pSeparatorCertItem, pResult, pResultLen);
}

int VCTK_CheckCertIsExist(HANDLE handle, const char* pCertSN, int* isExist) {
  return Forward(
      kNullHandle, handle,
      static_cast<BOOL (CVELClientTKImp::*)(LPCSTR, BOOL*)>(&CVELClientTKImp::CheckCertIsExist),
      pCertSN, isExist);
}

int VCTK_ChangePinCode(HANDLE handle, const char* lpcCertSn, int pinCodeType,
                       const char* lpcCurrentPin, const char* lpcNewPin) {
  return ForwardDirect(handle, &CVELClientTKImp::ChangePinCode, lpcCertSn, pinCodeType,
                       lpcCurrentPin, lpcNewPin);
}

int VCTK_SetCert(HANDLE handle, const char* lpcCertSn) {
  return ForwardDirect(handle, &CVELClientTKImp::SetCert, lpcCertSn);
}

int VCTK_SetPinCode(HANDLE handle, const char* pincode) {
  return ForwardDirect(handle, &CVELClientTKImp::SetPinCode, pincode);
}

int VCTK_P7SignStrEx(HANDLE handle, const char* lpszValue, int isBase64, int isDetach,
                     int isIncludeCert) {
  return Forward(kNullHandle, handle, &CVELClientTKImp::P7SignForManager, lpszValue, isBase64,
                 isDetach, isIncludeCert);
}

int VCTK_P1SignWithPin(HANDLE handle, const char* lpszSN, const char* lpszPIN, const char* lpszOrg,
                       int isBase64) {
  return Forward(kNullHandleOfPinSigning, handle, &CVELClientTKImp::P1SignWithPin, lpszSN, lpszPIN,
                 lpszOrg, isBase64);
}

int VCTK_GetP1SignResultWithPin(HANDLE handle, char* pResult, int* pResultLen) {
  return Forward(kNullHandleOfPinSigning, handle, &CVELClientTKImp::GetP1SignResultWithPin, pResult,
                 pResultLen);
}

int VCTK_SetForcePinDialog(HANDLE handle, int bForcePinDialog) {
  if (handle == nullptr) return kNullHandle;
  ObjectOf(handle)->SetForcePinDialog(bForcePinDialog);
  return VCTK_OK;
}
