#ifndef VCTK_H
#define VCTK_H
/* Client-side signing toolkit: certificates on crypto devices, PKCS#1 and PKCS#7 signatures.
 *
 * Rules for all functions
 *   handles   VCTK_Initialize gives a handle, VCTK_Finalize ends it. A null handle gives -1
 *             (0xE0000003 for VCTK_P1SignWithPin and VCTK_GetP1SignResultWithPin); any other value
 *             that is not a live handle is undefined.
 *   text      narrow, NUL-terminated UTF-8. Text beyond ASCII is counted by the locale of the
 *             process, so that must be a UTF-8 one: call setlocale(LC_ALL, "") in a UTF-8
 *             environment first. In another locale such text counts as empty.
 *   results   0 is success, 1 to 11 are the codes below, -536870911 (0xE0000001) and the like are
 *             codes of the device library; VCTK_GetLastErrorMessage has their Chinese texts.
 *             0xE0000005 also stands for exhausted memory. No exception comes out, but of
 *             VCTK_Initialize when there is no memory for the handle.
 *   buffers   (char* pResult, int* pResultLen): with pResult null, *pResultLen becomes the bytes
 *             needed, terminator included, and the result is 0. Otherwise *pResultLen says how many
 *             bytes lie at pResult; too few give 4, the needed number in *pResultLen and an
 *             untouched buffer, and on success *pResultLen becomes the length of the text without
 *             its terminator. A null pResultLen gives 11. Exceptions are told at the functions.
 *   memory    everything belongs to the library or to the caller's buffers; nothing is to be freed.
 *   threads   one thread at a time for one handle; different handles are independent.
 *   process   with its first log line the library sets SIGPIPE to be ignored, seeds the standard
 *             random generator and calls setlocale(LC_ALL, "").
 */

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define VCTK_API __attribute__((visibility("default")))
#else
#define VCTK_API
#endif

typedef void* HANDLE;
typedef void* HWND;

typedef enum {
  VCTK_OK = 0,
  VCTK_ERROR_LOAD_USB_KEY_DLL_FAILED = 1,
  VCTK_ERROR_SET_SUPPORT_KEY_FAILED = 2,
  VCTK_ERROR_CERTUI_INSTANCE_NOT_INIT = 3,
  VCTK_ERROR_OUT_BUFFER_SIZE_NOT_ENOUGH = 4,
  VCTK_ERROR_GET_SIGN_CERT_FAILED = 5,
  VCTK_ERROR_GET_LAST_ERROR_MSG_FAILED = 6,
  VCTK_ERROR_GET_SIGN_CERT_TYPE_FAILED = 7,
  VCTK_ERROR_GET_SIGN_HASH_FAILED = 8,
  VCTK_ERROR_P1SIGN_RESULT_INVALID = 9,
  VCTK_ERROR_P7SIGN_RESULT_INVALID = 10,
  VCTK_ERROR_INVALID_PARAMETER = 11
} VCTK_ERROR;

/* --- session --- */

/* Opens the device library and reads the key families from a key-list document:
 *   <authinfo><liblist><lib type="CSP" version="1" dllname="BASE64">
 *     <algid val="SHA256" sm2_hashalg="SM3"/><pvid enable="1" val="BASE64"/></lib></liblist></authinfo>
 * The first call of the process also reads key patches from the disk, once.
 * Returns a handle, or null: the text is null, empty, ill-formed or lacks authinfo or liblist, or
 * libVELCrypto64.so cannot be loaded. */
VCTK_API HANDLE VCTK_Initialize(const char* lpszSupportKeyXML);

/* The window that dialogs belong to. Null handles are accepted. */
VCTK_API void VCTK_SetParentWindow(HANDLE handle, HWND hParaent);

/* Ends the session and closes the device library; the handle is invalid afterwards. Returns 0. */
VCTK_API int VCTK_Finalize(HANDLE handle);

/* The code of the handle's last failure; 0 after a call that succeeded and clears it. Asking
 * changes nothing. */
VCTK_API int VCTK_GetLastError(HANDLE handle);

/* The text of that code. Differs from the buffer rule: the text is copied without a terminator (so
 * zero the buffer, or use *pResultLen), and pResultLen must not be null. */
VCTK_API int VCTK_GetLastErrorMessage(HANDLE handle, char* pResult, int* pResultLen);

/* --- certificates --- */

/* Adds a filter for the listings that follow.
 * ulType  0 issuer name (several are alternatives), 1 serial number, 2 subject name, 3 e-mail,
 *         4 certificate, 5 key spec, 6 key status, 7 library name, 8 validity, 9 key usage,
 *         10 interface type, 11 common name, 12 signing and encryption.
 * Returns 0; 0xE0000003 for another type or an empty value, the list unchanged. */
VCTK_API int VCTK_AddFilter(HANDLE handle, unsigned long ulType, const char* lpszValue);
VCTK_API int VCTK_ClearFilter(HANDLE handle);

/* Whether a single certificate is taken without showing the dialog: non-zero for yes. Returns 0. */
VCTK_API int VCTK_SetChooseSingleCert(HANDLE handle, int isChooseSingleCert);

/* The signing certificates that pass the filters, as subject name, pSeparatorCertItem and serial
 * number each, pSeparatorCert between two. Call with pResult null first: that lists and keeps the
 * text; the second call copies it, zero-fills the buffer, leaves *pResultLen alone and forgets the
 * text. Returns 0; 11 null argument; 4 too small, *pResultLen the size needed; 0xE000000E nothing
 * listed; 0xE0000084 the names are no text in the process's locale; or the device's code. */
VCTK_API int VCTK_GetCertList(HANDLE handle, const char* pSeparatorCert,
                              const char* pSeparatorCertItem, char* pResult, int* pResultLen);

/* Whether any certificate, signing or not, has this serial number; the filters do not count.
 * Returns 0 and *isExist 1 or 0; 11 null argument; or the device's code, *isExist untouched. */
VCTK_API int VCTK_CheckCertIsExist(HANDLE handle, const char* pCertSN, int* isExist);

/* Chooses the signing certificate by serial number for VCTK_P7SignStrEx. Returns 1 on success, not
 * 0; 0xE0000061 when no signing certificate has the number; or the device's code. A certificate
 * that was chosen before stays the one that signs. */
VCTK_API int VCTK_SetCert(HANDLE handle, const char* lpcCertSn);

/* The chosen certificate in base64, and its key type ("RSA", "SM2"). 0xE0000001 before any was
 * chosen. VCTK_GetSignCertType counts the terminator in *pResultLen after a copy, too. */
VCTK_API int VCTK_GetSignCert(HANDLE handle, char* pResult, int* pResultLen);
VCTK_API int VCTK_GetSignCertType(HANDLE handle, char* pResult, int* pResultLen);

/* --- digest --- */

/* Sets the digest of all signatures but VCTK_P1SignWithPin's: MD2, MD5, SHA1, SHA256, SHA512 or
 * SM3, in any case. Returns 0; 0xE0000003 empty name; 0xE0000066 unknown name, the earlier
 * setting stays. */
VCTK_API int VCTK_SetDigestAlg(HANDLE handle, const char* lpszDigestAlg);

/* The digest that was set, else the chosen certificate's; 0xE0000066 and *pResultLen 0 when there
 * is neither. */
VCTK_API int VCTK_GetDigestAlg(HANDLE handle, char* pResult, int* pResultLen);

/* --- signing ---
 * lpszValue  the text to sign, or, with isBase64 non-zero, base64 of the bytes to sign. Text is
 *            signed as many bytes as it has characters, so give text beyond ASCII as base64.
 * isDetach   non-zero leaves the content out of the PKCS#7 structure.
 * Returns    0; 0xE0000003 null or nothing to sign; 0xE000000B empty text; 0xE0000061 no
 *            certificate; 0xE0000078 none chosen; 0xE0000066 no digest; or the device's code. */

/* PKCS#1 with the certificate that the user chooses; the device library asks for the PIN. */
VCTK_API int VCTK_P1Sign(HANDLE handle, const char* lpszValue, int isBase64);

/* The last signature of VCTK_P1Sign in base64 on one line; 9 when there is none. A failed call
 * leaves the earlier signature in place. */
VCTK_API int VCTK_GetP1SignResult(HANDLE handle, char* pResult, int* pResultLen);

/* PKCS#1 without any dialog: the certificate by serial number (equal by case), the PIN as given (an
 * empty one makes no login, and the device library may ask for it). SHA1 for an RSA key, SM3 for
 * any other. */
VCTK_API int VCTK_P1SignWithPin(HANDLE handle, const char* lpszSN, const char* lpszPIN,
                                const char* lpszOrg, int isBase64);

/* What the last VCTK_P1SignWithPin gave, as JSON:
 *   {"result":0,"signdata":...,"cert":...,"algid":...,"signalgid":...}
 * or after a failure, with N the tries left or -1:
 *   {"result":-1,"remainretrycount":N}
 * 9 when there is none. */
VCTK_API int VCTK_GetP1SignResultWithPin(HANDLE handle, char* pResult, int* pResultLen);

/* PKCS#7 with the certificate that the user chooses; the result in base64 on one line, 9 when
 * there is none. */
VCTK_API int VCTK_P7Sign(HANDLE handle, const char* lpszValue, int isBase64, int isDetach,
                         int isIncludeCert);
VCTK_API int VCTK_GetP7SignResult(HANDLE handle, char* pResult, int* pResultLen);

/* PKCS#7 without any dialog, with the certificate of VCTK_SetCert (or of an earlier dialog) and
 * the PIN of VCTK_SetPinCode, without which the device library may ask; the result through
 * VCTK_GetP7SignResult. */
VCTK_API int VCTK_P7SignStrEx(HANDLE handle, const char* lpszValue, int isBase64, int isDetach,
                              int isIncludeCert);

/* A PKCS#1 signature as by VCTK_P1Sign, wrapped into PKCS#7. The content is lpszValue as it
 * stands, base64 or not. When the device library refuses to wrap, the first function returns 0 all
 * the same and the result stays the earlier one, if any. The second gives 10 when there is no
 * result. */
VCTK_API int VCTK_P7SignFromP1(HANDLE handle, const char* lpszValue, int isBase64, int isDetach);
VCTK_API int VCTK_GetP7SignFromP1Result(HANDLE handle, char* pResult, int* pResultLen);

/* The version of the signing component, which has none: sets *pResultLen to 0 and returns 0. */
VCTK_API int VCTK_GetSignVersion(HANDLE handle, char* pResult, int* pResultLen);

/* --- PIN --- */

/* Keeps the PIN for VCTK_P7SignStrEx. Returns 1 on success, 0xE0000003 for null. */
VCTK_API int VCTK_SetPinCode(HANDLE handle, const char* pincode);

/* Changes the PIN of a certificate's key.
 * lpcCertSn    its serial number; empty means the chosen certificate (0xE0000078 when there is
 *              none), null is not allowed
 * pinCodeType  1 administrator, 2 user
 * Returns 0 or the device's code, which VCTK_GetLastErrorMessage does not tell. */
VCTK_API int VCTK_ChangePinCode(HANDLE handle, const char* lpcCertSn, int pinCodeType,
                                const char* lpcCurrentPin, const char* lpcNewPin);

/* Whether VCTK_P1Sign and VCTK_P7Sign ask for the PIN even when logged in: non-zero for yes.
 * Returns 0. */
VCTK_API int VCTK_SetForcePinDialog(HANDLE handle, int bForcePinDialog);

/* --- record of device calls --- */

/* Switch the device library's record of its calls on (non-zero) or off; empty it. What it holds and
 * what isHeadInfoEnable adds is the device library's matter. Both return 0 or its code. */
VCTK_API int VCTK_CallQueueEnable(HANDLE handle, int isCallQueueEnable, int isHeadInfoEnable);
VCTK_API int VCTK_CallQueueClear(HANDLE handle);

/* The record as text. 0xE0000084 when it is empty, 0xE0000004 (not 4) when the buffer is too small;
 * a copy leaves *pResultLen alone. */
VCTK_API int VCTK_CallQueueGet(HANDLE handle, char* pResult, int* pResultLen);

#ifdef __cplusplus
}
#endif

#endif
