#include "CertFacts.h"

#include <openssl/x509v3.h>

#include "DistinguishedName.h"
#include "Text.h"

namespace velcrypto {

namespace {

using BitStringPtr = Owned<ASN1_BIT_STRING, ASN1_BIT_STRING_free>;
using GeneralNamesPtr = Owned<GENERAL_NAMES, GENERAL_NAMES_free>;

std::string SerialOf(const X509* certificate) {
  const ASN1_INTEGER* const serial = X509_get0_serialNumber(certificate);
  const std::string digits =
      Hex(ASN1_STRING_get0_data(serial), static_cast<size_t>(ASN1_STRING_length(serial)));
  return ASN1_STRING_type(serial) == V_ASN1_NEG_INTEGER ? "-" + digits : digits;
}

bool ReadTime(const ASN1_TIME* source, SYSTEMTIME* target, time_t* seconds) {
  tm parts = {};
  if (ASN1_TIME_to_tm(source, &parts) != 1) return false;
  target->wYear = static_cast<WORD>(parts.tm_year + 1900);
  target->wMonth = static_cast<WORD>(parts.tm_mon + 1);
  target->wDayOfWeek = static_cast<WORD>(parts.tm_wday);
  target->wDay = static_cast<WORD>(parts.tm_mday);
  target->wHour = static_cast<WORD>(parts.tm_hour);
  target->wMinute = static_cast<WORD>(parts.tm_min);
  target->wSecond = static_cast<WORD>(parts.tm_sec);
  *seconds = timegm(&parts);
  return true;
}

// The bits of the key-usage extension, bit 0 = digitalSignature; false without the extension.
bool ReadKeyUsage(const X509* certificate, DWORD* bits) {
  const BitStringPtr usage(static_cast<ASN1_BIT_STRING*>(
      X509_get_ext_d2i(certificate, NID_key_usage, nullptr, nullptr)));
  if (usage == nullptr) return false;
  for (int bit = 0; bit <= 8; ++bit) {
    if (ASN1_BIT_STRING_get_bit(usage.get(), bit)) *bits |= DWORD{1} << bit;
  }
  return true;
}

VEL_KEY_SPEC KeySpecOf(bool hasKeyUsage, DWORD bits) {
  if (!hasKeyUsage) return VEL_KEY_SPEC_SIGNATURE_AND_EXCHANGE;
  return static_cast<VEL_KEY_SPEC>(
      ((bits & kSigningBits) != 0 ? VEL_KEY_SPEC_SIGNATURE : VEL_KEY_SPEC_UNKNOWN) |
      ((bits & kEncryptionBits) != 0 ? VEL_KEY_SPEC_EXCHANGE : VEL_KEY_SPEC_UNKNOWN));
}

std::vector<std::wstring> EmailsOf(X509* certificate) {
  std::vector<std::wstring> emails;
  const std::string subject = LastEntry(X509_get_subject_name(certificate), NID_pkcs9_emailAddress);
  if (!subject.empty()) emails.push_back(Wide(subject));
  const GeneralNamesPtr names(static_cast<GENERAL_NAMES*>(
      X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
  for (int i = 0; i < sk_GENERAL_NAME_num(names.get()); ++i) {
    const GENERAL_NAME* const name = sk_GENERAL_NAME_value(names.get(), i);
    if (name->type != GEN_EMAIL) continue;
    const char* const text =
        reinterpret_cast<const char*>(ASN1_STRING_get0_data(name->d.rfc822Name));
    emails.push_back(
        Wide(std::string(text, static_cast<size_t>(ASN1_STRING_length(name->d.rfc822Name)))));
  }
  return emails;
}

void ReadNames(X509* certificate, tag_VEL_CERT_INFO* record) {
  const X509_NAME* const subject = X509_get_subject_name(certificate);
  const X509_NAME* const issuer = X509_get_issuer_name(certificate);
  record->SubjectCN = Wide(LastEntry(subject, NID_commonName)).c_str();
  record->SubjectDN = Wide(NameText(subject, NameOrder::kSpecificFirst)).c_str();
  record->IssuerCN = Wide(LastEntry(issuer, NID_commonName)).c_str();
  record->IssuerDN = Wide(NameText(issuer, NameOrder::kSpecificFirst)).c_str();
  record->IssuerReverseDN = Wide(NameText(issuer, NameOrder::kSpecificLast)).c_str();
}

bool ReadDer(X509* certificate, std::vector<BYTE>* der) {
  const int size = i2d_X509(certificate, nullptr);
  if (size <= 0) return false;
  der->resize(static_cast<size_t>(size));
  BYTE* at = der->data();
  return i2d_X509(certificate, &at) == size;
}

std::string Fingerprint(const std::vector<BYTE>& der) {
  BYTE hash[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  if (EVP_Digest(der.data(), der.size(), hash, &size, EVP_sha256(), nullptr) != 1) return {};
  return Hex(hash, size);
}

}  // namespace

VEL_ASYMM_ALG AlgorithmOf(const EVP_PKEY* key) {
  if (key == nullptr) return VEL_ASYMM_ALG_UNKNOWN;
  if (EVP_PKEY_is_a(key, "RSA") == 1) return VEL_ASYMM_ALG_RSA;
  if (EVP_PKEY_is_a(key, "SM2") == 1) return VEL_ASYMM_ALG_SM2;
  return VEL_ASYMM_ALG_UNKNOWN;
}

CertFactsPtr FactsOf(X509* certificate) {
  auto facts = std::make_shared<CertFacts>();
  tag_VEL_CERT_INFO& record = facts->record;
  if (!ReadDer(certificate, &facts->der) ||
      !ReadTime(X509_get0_notBefore(certificate), &record.EffectiveInfo, &facts->notBefore) ||
      !ReadTime(X509_get0_notAfter(certificate), &record.ExpiredInfo, &facts->notAfter)) {
    return nullptr;
  }
  X509_up_ref(certificate);
  facts->parsed.reset(certificate);
  record.VELCertUniqueID = Wide(Fingerprint(facts->der)).c_str();
  record.CertBase64 = Wide(Base64(facts->der.data(), facts->der.size())).c_str();
  ReadNames(certificate, &record);
  record.SerialNumber = Wide(SerialOf(certificate)).c_str();
  record.Version = std::to_wstring(X509_get_version(certificate) + 1).c_str();
  record.AsymmAlg = AlgorithmOf(X509_get0_pubkey(certificate));
  DWORD keyUsage = 0;  // the record's own may lie at an odd address
  facts->hasKeyUsage = ReadKeyUsage(certificate, &keyUsage);
  record.KeyUsage = keyUsage;
  record.KeySpec = KeySpecOf(facts->hasKeyUsage, keyUsage);
  facts->emails = EmailsOf(certificate);
  if (!facts->emails.empty()) record.SubjectEmail = facts->emails.front().c_str();
  return facts;
}

}  // namespace velcrypto
