#pragma once
// The toolkit object: one session of a host, the thing behind a handle of vctk.h.
//
// Operations come in pairs: a narrow one (LPCSTR, UTF-8) that stores its code in m_LastError, which
// it clears on entry, and returns TRUE exactly when the code is 0; and a wide `Ex` one that returns
// the code. Codes are VCTK_ERROR's or the device library's; texts: VelUsbKeyErrorMessage.h.
//
// Operations (LPSTR pResult, INT* pResultLen) follow one rule for buffers: null pResultLen is error
// 11; a null pResult asks for the size, terminator included; a buffer that is too small is error 4
// with that size in *pResultLen and nothing written; after a copy *pResultLen is the length without
// terminator. What differs says so.
//
// One thread at a time. No exception leaves a handled error path. The fields are open to the tests,
// which pin their order and values.
#include "KeyPatch.h"
#include "SmartList.h"
#include "SmartObject.h"
#include "VELCstring.h"
#include "VELInterface.h"
#include "VelKeyTypes.h"
#include "VELUsbKeyDll.h"

class CSignContent;

class CVELClientTKImp {
 public:
  CVELClientTKImp();
  CVELClientTKImp(const CVELClientTKImp&) = delete;
  CVELClientTKImp& operator=(const CVELClientTKImp&) = delete;
  // Releases neither loader nor device library: that is Finalize's, called before.
  ~CVELClientTKImp();

  // --- session and errors (VELClientTKImp.cpp) ---
  BOOL Finalize();  // always TRUE; again is harmless
  DWORD GetLastError() const { return m_LastError; }
  void SetParentWindow(HWND hParent) { m_hParent = hParent; }
  HMODULE ModuleFromAddress(PVOID pAddress);  // always null, kept for its callers
  CString GetUnicodeStringEx(LPCSTR lpszValue);
  CStringA GetUTF8StringEx(const CString& strValue);
  // The text of m_LastError, which stays as it is. Copied without a terminator; pResultLen must not
  // be null.
  BOOL GetLastErrorMessage(LPSTR pResult, INT* pResultLen);

  // --- initialisation and key list (VELClientTKImpKeys.cpp) ---
  // 0xE0000001 for a key list that is null, empty or malformed, the loader's code, or 0xE000000C
  // without a loader or call queue; the loader is released then.
  BOOL Initialize(LPCSTR lpszSupportKeyXML);
  // Appends one entry for each "lib"; 0 or 0xE0000001, entries before the fault stay.
  ULONG SetKeyInfo(LPCSTR xml);
  // A fallback family for an empty list.
  void SetDefaultKeyInfo();

  // --- certificate selection (VELClientTKImpCerts.cpp) ---
  BOOL AddFilter(ULONG ulType, LPCSTR lpszValue);
  BOOL ClearFilter();
  BOOL SetChooseSingleCert(BOOL bChooseSingleCert);
  // Two calls: without pResult it lists, keeps the text and gives its size; with pResult it copies
  // the kept text, zero-fills the buffer, leaves *pResultLen alone and forgets the text.
  BOOL GetCertList(LPCSTR pSeparatorCert, LPCSTR pSeparatorCertItem, LPSTR pResult,
                   INT* pResultLen);
  ULONG GetCertInfoSet(const CString& strSeparatorCert, const CString& strSeparatorCertItem,
                       CString& strResult);
  BOOL CheckCertIsExist(LPCSTR pCertSN, BOOL* pExist);
  ULONG CheckCertIsExist(const CString& strCertSN, BOOL& bExist);
  // 1 on success, an error code otherwise. Behind a certificate that was chosen before, the new one
  // does not sign.
  ULONG SetCert(const CString& strCertSN);
  // A callback for certificate-list changes; `dialog` is an IVELKeyDisplayCertUIEx.
  static ULONG RefreshUICertList(LPVOID dialog, PVOID certList);
  ULONG GetSignCertBase64Ex(CString& strResult);
  ULONG GetSignCertTypeEx(CString& strResult);
  BOOL GetSignCert(LPSTR pResult, INT* pResultLen);
  BOOL GetSignCertType(LPSTR pResult, INT* pResultLen);  // a copy counts the terminator, too

  // --- digest (VELClientTKImpDigest.cpp) ---
  BOOL SetDigestAlg(LPCSTR lpszDigestAlg);
  ULONG GetDigestAlgEx(CString& strDigestAlg);
  ULONG GetDigestAlgEnumEx(VEL_HASH_ALG& digestAlg);
  BOOL GetSignHash(LPSTR pResult, INT* pResultLen);

  // --- PKCS#1 and PIN (VELClientTKImpPkcs1.cpp) ---
  BOOL P1Sign(LPCSTR lpszValue, BOOL bIsBase64);
  ULONG P1SignEx(CString strValue, BOOL bIsBase64, CString& strSignature);
  BOOL GetP1SignResult(LPSTR pResult, INT* pResultLen);
  BOOL P1SignWithPin(LPCSTR lpszSN, LPCSTR lpszPIN, LPCSTR lpszOrg, BOOL bIsBase64);
  ULONG P1SignExWithPin(const CString& strSN, const CString& strPIN, CString strOrg, BOOL bIsBase64,
                        CString& strJson);
  BOOL GetP1SignResultWithPin(LPSTR pResult, INT* pResultLen);
  ULONG SetPinCode(LPCSTR lpszPin);  // 1 on success, 0xE0000003 for null
  void SetForcePinDialog(BOOL bForcePinDialog) { m_bForcePinDialog = bForcePinDialog; }
  // The device's code; m_LastError is untouched.
  ULONG ChangePinCode(LPCSTR lpszSN, int type, LPCSTR lpszOldPin, LPCSTR lpszNewPin);

  // --- PKCS#7 (VELClientTKImpPkcs7.cpp) ---
  BOOL P7Sign(LPCSTR lpszValue, BOOL bIsBase64, BOOL bIsDetach, BOOL bIncludeCert);
  ULONG P7SignEx(CString strValue, BOOL bIsBase64, BOOL bIsDetach, BOOL bIncludeCert,
                 CString& strResult);
  ULONG P7SignForManager(LPCSTR lpszValue, BOOL bIsBase64, BOOL bIsDetach, BOOL bIncludeCert);
  ULONG P7SignForManagerEx(CString strValue, BOOL bIsBase64, BOOL bIsDetach, BOOL bIncludeCert,
                           CString& strResult);
  BOOL GetP7SignResult(LPSTR pResult, INT* pResultLen);
  BOOL P7SignFromP1(LPCSTR lpszValue, BOOL bIsBase64, BOOL bIsDetach);
  BOOL GetP7SignFromP1Result(LPSTR pResult, INT* pResultLen);
  BOOL GetSignVersion(LPSTR pResult, INT* pResultLen);  // always the empty version

  // --- call queue (VELClientTKImpQueue.cpp) ---
  BOOL CallQueueEnable(BOOL bCallQueueEnable, BOOL bHeadInfoEnable);
  BOOL CallQueueClear();
  // Error 0xE0000004 for a small buffer; a copy zero-fills it and leaves *pResultLen alone.
  BOOL CallQueueGet(LPSTR pResult, INT* pResultLen);

  DWORD m_LastError;
  HWND m_hParent;
  CString m_P1SignResultBase64;
  CString m_P7SignResultBase64;
  CVELUsbKey* m_pVelUsbKey;  // owned; destroyed by Finalize
  CSmartList<tag_VEL_KEY_INFO_EX> m_KeyInfoList;
  CSmartList<tag_VEL_CERT_FILTER_ITEM> m_CertFilterList;
  CSmartList<tag_VEL_CERT_INFO> m_SelectCertList;  // element 0 signs
  CSmartObjPtr<IVELCallQueue> m_soCallQueue;
  BOOL m_bChooseSingleCert;
  BOOL m_bSetDigestAlg;
  CString m_strDigestHash;
  CStringA m_strCertList;  // between the two calls of GetCertList
  BOOL m_bForcePinDialog;
  CString m_csPinSignResult;
  CString m_szUserPinCode;
  int RetryTimes;

 private:
  typedef CSmartList<tag_VEL_CERT_FILTER_ITEM> FilterList;
  typedef CSmartList<tag_VEL_CERT_INFO> CertList;
  typedef CSmartObjPtr<IVELDeviceManager> DeviceManager;
  typedef CSmartObjPtr<IVELKeyDisplayCertUIEx> CertDialog;

  bool Succeed(DWORD code);
  BOOL CopyStoredText(const CString& text, DWORD emptyCode, LPSTR pResult, INT* pResultLen);

  ULONG CreateDeviceManager(DeviceManager& manager);
  ULONG SetUpDeviceManager(DeviceManager& manager);
  ULONG PrepareDeviceManager(DeviceManager& manager);
  ULONG PrepareWithDialog(DeviceManager& manager, CertDialog& dialog);
  ULONG ChooseWithDialog(CertDialog& dialog, CertList& certs);
  static void AddFilterItem(FilterList& filters, VEL_CERT_FILTER_TYPE type, const wchar_t* value);
  // The host's filters and: with a key pair, fit for `use`, valid now.
  FilterList FiltersWith(VEL_CERT_FILTER_TYPE useFilter, const wchar_t* use) const;
  FilterList SigningFilters() const;

  // Narrow and wide operations meet here, behind the tests of their arguments.
  ULONG TakeContent(LPCSTR lpszValue, BOOL bIsBase64, CSignContent& content);
  ULONG SignPkcs1(const CSignContent& content, CString& strSignature);
  ULONG SignPkcs7(const CSignContent& content, BOOL bIsDetach, BOOL bIncludeCert,
                  CString& strResult);
  ULONG SignPkcs7WithPin(const CSignContent& content, BOOL bIsDetach, BOOL bIncludeCert,
                         CString& strResult);
  ULONG FinishSignature(ULONG code, DeviceManager& manager, CSmartBuffer& signature,
                        CString& strResult);
  ULONG SignWithPin(const CString& strSN, const CString& strPIN, CString strOrg, BOOL bIsBase64,
                    CString& strJson);
};
