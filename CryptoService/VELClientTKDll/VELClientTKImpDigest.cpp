// Which digest a signature uses.
#include "DeviceErrorCodes.h"
#include "OutputBuffer.h"
#include "vctk.h"
#include "VELClientTKImp.h"

BOOL CVELClientTKImp::SetDigestAlg(LPCSTR lpszDigestAlg) {
  const CString name = GetUnicodeStringEx(lpszDigestAlg);
  if (name.IsEmpty()) return Succeed(kErrorInvalidParameter);
  if (EnumHashAlg(name) == VEL_HASH_ALG_UNKNOWN) return Succeed(kErrorHash);
  m_strDigestHash = name;
  m_bSetDigestAlg = TRUE;
  return Succeed(0);
}

ULONG CVELClientTKImp::GetDigestAlgEx(CString& strDigestAlg) {
  if (m_bSetDigestAlg) {
    strDigestAlg = m_strDigestHash;
    return 0;
  }
  if (m_SelectCertList.GetCount() == 0) return kErrorHash;
  const tag_VEL_CERT_INFO& cert = m_SelectCertList[0];
  switch (cert.AsymmAlg) {
    case VEL_ASYMM_ALG_RSA:
      strDigestAlg = StrHashAlg(cert.RSAHashALg);
      return 0;
    case VEL_ASYMM_ALG_SM2:
    case VEL_ASYMM_ALG_PM:  // PM keys share the SM2 field
      strDigestAlg = StrHashAlg(cert.SM2HashALg);
      return 0;
    default:
      return kErrorHash;
  }
}

ULONG CVELClientTKImp::GetDigestAlgEnumEx(VEL_HASH_ALG& digestAlg) {
  CString name;
  const ULONG code = GetDigestAlgEx(name);
  if (code != 0) return code;
  digestAlg = EnumHashAlg(name);
  return digestAlg == VEL_HASH_ALG_UNKNOWN ? ULONG(kErrorHash) : 0;
}

BOOL CVELClientTKImp::GetSignHash(LPSTR pResult, INT* pResultLen) {
  if (pResultLen == nullptr) return Succeed(VCTK_ERROR_INVALID_PARAMETER);
  CString name;
  if (!Succeed(GetDigestAlgEx(name))) {
    *pResultLen = 0;
    return FALSE;
  }
  return Succeed(CopyOut(GetUTF8StringEx(name), pResult, pResultLen));
}
