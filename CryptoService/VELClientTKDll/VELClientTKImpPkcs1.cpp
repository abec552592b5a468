// PKCS#1 signatures, with the dialog or unattended, and the PIN settings.
#include <stdlib.h>
#include <wchar.h>

#include <string>
#include <utility>

#include "DeviceErrorCodes.h"
#include "PinText.h"
#include "SignContent.h"
#include "ToolkitLog.h"
#include "vctk.h"
#include "VELClientTKImp.h"

namespace {

const wchar_t kFailureJson[] = L"{\"result\":%d,\"remainretrycount\":%d}";
const wchar_t kSuccessJson[] =
    L"{\"result\":%d,\"signdata\":\"%ls\",\"cert\":\"%ls\",\"algid\":\"%ls\",\"signalgid\":\"%"
    L"ls\"}";

// The serial numbers of chosen certificates go to the device library through fields of this size.
const size_t kSerialField = 50;

// The unattended flavour goes by the key alone and not by the digest setting: its verifiers
// know these two pairs.
struct Algorithms {
  VEL_HASH_ALG digest;
  const wchar_t* digestName;
  const wchar_t* keyName;
};
const Algorithms kRsa = {VEL_HASH_ALG_SHA1, L"SHA1", L"RSA"};
const Algorithms kOther = {VEL_HASH_ALG_SM3, L"SM3", L"SM2"};

bool IsRsa(const tag_VEL_CERT_INFO& cert) {
  return cert.AsymmAlg == VEL_ASYMM_ALG_RSA;
}

const wchar_t* OrEmpty(const wchar_t* text) {
  return text == nullptr ? L"" : text;
}

tag_VEL_CERT_INFO* FindSerial(CSmartList<tag_VEL_CERT_INFO>& certs, const wchar_t* serial) {
  for (long i = 0; i < certs.GetCount(); ++i) {
    tag_VEL_CERT_INFO& cert = certs[static_cast<int>(i)];
    if (cert.SerialNumber.Compare(serial) == 0) return &cert;
  }
  return nullptr;
}

// One unattended signature at the device: the key by serial number, from login to logout.
class PinSession {
 public:
  PinSession(IVELDeviceManager& manager, const CString& serial, const CString& pin)
      : m_manager(manager), m_serial(static_cast<const wchar_t*>(serial)), m_pin(pin) {}

  // Without a PIN there is no login: the device library holds one or asks for it.
  ULONG LogIn() {
    if (m_pin.Get().IsEmpty()) return 0;
    const ULONG code = Handle(VEL_PIN_CODE_OPER_TYPE_LOGIN, m_pin.Get());
    if (code != 0) Log(L"KeyPinCodeHandleByCertSN函数失败，登入函数, ulRetValue = 0x%08X", code);
    return code;
  }

  // False when the device refused; a device that knows no logout has logged out.
  bool LogOut() {
    if (m_pin.Get().IsEmpty()) return true;
    const ULONG code = Handle(VEL_PIN_CODE_OPER_TYPE_LOGOUT, nullptr);
    if (code == 0 || code == kErrorNotSupported) return true;
    Log(L"KeyPinCodeHandleByCertSN函数失败,登出函数, ulRetValue = 0x%08X", code);
    return false;
  }

  ULONG Sign(tag_VEL_CERT_INFO& cert, const CSignContent& content, CSmartBuffer& signature,
             CString& json) {
    const Algorithms& algorithms = IsRsa(cert) ? kRsa : kOther;
    const ULONG code = m_manager.P1Sign(&cert, algorithms.digest, content.GetBytes(),
                                        content.GetSize(), &signature);
    if (code == 0) {
      CString text;
      if (!EncodeText(signature.GetAddress(), signature.GetSize(), text)) return kErrorNoMemory;
      const BOOL formatted =
          json.Format(kSuccessJson, 0, text.GetBuffer(), OrEmpty(cert.CertBase64),
                      algorithms.digestName, algorithms.keyName);
      return formatted ? 0 : ULONG(kErrorNoMemory);
    }
    // Only the keys that sign with SM3 tell how many tries are left; hosts rely on -1 for RSA.
    if (!IsRsa(cert)) json.Format(kFailureJson, -1, RemainingTries());
    Log(L"P1Sign函数失败, ulRetValue = 0x%08X", code);
    return code;
  }

 private:
  ULONG Handle(VEL_PIN_CODE_OPER_TYPE operation, const char* pin) {
    return m_manager.KeyPinCodeHandleByCertSN(operation, m_serial, VEL_PIN_CODE_TYPE_USER, pin,
                                              nullptr, &m_info);
  }
  int RemainingTries() {
    return Handle(VEL_PIN_CODE_OPER_TYPE_GET_PIN_INFO, nullptr) == 0 ? m_info.RemainRetryCount : -1;
  }
  static void Log(const wchar_t* format, ULONG code) {
    VCTK_LOG_ERROR(L"VELClientTKImp", L"P1SignExWithPin", format, static_cast<unsigned int>(code));
  }

  IVELDeviceManager& m_manager;
  const CStringA m_serial;
  const CPinText<CStringA> m_pin;
  tag_VEL_PIN_INFO m_info = {};
};

}  // namespace

BOOL CVELClientTKImp::P1Sign(LPCSTR lpszValue, BOOL bIsBase64) {
  if (lpszValue == nullptr) return Succeed(kErrorInvalidParameter);
  CSignContent content;
  const ULONG code = TakeContent(lpszValue, bIsBase64, content);
  return Succeed(code != 0 ? code : SignPkcs1(content, m_P1SignResultBase64));
}

ULONG CVELClientTKImp::P1SignEx(CString strValue, BOOL bIsBase64, CString& strSignature) {
  if (m_pVelUsbKey == nullptr || strValue.IsEmpty()) return kErrorInvalidHandle;
  CSignContent content;
  const ULONG code = content.Take(std::move(strValue), bIsBase64);
  return code != 0 ? code : SignPkcs1(content, strSignature);
}

ULONG CVELClientTKImp::TakeContent(LPCSTR lpszValue, BOOL bIsBase64, CSignContent& content) {
  if (m_pVelUsbKey == nullptr) return kErrorInvalidHandle;
  return content.TakeNarrow(lpszValue, bIsBase64);
}

// strSignature is written on success only: hosts go on reading the earlier signature after a
// failure.
ULONG CVELClientTKImp::SignPkcs1(const CSignContent& content, CString& strSignature) {
  DeviceManager manager;
  CertDialog dialog;
  ULONG code = PrepareWithDialog(manager, dialog);
  if (code != 0) return code;
  FilterList filters = SigningFilters();
  CertList certs;
  manager->GetCertList(&filters, &certs);  // what was listed decides, not the result
  if (certs.GetCount() == 0) return kErrorCertNotFound;
  code = ChooseWithDialog(dialog, certs);
  if (code != 0) return code;
  VEL_HASH_ALG digest = VEL_HASH_ALG_UNKNOWN;
  code = GetDigestAlgEnumEx(digest);
  if (code != 0) return code;
  manager->SetForcePinDialog(m_bForcePinDialog);
  CSmartBuffer signature;
  code = manager->P1Sign(&m_SelectCertList[0], digest, content.GetBytes(), content.GetSize(),
                         &signature);
  return FinishSignature(code, manager, signature, strSignature);
}

ULONG CVELClientTKImp::FinishSignature(ULONG code, DeviceManager& manager, CSmartBuffer& signature,
                                       CString& strResult) {
  if (code != 0) {
    RetryTimes = static_cast<int>(manager->GetPinRetryTimes());
    return code;
  }
  if (signature.GetSize() == 0) return kErrorGeneral;
  const BOOL encoded = EncodeText(signature.GetAddress(), signature.GetSize(), strResult);
  return encoded ? 0 : ULONG(kErrorNoMemory);
}

BOOL CVELClientTKImp::GetP1SignResult(LPSTR pResult, INT* pResultLen) {
  return CopyStoredText(m_P1SignResultBase64, VCTK_ERROR_P1SIGN_RESULT_INVALID, pResult,
                        pResultLen);
}

BOOL CVELClientTKImp::P1SignWithPin(LPCSTR lpszSN, LPCSTR lpszPIN, LPCSTR lpszOrg, BOOL bIsBase64) {
  if (lpszSN == nullptr || lpszPIN == nullptr || lpszOrg == nullptr) {
    return Succeed(kErrorInvalidParameter);
  }
  const CPinText<CString> pin(lpszPIN);
  return Succeed(
      P1SignExWithPin(CString(lpszSN), pin.Get(), CString(lpszOrg), bIsBase64, m_csPinSignResult));
}

ULONG CVELClientTKImp::P1SignExWithPin(const CString& strSN, const CString& strPIN, CString strOrg,
                                       BOOL bIsBase64, CString& strJson) {
  strJson.Format(kFailureJson, -1, -1);
  const ULONG code = SignWithPin(strSN, strPIN, std::move(strOrg), bIsBase64, strJson);
  VCTK_LOG_INFO(L"VELClientTKImp", L"P1SignExWithPin", L"Leave,Errorcode:%d",
                static_cast<int>(code));
  return code;
}

ULONG CVELClientTKImp::SignWithPin(const CString& strSN, const CString& strPIN, CString strOrg,
                                   BOOL bIsBase64, CString& strJson) {
  if (m_pVelUsbKey == nullptr || strSN.IsEmpty() || strOrg.IsEmpty()) return kErrorInvalidHandle;
  CSignContent content;
  ULONG code = content.Take(std::move(strOrg), bIsBase64);
  if (code != 0) return code;
  DeviceManager manager;
  code = PrepareDeviceManager(manager);
  if (code != 0) return code;
  // Unattended hosts name the certificate themselves, so only their own filters apply.
  FilterList filters = m_CertFilterList;
  CertList certs;
  manager->GetCertList(&filters, &certs);
  tag_VEL_CERT_INFO* const cert = FindSerial(certs, strSN);
  if (cert == nullptr) {
    VCTK_LOG_ERROR(L"VELClientTKImp", L"P1SignExWithPin", L"普通Key中没有发现证书");
    return kErrorCertNotFound;
  }
  manager->EnablePinStatusCheck(FALSE);
  PinSession session(*manager.operator->(), strSN, strPIN);
  code = session.LogIn();
  if (code != 0) return code;
  CSmartBuffer signature;
  code = session.Sign(*cert, content, signature, strJson);
  if (session.LogOut() && signature.GetSize() == 0) {
    VCTK_LOG_ERROR(L"VELClientTKImp", L"P1SignExWithPin", L"签名结果为空，ErrorCode:%d",
                   static_cast<int>(code));
  }
  return code;
}

BOOL CVELClientTKImp::GetP1SignResultWithPin(LPSTR pResult, INT* pResultLen) {
  return CopyStoredText(m_csPinSignResult, VCTK_ERROR_P1SIGN_RESULT_INVALID, pResult, pResultLen);
}

ULONG CVELClientTKImp::SetPinCode(LPCSTR lpszPin) {
  m_LastError = 0;
  if (lpszPin == nullptr) return kErrorInvalidParameter;  // returned, not stored
  WipeText(m_szUserPinCode);
  m_szUserPinCode = lpszPin;
  return 1;
}

ULONG CVELClientTKImp::ChangePinCode(LPCSTR lpszSN, int type, LPCSTR lpszOldPin,
                                     LPCSTR lpszNewPin) {
  if (lpszSN == nullptr) return kErrorInvalidParameter;
  DeviceManager manager;
  const ULONG code = PrepareDeviceManager(manager);
  if (code != 0) return code;
  char chosen[kSerialField] = {};
  if (*lpszSN == '\0') {
    if (m_SelectCertList.GetCount() == 0) return kErrorNoCertChosen;
    const std::wstring serial =
        std::wstring(m_SelectCertList[0].SerialNumber).substr(0, kSerialField - 1);
    wcstombs(chosen, serial.c_str(), kSerialField - 1);
    lpszSN = chosen;
  }
  return manager->KeyPinCodeHandleByCertSN(VEL_PIN_CODE_OPER_TYPE_CHANGE_PIN, lpszSN,
                                           static_cast<VEL_PIN_CODE_TYPE>(type), lpszOldPin,
                                           lpszNewPin, nullptr);
}
