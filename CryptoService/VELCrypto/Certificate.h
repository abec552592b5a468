#pragma once
// One certificate, read from memory. Texts are UTF-8, empty for what is missing, and belong to the
// object until its next call. One thread at a time.
#include <string>

#include "CertFacts.h"
#include "Object.h"
#include "VELUsbKeyDll.h"

namespace velcrypto {

class Certificate : public Object<IVELCertificate> {
 public:
  // DER or PEM; the password is not used. kInvalidParameter leaves the old one.
  ULONG CreateFromMemory(const BYTE* pData, DWORD nSize, LPCSTR pPassword) override;

  LPCSTR GetSubject(BOOL bReverse) override;
  LPCSTR GetSubjectCN() override;
  LPCSTR GetIssuer(BOOL bReverse) override;
  LPCSTR GetIssuerCN() override;
  LPCSTR GetSerialNumber(CHAR cSeparator) override;  // between the bytes; 0 for none
  LPCSTR GetEffectiveDate() override;                // "2024-05-01 08:00:00", UTC
  LPCSTR GetExpirationDate() override;
  ULONG GetEffectiveDate(LPSYSTEMTIME pTime) override;
  ULONG GetExpirationDate(LPSYSTEMTIME pTime) override;
  LPCSTR GetCertBase64() override;
  LPCSTR GetKeyAlgorithm() override;  // "RSA", "SM2", "UNKNOWN"
  BOOL IsExpired() override;
  ULONG GetPublicKey(BYTE* pKey, ULONG nSize, ULONG* pNeeded) override;  // SubjectPublicKeyInfo
  LPCSTR GetPublicKey(CHAR cSeparator) override;
  ULONG GetPublicKeyLength() override;  // bits
  ULONG GetKeyUsage() override;
  BOOL IsEncryptionCert() override;
  BOOL IsSignatureCert() override;
  BOOL IsRootCert() override;  // issuer and subject are the same
  BOOL IsValid() override;     // now
  LPCSTR GetVersion() override;
  LPCSTR GetIssuerC() override;
  LPCSTR GetIssuerO() override;
  LPCSTR GetIssuerOU() override;
  LPCSTR GetIssuerS() override;
  LPCSTR GetIssuerL() override;
  LPCSTR GetIssuerEmail() override;
  LPCSTR GetSubjectEmail() override;
  ULONG GetRawCertData(BYTE* pData, DWORD nSize) override;
  VEL_ASYMM_ALG GetAsymmAlg() override;

  LPCSTR GetCertInfoByOid(LPCSTR) override { return ""; }
  LPCSTR GetKeyUsageString() override { return ""; }
  LPCSTR GetExtensionInfo(CHAR) override { return ""; }

  VEL_CRYPTO_INTERFACE_TYPE GetBaseType() override { return VEL_CRYPTO_INTERFACE_TYPE_UNKNOWN; }
  PVOID GetBaseInterface() override { return nullptr; }
  HANDLE GetHandle() override { return nullptr; }
  ULONG GetOrgErrorCode() override { return LastNativeCode(); }

 private:
  const tag_VEL_CERT_INFO& Record() const;
  template <typename Make>
  LPCSTR Text(Make&& make);
  LPCSTR IssuerPart(int nid);
  std::vector<BYTE> PublicKeyDer() const;

  CertFactsPtr m_facts;
  X509Ptr m_x509;
  std::string m_text;
};

}  // namespace velcrypto
