/* Compiled alone, as C and as C++: vctk.h needs nothing before it, may be included twice, and every
 * function has the type that hosts were built with. */
#include "vctk.h"

typedef struct {
  HANDLE (*initialize)(const char*);
  void (*window)(HANDLE, HWND);
  int (*plain[4])(HANDLE);
  int (*result[10])(HANDLE, char*, int*);
  int (*flag[2])(HANDLE, int);
  int (*two_flags)(HANDLE, int, int);
  int (*text[3])(HANDLE, const char*);
  int (*filter)(HANDLE, unsigned long, const char*);
  int (*p1_sign)(HANDLE, const char*, int);
  int (*p1_in_p7)(HANDLE, const char*, int, int);
  int (*p7_sign[2])(HANDLE, const char*, int, int, int);
  int (*p1_sign_with_pin)(HANDLE, const char*, const char*, const char*, int);
  int (*list)(HANDLE, const char*, const char*, char*, int*);
  int (*exists)(HANDLE, const char*, int*);
  int (*change_pin)(HANDLE, const char*, int, const char*, const char*);
} Functions;

extern const Functions functions;
const Functions functions = {
    VCTK_Initialize,
    VCTK_SetParentWindow,
    {VCTK_Finalize, VCTK_GetLastError, VCTK_ClearFilter, VCTK_CallQueueClear},
    {VCTK_GetLastErrorMessage, VCTK_GetDigestAlg, VCTK_GetP1SignResult, VCTK_GetP7SignResult,
     VCTK_GetP7SignFromP1Result, VCTK_GetSignVersion, VCTK_GetSignCert, VCTK_GetSignCertType,
     VCTK_CallQueueGet, VCTK_GetP1SignResultWithPin},
    {VCTK_SetChooseSingleCert, VCTK_SetForcePinDialog},
    VCTK_CallQueueEnable,
    {VCTK_SetDigestAlg, VCTK_SetCert, VCTK_SetPinCode},
    VCTK_AddFilter,
    VCTK_P1Sign,
    VCTK_P7SignFromP1,
    {VCTK_P7Sign, VCTK_P7SignStrEx},
    VCTK_P1SignWithPin,
    VCTK_GetCertList,
    VCTK_CheckCertIsExist,
    VCTK_ChangePinCode,
};

#define NUMBERED(name, value) typedef char name##_is_##value[(name) == (value) ? 1 : -1]
NUMBERED(VCTK_OK, 0);
NUMBERED(VCTK_ERROR_LOAD_USB_KEY_DLL_FAILED, 1);
NUMBERED(VCTK_ERROR_SET_SUPPORT_KEY_FAILED, 2);
NUMBERED(VCTK_ERROR_CERTUI_INSTANCE_NOT_INIT, 3);
NUMBERED(VCTK_ERROR_OUT_BUFFER_SIZE_NOT_ENOUGH, 4);
NUMBERED(VCTK_ERROR_GET_SIGN_CERT_FAILED, 5);
NUMBERED(VCTK_ERROR_GET_LAST_ERROR_MSG_FAILED, 6);
NUMBERED(VCTK_ERROR_GET_SIGN_CERT_TYPE_FAILED, 7);
NUMBERED(VCTK_ERROR_GET_SIGN_HASH_FAILED, 8);
NUMBERED(VCTK_ERROR_P1SIGN_RESULT_INVALID, 9);
NUMBERED(VCTK_ERROR_P7SIGN_RESULT_INVALID, 10);
NUMBERED(VCTK_ERROR_INVALID_PARAMETER, 11);
