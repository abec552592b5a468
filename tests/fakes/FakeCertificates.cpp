#include "FakeCertificates.h"

tag_VEL_CERT_INFO RecordOf(const FakeCert& cert) {
  tag_VEL_CERT_INFO record;
  record.SerialNumber = cert.serial.c_str();
  record.SubjectDN = cert.subject.c_str();
  record.CertBase64 = cert.base64.c_str();
  record.AsymmAlg = static_cast<VEL_ASYMM_ALG>(cert.asymmAlg);
  record.RSAHashALg = static_cast<VEL_HASH_ALG>(cert.rsaHash);
  record.SM2HashALg = static_cast<VEL_HASH_ALG>(cert.sm2Hash);
  record.CertKeyStatus = static_cast<VEL_CERT_KEY_STATUS>(cert.keyStatus);
  record.KeySpec = static_cast<VEL_KEY_SPEC>(cert.keySpec);
  return record;
}

static bool PassesOne(const FakeCert& cert, tag_VEL_CERT_FILTER_ITEM& filter) {
  const std::wstring value = static_cast<const wchar_t*>(filter.Value);
  switch (filter.Type) {
    case VEL_CERT_FILTER_SUBJECT_SN:
      return value == cert.serial;
    case VEL_CERT_FILTER_KEY_SPEC:
      return (std::stoi(value) & cert.keySpec) != 0;
    case VEL_CERT_FILTER_KEY_ATTR_TYPE:
      return std::stoi(value) == cert.keyStatus;
    case VEL_CERT_FILTER_KEY_USAGE:
      return value != L"2" || cert.keyUsageSigns;
    default:
      return true;
  }
}

bool Passes(const FakeCert& cert, ISmartList<tag_VEL_CERT_FILTER_ITEM>& filters) {
  for (int i = 0; i < filters.GetCount(); ++i) {
    if (!PassesOne(cert, filters.GetItem(i))) return false;
  }
  return true;
}
