// Filters, listings and the choice of the signing certificate.
#include <string>

#include "DeviceErrorCodes.h"
#include "OutputBuffer.h"
#include "vctk.h"
#include "VELClientTKImp.h"

namespace {

// "2": only certificates that are valid now.
const wchar_t kValidNow[] = L"2";
// "4": certificate and key pair both present.
const wchar_t kWithKeyPair[] = L"4";
// "1": keys that may sign.
const wchar_t kSigningKey[] = L"1";

}  // namespace

BOOL CVELClientTKImp::AddFilter(ULONG ulType, LPCSTR lpszValue) {
  const CString value = GetUnicodeStringEx(lpszValue);
  if (ulType > VEL_CERT_FILTER_DOUBLE_ATTR_SIGNATURE_AND_EXCHANGE || value.IsEmpty()) {
    return Succeed(kErrorInvalidParameter);
  }
  if (ulType == VEL_CERT_FILTER_ISSUER_DN) {
    for (long i = 0; i < m_CertFilterList.GetCount(); ++i) {
      tag_VEL_CERT_FILTER_ITEM& item = m_CertFilterList[static_cast<int>(i)];
      if (item.Type != VEL_CERT_FILTER_ISSUER_DN) continue;
      item.Value.AddString(L"|");
      item.Value.AddString(value);
      return Succeed(0);
    }
  }
  AddFilterItem(m_CertFilterList, static_cast<VEL_CERT_FILTER_TYPE>(ulType), value);
  return Succeed(0);
}

BOOL CVELClientTKImp::ClearFilter() {
  m_CertFilterList.Clear();
  return Succeed(0);
}

BOOL CVELClientTKImp::SetChooseSingleCert(BOOL bChooseSingleCert) {
  m_bChooseSingleCert = bChooseSingleCert;
  return Succeed(0);
}

BOOL CVELClientTKImp::GetCertList(LPCSTR pSeparatorCert, LPCSTR pSeparatorCertItem, LPSTR pResult,
                                  INT* pResultLen) {
  if (pSeparatorCert == nullptr || pSeparatorCertItem == nullptr || pResultLen == nullptr) {
    return Succeed(VCTK_ERROR_INVALID_PARAMETER);
  }
  if (pResult != nullptr) {
    const DWORD tooSmall = VCTK_ERROR_OUT_BUFFER_SIZE_NOT_ENOUGH;
    if (!Succeed(CopyOutZeroFilled(m_strCertList, pResult, pResultLen, tooSmall))) return FALSE;
    m_strCertList.Empty();
    return TRUE;
  }
  m_strCertList.Empty();
  CString text;
  if (!Succeed(GetCertInfoSet(pSeparatorCert, pSeparatorCertItem, text))) return FALSE;
  m_strCertList = static_cast<const wchar_t*>(text);
  // A name that is no text empties the whole list; that must not read as "no certificates".
  if (m_strCertList.IsEmpty()) return Succeed(kErrorNoDataYet);
  *pResultLen = m_strCertList.GetLength() + 1;
  return TRUE;
}

ULONG CVELClientTKImp::GetCertInfoSet(const CString& strSeparatorCert,
                                      const CString& strSeparatorCertItem, CString& strResult) {
  if (m_pVelUsbKey == nullptr) return kErrorInvalidHandle;
  strResult.Empty();
  DeviceManager manager;
  ULONG code = PrepareDeviceManager(manager);
  if (code != 0) return code;
  FilterList filters = SigningFilters();
  CertList certs;
  code = manager->GetCertList(&filters, &certs);
  if (code != 0) return code;
  // A standard string grows in steps; a CString would be copied whole at each append.
  std::wstring text;
  for (long i = 0; i < certs.GetCount(); ++i) {
    const tag_VEL_CERT_INFO& cert = certs[static_cast<int>(i)];
    if (!text.empty()) text += strSeparatorCert;
    text += cert.SubjectDN;
    text += strSeparatorCertItem;
    text += cert.SerialNumber;
  }
  strResult = text.c_str();
  return strResult.IsEmpty() ? ULONG(kErrorObjectNotFound) : 0;
}

BOOL CVELClientTKImp::CheckCertIsExist(LPCSTR pCertSN, BOOL* pExist) {
  if (pCertSN == nullptr || pExist == nullptr) return Succeed(VCTK_ERROR_INVALID_PARAMETER);
  return Succeed(CheckCertIsExist(CString(pCertSN), *pExist));
}

// Neither the host's filters nor the signing filters apply: any certificate with the number counts.
ULONG CVELClientTKImp::CheckCertIsExist(const CString& strCertSN, BOOL& bExist) {
  DeviceManager manager;
  ULONG code = CreateDeviceManager(manager);
  if (code != 0) return code;
  manager->SetKeyCheckTime(1);
  code = SetUpDeviceManager(manager);
  if (code != 0) return code;
  FilterList filters;
  AddFilterItem(filters, VEL_CERT_FILTER_SUBJECT_SN, strCertSN);
  CertList certs;
  code = manager->GetCertList(&filters, &certs);
  if (code == 0) bExist = certs.GetCount() != 0;
  return code;
}

// A loader or manager that is missing is returned and not stored; every other code is both. The
// list is not emptied first: the certificate at its front goes on signing.
ULONG CVELClientTKImp::SetCert(const CString& strCertSN) {
  m_LastError = 0;
  DeviceManager manager;
  const ULONG missing = CreateDeviceManager(manager);
  if (missing != 0) return missing;
  if (!Succeed(SetUpDeviceManager(manager))) return m_LastError;
  FilterList filters = SigningFilters();
  AddFilterItem(filters, VEL_CERT_FILTER_SUBJECT_SN, strCertSN);
  CertList certs;
  if (!Succeed(manager->GetCertList(&filters, &certs))) return m_LastError;
  if (certs.GetCount() == 0) {
    Succeed(kErrorCertNotFound);
    return m_LastError;
  }
  m_SelectCertList.AddItem(certs[0]);
  return 1;
}

ULONG CVELClientTKImp::RefreshUICertList(LPVOID dialog, PVOID certList) {
  if (dialog == nullptr || certList == nullptr) return kErrorInvalidParameter;
  return static_cast<IVELKeyDisplayCertUIEx*>(dialog)->RefreshDisplayCerts(
      static_cast<ISmartList<tag_VEL_CERT_INFO>*>(certList));
}

ULONG CVELClientTKImp::GetSignCertBase64Ex(CString& strResult) {
  strResult.Empty();
  if (m_SelectCertList.GetCount() == 0) return kErrorGeneral;
  strResult = static_cast<const wchar_t*>(m_SelectCertList[0].CertBase64);
  return 0;
}

ULONG CVELClientTKImp::GetSignCertTypeEx(CString& strResult) {
  strResult.Empty();
  if (m_SelectCertList.GetCount() == 0) return kErrorGeneral;
  strResult = StrAsymmAlg(m_SelectCertList[0].AsymmAlg);
  return 0;
}

BOOL CVELClientTKImp::GetSignCert(LPSTR pResult, INT* pResultLen) {
  if (pResultLen == nullptr) return Succeed(VCTK_ERROR_INVALID_PARAMETER);
  CString text;
  if (!Succeed(GetSignCertBase64Ex(text))) return FALSE;
  const CStringA narrow(static_cast<const wchar_t*>(text));
  if (narrow.IsEmpty()) return Succeed(VCTK_ERROR_GET_SIGN_CERT_FAILED);
  return Succeed(CopyOut(narrow, pResult, pResultLen));
}

BOOL CVELClientTKImp::GetSignCertType(LPSTR pResult, INT* pResultLen) {
  if (pResultLen == nullptr) return Succeed(VCTK_ERROR_INVALID_PARAMETER);
  CString text;
  if (!Succeed(GetSignCertTypeEx(text))) return FALSE;
  const CStringA narrow = GetUTF8StringEx(text);
  if (narrow.IsEmpty()) return Succeed(VCTK_ERROR_GET_SIGN_CERT_TYPE_FAILED);
  if (!Succeed(CopyOut(narrow, pResult, pResultLen))) return FALSE;
  // Hosts of this one operation expect the terminator counted after a copy, too.
  *pResultLen = narrow.GetLength() + 1;
  return TRUE;
}

ULONG CVELClientTKImp::CreateDeviceManager(DeviceManager& manager) {
  if (m_pVelUsbKey == nullptr) return kErrorInvalidHandle;
  manager = m_pVelUsbKey->CreateDeviceManagerInstance();
  return !manager ? ULONG(kErrorInvalidObject) : 0;
}

// Keys first, then Initialize: device libraries read the list while they initialise.
ULONG CVELClientTKImp::SetUpDeviceManager(DeviceManager& manager) {
  const ULONG code = manager->AddKeyEx(&m_KeyInfoList, TRUE);
  return code != 0 ? code : manager->Initialize(m_pVelUsbKey);
}

ULONG CVELClientTKImp::PrepareDeviceManager(DeviceManager& manager) {
  const ULONG code = CreateDeviceManager(manager);
  return code != 0 ? code : SetUpDeviceManager(manager);
}

ULONG CVELClientTKImp::PrepareWithDialog(DeviceManager& manager, CertDialog& dialog) {
  const ULONG code = PrepareDeviceManager(manager);
  if (code != 0) return code;
  dialog = m_pVelUsbKey->CreateCertUIInstance();
  return !dialog ? ULONG(kErrorInvalidObject) : 0;
}

ULONG CVELClientTKImp::ChooseWithDialog(CertDialog& dialog, CertList& certs) {
  ULONG code = dialog->EnableSingleCertSkipUI(m_bChooseSingleCert);
  if (code != 0) return code;
  code = dialog->DisplayUI(FALSE, &certs, &m_SelectCertList);
  if (code != 0) return code;
  return m_SelectCertList.GetCount() == 0 ? ULONG(kErrorNoCertChosen) : 0;
}

void CVELClientTKImp::AddFilterItem(FilterList& filters, VEL_CERT_FILTER_TYPE type,
                                    const wchar_t* value) {
  filters.AddItem(tag_VEL_CERT_FILTER_ITEM(type, value));
}

CVELClientTKImp::FilterList CVELClientTKImp::FiltersWith(VEL_CERT_FILTER_TYPE useFilter,
                                                         const wchar_t* use) const {
  FilterList filters = m_CertFilterList;
  AddFilterItem(filters, VEL_CERT_FILTER_KEY_ATTR_TYPE, kWithKeyPair);
  AddFilterItem(filters, useFilter, use);
  AddFilterItem(filters, VEL_CERT_FILTER_TIME_VALID_TYPE, kValidNow);
  return filters;
}

CVELClientTKImp::FilterList CVELClientTKImp::SigningFilters() const {
  return FiltersWith(VEL_CERT_FILTER_KEY_SPEC, kSigningKey);
}
