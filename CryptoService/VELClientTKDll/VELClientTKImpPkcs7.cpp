// PKCS#7 signatures: by the device with or without the dialog, or wrapped around a PKCS#1 one.
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <utility>

#include "base64.h"
#include "DeviceErrorCodes.h"
#include "SignContent.h"
#include "vctk.h"
#include "VELClientTKImp.h"

namespace {

// "2": certificates whose usage allows signing.
const wchar_t kSigningUsage[] = L"2";

BYTE* DecodeBytes(CBase64& decoder, const CString& text, ULONG& size) {
  unsigned long length = 0;
  const void* const bytes = decoder.Decode(text, &length);
  size = bytes == nullptr ? 0 : length;
  return static_cast<BYTE*>(const_cast<void*>(bytes));
}

// Asks for the size, then for the bytes. False when the device library refuses or memory ends.
bool Assemble(IVELKeyAuxClass& aux, tag_VEL_P1_TO_P7_PARAM& parameters, CString& base64) {
  DWORD size = 0;
  if (aux.AssembleP1DataToP7Data(&parameters, nullptr, &size) != 0) return false;
  const DWORD room = size;
  // Zero bytes that calloc gives take no memory until they are written, however large the size is
  // that the device library says.
  const std::unique_ptr<BYTE, void (*)(void*)> buffer(
      static_cast<BYTE*>(calloc(room == 0 ? 1 : room, 1)), free);
  if (buffer == nullptr) return false;
  if (aux.AssembleP1DataToP7Data(&parameters, buffer.get(), &size) != 0) return false;
  return EncodeText(buffer.get(), size < room ? size : room, base64);
}

}  // namespace

BOOL CVELClientTKImp::P7Sign(LPCSTR lpszValue, BOOL bIsBase64, BOOL bIsDetach, BOOL bIncludeCert) {
  if (lpszValue == nullptr) return Succeed(kErrorInvalidParameter);
  CSignContent content;
  const ULONG code = TakeContent(lpszValue, bIsBase64, content);
  if (code != 0) return Succeed(code);
  return Succeed(SignPkcs7(content, bIsDetach, bIncludeCert, m_P7SignResultBase64));
}

ULONG CVELClientTKImp::P7SignEx(CString strValue, BOOL bIsBase64, BOOL bIsDetach, BOOL bIncludeCert,
                                CString& strResult) {
  if (m_pVelUsbKey == nullptr || strValue.IsEmpty()) return kErrorInvalidHandle;
  CSignContent content;
  const ULONG code = content.Take(std::move(strValue), bIsBase64);
  return code != 0 ? code : SignPkcs7(content, bIsDetach, bIncludeCert, strResult);
}

ULONG CVELClientTKImp::SignPkcs7(const CSignContent& content, BOOL bIsDetach, BOOL bIncludeCert,
                                 CString& strResult) {
  DeviceManager manager;
  CertDialog dialog;
  ULONG code = PrepareWithDialog(manager, dialog);
  if (code != 0) return code;
  // By key usage here, by key spec for PKCS#1; an empty list still goes to the dialog.
  FilterList filters = FiltersWith(VEL_CERT_FILTER_KEY_USAGE, kSigningUsage);
  CertList certs;
  code = manager->GetCertList(&filters, &certs);
  if (code == 0) code = ChooseWithDialog(dialog, certs);
  if (code != 0) return code;
  VEL_HASH_ALG digest = VEL_HASH_ALG_UNKNOWN;
  code = GetDigestAlgEnumEx(digest);
  if (code != 0) return code;
  manager->SetForcePinDialog(m_bForcePinDialog);
  CSmartBuffer signature;
  code = manager->P7Sign(&m_SelectCertList[0], digest, bIsDetach, bIncludeCert, content.GetBytes(),
                         content.GetSize(), &signature);
  return FinishSignature(code, manager, signature, strResult);
}

ULONG CVELClientTKImp::P7SignForManager(LPCSTR lpszValue, BOOL bIsBase64, BOOL bIsDetach,
                                        BOOL bIncludeCert) {
  if (lpszValue == nullptr) return Succeed(kErrorInvalidParameter);
  CSignContent content;
  const ULONG code = TakeContent(lpszValue, bIsBase64, content);
  if (code != 0) return Succeed(code);
  return Succeed(SignPkcs7WithPin(content, bIsDetach, bIncludeCert, m_P7SignResultBase64));
}

ULONG CVELClientTKImp::P7SignForManagerEx(CString strValue, BOOL bIsBase64, BOOL bIsDetach,
                                          BOOL bIncludeCert, CString& strResult) {
  if (m_pVelUsbKey == nullptr || strValue.IsEmpty()) return kErrorInvalidHandle;
  CSignContent content;
  const ULONG code = content.Take(std::move(strValue), bIsBase64);
  return code != 0 ? code : SignPkcs7WithPin(content, bIsDetach, bIncludeCert, strResult);
}

// After a failure the device library keeps the PIN, and the object keeps it always: hosts sign
// again without setting it anew.
ULONG CVELClientTKImp::SignPkcs7WithPin(const CSignContent& content, BOOL bIsDetach,
                                        BOOL bIncludeCert, CString& strResult) {
  DeviceManager manager;
  ULONG code = PrepareDeviceManager(manager);
  if (code != 0) return code;
  if (m_SelectCertList.GetCount() == 0) return kErrorNoCertChosen;
  VEL_HASH_ALG digest = VEL_HASH_ALG_UNKNOWN;
  code = GetDigestAlgEnumEx(digest);
  if (code != 0) return code;
  tag_VEL_CERT_INFO* const cert = &m_SelectCertList[0];
  code = manager->SetPinCode(VEL_PIN_CODE_TYPE_USER, m_szUserPinCode, cert);
  if (code != 0) return code;
  CSmartBuffer signature;
  code = manager->P7Sign(cert, digest, bIsDetach, bIncludeCert, content.GetBytes(),
                         content.GetSize(), &signature);
  code = FinishSignature(code, manager, signature, strResult);
  if (code != 0) return code;
  wchar_t noPin[] = L"";
  manager->SetPinCode(VEL_PIN_CODE_TYPE_USER, noPin, cert);
  return 0;
}

// Code 9, the PKCS#1 one, is what hosts know from this operation; the next has its own.
BOOL CVELClientTKImp::GetP7SignResult(LPSTR pResult, INT* pResultLen) {
  return CopyStoredText(m_P7SignResultBase64, VCTK_ERROR_P1SIGN_RESULT_INVALID, pResult,
                        pResultLen);
}

BOOL CVELClientTKImp::GetP7SignFromP1Result(LPSTR pResult, INT* pResultLen) {
  return CopyStoredText(m_P7SignResultBase64, VCTK_ERROR_P7SIGN_RESULT_INVALID, pResult,
                        pResultLen);
}

BOOL CVELClientTKImp::P7SignFromP1(LPCSTR lpszValue, BOOL bIsBase64, BOOL bIsDetach) {
  if (lpszValue == nullptr) return Succeed(kErrorInvalidParameter);
  const bool isSigned = P1Sign(lpszValue, bIsBase64);
  if (!isSigned || m_P1SignResultBase64.IsEmpty()) {
    m_P7SignResultBase64.Empty();
    return FALSE;
  }
  CSmartObjPtr<IVELKeyAuxClass> aux(m_pVelUsbKey->CreateAuxClassInstance());
  if (!aux) return Succeed(kErrorInvalidObject);
  CBase64 signatureDecoder;
  tag_VEL_P1_TO_P7_PARAM parameters = {};
  parameters.P1DataBuffer =
      DecodeBytes(signatureDecoder, m_P1SignResultBase64, parameters.P1DataLen);
  VEL_HASH_ALG digest = VEL_HASH_ALG_UNKNOWN;
  if (!Succeed(GetDigestAlgEnumEx(digest))) return FALSE;
  parameters.DetachType = bIsDetach;
  parameters.HashAlg = digest;
  // The text as it stands is the content, even when the signature covers what it decodes to.
  parameters.OrgDataBuffer = reinterpret_cast<BYTE*>(const_cast<char*>(lpszValue));
  parameters.OrgDataLen = strlen(lpszValue);
  CString certBase64;
  if (!Succeed(GetSignCertBase64Ex(certBase64))) return FALSE;
  CBase64 certDecoder;
  parameters.CertBuffer = DecodeBytes(certDecoder, certBase64, parameters.CertLen);
  // A refusal leaves the code at 0 and the old result: hosts know "FALSE and no code".
  return Assemble(*aux.operator->(), parameters, m_P7SignResultBase64);
}

BOOL CVELClientTKImp::GetSignVersion(LPSTR, INT* pResultLen) {
  if (pResultLen != nullptr) *pResultLen = 0;
  return TRUE;
}
