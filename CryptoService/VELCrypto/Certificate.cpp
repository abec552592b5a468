#include "Certificate.h"

#include <openssl/pem.h>

#include <climits>

#include "DistinguishedName.h"
#include "Text.h"

namespace velcrypto {

namespace {

std::string DateText(const SYSTEMTIME& time) {
  char text[64];
  snprintf(text, sizeof(text), "%04u-%02u-%02u %02u:%02u:%02u", time.wYear, time.wMonth, time.wDay,
           time.wHour, time.wMinute, time.wSecond);
  return text;
}

// Hexadecimal digits with a separator between the bytes.
std::string Spaced(const std::string& digits, char separator) {
  if (separator == '\0') return digits;
  std::string text;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && i % 2 == 0) text += separator;
    text += digits[i];
  }
  return text;
}

X509Ptr ReadPem(const BYTE* data, size_t size) {
  const BioPtr source(BIO_new_mem_buf(data, static_cast<int>(size)));
  return X509Ptr(source == nullptr ? nullptr
                                   : PEM_read_bio_X509(source.get(), nullptr, nullptr, nullptr));
}

}  // namespace

ULONG Certificate::CreateFromMemory(const BYTE* pData, DWORD nSize, LPCSTR) {
  return Contained([&]() -> Outcome {
           if (pData == nullptr || nSize == 0 || nSize > INT_MAX) return kInvalidParameter;
           X509Ptr parsed = ParseCertificate(pData, nSize);
           if (parsed == nullptr) parsed = ReadPem(pData, nSize);
           const CertFactsPtr facts = parsed == nullptr ? nullptr : FactsOf(parsed.get());
           if (facts == nullptr) return OpenSslOutcome(kInvalidParameter, "no certificate");
           m_x509 = std::move(parsed);
           m_facts = facts;
           return kOk;
         })
      .code;
}

const tag_VEL_CERT_INFO& Certificate::Record() const {
  static const tag_VEL_CERT_INFO* const none = new tag_VEL_CERT_INFO;
  return m_facts == nullptr ? *none : m_facts->record;
}

template <typename Make>
LPCSTR Certificate::Text(Make&& make) {
  m_text.clear();
  Contained([&]() -> Outcome {
    if (m_facts != nullptr) m_text = make();
    return kOk;
  });
  return m_text.c_str();
}

LPCSTR Certificate::GetSubject(BOOL bReverse) {
  const NameOrder order = bReverse ? NameOrder::kSpecificLast : NameOrder::kSpecificFirst;
  return Text([&] { return NameText(X509_get_subject_name(m_x509.get()), order); });
}

LPCSTR Certificate::GetSubjectCN() {
  return Text([&] { return Narrow(Record().SubjectCN); });
}

LPCSTR Certificate::GetIssuer(BOOL bReverse) {
  return Text([&] { return Narrow(bReverse ? Record().IssuerReverseDN : Record().IssuerDN); });
}

LPCSTR Certificate::GetIssuerCN() {
  return Text([&] { return Narrow(Record().IssuerCN); });
}

LPCSTR Certificate::GetSerialNumber(CHAR cSeparator) {
  return Text([&] { return Spaced(Narrow(Record().SerialNumber), cSeparator); });
}

LPCSTR Certificate::GetEffectiveDate() {
  return Text([&] { return DateText(Record().EffectiveInfo); });
}

LPCSTR Certificate::GetExpirationDate() {
  return Text([&] { return DateText(Record().ExpiredInfo); });
}

ULONG Certificate::GetEffectiveDate(LPSYSTEMTIME pTime) {
  if (pTime == nullptr) return kInvalidParameter;
  if (m_facts == nullptr) return kNotInitialized;
  *pTime = Record().EffectiveInfo;
  return kOk;
}

ULONG Certificate::GetExpirationDate(LPSYSTEMTIME pTime) {
  if (pTime == nullptr) return kInvalidParameter;
  if (m_facts == nullptr) return kNotInitialized;
  *pTime = Record().ExpiredInfo;
  return kOk;
}

LPCSTR Certificate::GetCertBase64() {
  return Text([&] { return Narrow(Record().CertBase64); });
}

LPCSTR Certificate::GetKeyAlgorithm() {
  return Text([&]() -> std::string {
    const VEL_ASYMM_ALG algorithm = GetAsymmAlg();
    return algorithm == VEL_ASYMM_ALG_RSA   ? "RSA"
           : algorithm == VEL_ASYMM_ALG_SM2 ? "SM2"
                                            : "UNKNOWN";
  });
}

BOOL Certificate::IsExpired() {
  return m_facts != nullptr && m_facts->notAfter < time(nullptr);
}

std::vector<BYTE> Certificate::PublicKeyDer() const {
  BYTE* der = nullptr;
  const int size = m_x509 == nullptr ? 0 : i2d_PUBKEY(X509_get0_pubkey(m_x509.get()), &der);
  if (size <= 0) return {};
  std::vector<BYTE> bytes(der, der + size);
  OPENSSL_free(der);
  return bytes;
}

ULONG Certificate::GetPublicKey(BYTE* pKey, ULONG nSize, ULONG* pNeeded) {
  return Contained([&]() -> Outcome {
           if (pNeeded == nullptr) return kInvalidParameter;
           const std::vector<BYTE> der = PublicKeyDer();
           if (der.empty()) return kNotInitialized;
           *pNeeded = der.size();
           if (pKey == nullptr) return kOk;
           if (nSize < der.size()) return kBufferTooSmall;
           std::copy(der.begin(), der.end(), pKey);
           return kOk;
         })
      .code;
}

LPCSTR Certificate::GetPublicKey(CHAR cSeparator) {
  return Text([&] {
    const std::vector<BYTE> der = PublicKeyDer();
    return Spaced(Hex(der.data(), der.size()), cSeparator);
  });
}

ULONG Certificate::GetPublicKeyLength() {
  const EVP_PKEY* const key = m_x509 == nullptr ? nullptr : X509_get0_pubkey(m_x509.get());
  return key == nullptr ? 0 : static_cast<ULONG>(EVP_PKEY_get_bits(key));
}

ULONG Certificate::GetKeyUsage() {
  return Record().KeyUsage;
}

BOOL Certificate::IsEncryptionCert() {
  return (Record().KeySpec & VEL_KEY_SPEC_EXCHANGE) != 0;
}

BOOL Certificate::IsSignatureCert() {
  return (Record().KeySpec & VEL_KEY_SPEC_SIGNATURE) != 0;
}

BOOL Certificate::IsRootCert() {
  return m_x509 != nullptr && X509_NAME_cmp(X509_get_subject_name(m_x509.get()),
                                            X509_get_issuer_name(m_x509.get())) == 0;
}

BOOL Certificate::IsValid() {
  const time_t now = time(nullptr);
  return m_facts != nullptr && m_facts->notBefore <= now && now <= m_facts->notAfter;
}

LPCSTR Certificate::GetVersion() {
  return Text([&] { return Narrow(Record().Version); });
}

LPCSTR Certificate::IssuerPart(int nid) {
  return Text([&] { return LastEntry(X509_get_issuer_name(m_x509.get()), nid); });
}

LPCSTR Certificate::GetIssuerC() {
  return IssuerPart(NID_countryName);
}

LPCSTR Certificate::GetIssuerO() {
  return IssuerPart(NID_organizationName);
}

LPCSTR Certificate::GetIssuerOU() {
  return IssuerPart(NID_organizationalUnitName);
}

LPCSTR Certificate::GetIssuerS() {
  return IssuerPart(NID_stateOrProvinceName);
}

LPCSTR Certificate::GetIssuerL() {
  return IssuerPart(NID_localityName);
}

LPCSTR Certificate::GetIssuerEmail() {
  return IssuerPart(NID_pkcs9_emailAddress);
}

LPCSTR Certificate::GetSubjectEmail() {
  return Text([&] { return Narrow(Record().SubjectEmail); });
}

ULONG Certificate::GetRawCertData(BYTE* pData, DWORD nSize) {
  if (m_facts == nullptr) return kNotInitialized;
  if (pData == nullptr) return kInvalidParameter;
  if (nSize < m_facts->der.size()) return kBufferTooSmall;
  std::copy(m_facts->der.begin(), m_facts->der.end(), pData);
  return kOk;
}

VEL_ASYMM_ALG Certificate::GetAsymmAlg() {
  return Record().AsymmAlg;
}

}  // namespace velcrypto
