#include "Contents.h"

#include <openssl/core_names.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <tuple>

#include "../Text.h"
#include "Token.h"

namespace velcrypto {

namespace {

using BigNumberPtr = Owned<BIGNUM, BN_free>;

std::string IdOf(const CertFacts& facts) {
  return Narrow(facts.record.VELCertUniqueID);
}

Bytes Stripped(const Bytes& number) {
  return {std::find_if(number.begin(), number.end(), [](BYTE b) { return b != 0; }), number.end()};
}

std::string SubjectOf(const X509* certificate) {
  const unsigned char* der = nullptr;
  size_t size = 0;
  X509_NAME_get0_der(X509_get_subject_name(certificate), &der, &size);
  return {reinterpret_cast<const char*>(der), size};
}

std::string IssuerOf(const X509* certificate) {
  const unsigned char* der = nullptr;
  size_t size = 0;
  X509_NAME_get0_der(X509_get_issuer_name(certificate), &der, &size);
  return {reinterpret_cast<const char*>(der), size};
}

}  // namespace

const std::vector<CK_ATTRIBUTE_TYPE>& KeyAttributes() {
  static const auto* const types =
      new std::vector<CK_ATTRIBUTE_TYPE>{CKA_ID, CKA_MODULUS, CKA_ALWAYS_AUTHENTICATE};
  return *types;
}

Bytes ModulusOf(const X509* certificate) {
  BIGNUM* number = nullptr;
  const EVP_PKEY* const key = X509_get0_pubkey(certificate);
  if (AlgorithmOf(key) != VEL_ASYMM_ALG_RSA ||
      EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_N, &number) != 1) {
    return {};
  }
  const BigNumberPtr owner(number);
  Bytes modulus(static_cast<size_t>(BN_num_bytes(number)));
  BN_bn2bin(number, modulus.data());
  return modulus;
}

Bytes ModulusOf(const Attributes& key) {
  return Stripped(ValueOf(key, CKA_MODULUS));
}

void Contents::Keys::Add(const Attributes& key) {
  Bytes modulus = ModulusOf(key);
  if (modulus.empty()) {
    otherIds.insert(ValueOf(key, CKA_ID));
  } else {
    moduli.insert(std::move(modulus));
  }
}

// Ids repeat and are missing on some tokens, so a modulus has the first word.
bool Contents::Keys::Hold(const Certificate& certificate) const {
  return (!certificate.modulus.empty() && moduli.count(certificate.modulus) != 0) ||
         (!certificate.id.empty() && otherIds.count(certificate.id) != 0);
}

// Private keys hide until somebody logs in. Until then a public key beside the certificate tells
// of its private one. Tokens without public keys leave only guessing: nobody would have a use for
// a user's certificate without its key there, so it counts as there, until a login has told.
bool Contents::HasKey(const Certificate& certificate, const Seen& seen) const {
  if (seen.privateKeys.Hold(certificate)) return true;
  if (seen.loggedIn) return false;
  const auto known = m_keyKnown.find(IdOf(*certificate.facts));
  if (known != m_keyKnown.end()) return known->second;
  if (seen.publicKeys.Hold(certificate)) return true;
  return seen.publicKeys.empty() && seen.privateKeys.empty() && !certificate.authority;
}

CK_RV Contents::ReadCertificates(const SessionHandle& session,
                                 std::vector<Certificate>* certificates) {
  std::vector<CK_OBJECT_HANDLE> handles;
  CK_RV result = FindObjects(
      session, Template().Add(CKA_CLASS, CKO_CERTIFICATE).Add(CKA_CERTIFICATE_TYPE, CKC_X_509),
      &handles);
  for (const CK_OBJECT_HANDLE handle : handles) {
    Attributes values;
    if (result == CKR_OK) {
      result = ReadAttributes(session, handle,
                              {CKA_VALUE, CKA_ID, CKA_LABEL, CKA_CERTIFICATE_CATEGORY}, &values);
    }
    if (result != CKR_OK) return result;
    Certificate certificate;
    certificate.der = ValueOf(values, CKA_VALUE);
    certificate.id = ValueOf(values, CKA_ID);
    certificate.label = ValueOf(values, CKA_LABEL);
    certificate.authority = NumberOf(values, CKA_CERTIFICATE_CATEGORY, 0) == 2;
    certificates->push_back(std::move(certificate));
  }
  return result;
}

CK_RV Contents::Read(const SessionHandle& session, Seen* seen) {
  const auto readKeys = [&](CK_OBJECT_CLASS kind, Keys* keys) {
    std::vector<CK_OBJECT_HANDLE> handles;
    CK_RV result = FindObjects(session, Template().Add(CKA_CLASS, kind), &handles);
    for (const CK_OBJECT_HANDLE handle : handles) {
      Attributes values;
      if (result == CKR_OK) result = ReadAttributes(session, handle, KeyAttributes(), &values);
      keys->Add(values);
    }
    return result;
  };
  CK_RV result = ReadCertificates(session, &seen->certificates);
  if (result != CKR_OK || seen->certificates.empty()) return result;
  result = readKeys(CKO_PRIVATE_KEY, &seen->privateKeys);
  return result == CKR_OK ? readKeys(CKO_PUBLIC_KEY, &seen->publicKeys) : result;
}

Outcome Contents::Parse(Certificate* certificate) const {
  certificate->parsed = ParseCertificate(certificate->der.data(), certificate->der.size());
  if (certificate->parsed != nullptr) {
    const auto known = m_facts.find(certificate->der);
    certificate->facts =
        known != m_facts.end() ? known->second : FactsOf(certificate->parsed.get());
  }
  if (certificate->facts == nullptr) return {kFileContentWrong, 0, "the certificate is broken"};
  const tag_VEL_CERT_INFO& record = certificate->facts->record;
  if (record.AsymmAlg == VEL_ASYMM_ALG_UNKNOWN) {
    return {kKeyTypeWrong, 0, "the key is neither RSA nor SM2"};
  }
  certificate->modulus = ModulusOf(certificate->parsed.get());
  certificate->authority |= X509_check_ca(certificate->parsed.get()) == 1 &&
                            certificate->facts->hasKeyUsage &&
                            (record.KeyUsage & kSigningBits) == 0;
  return kOk;
}

// Drops what cannot be used, doubles included.
void Contents::ParseAll(std::vector<Certificate>* certificates, const TokenNames& names) {
  std::map<Bytes, CertFactsPtr> facts;
  std::vector<Certificate> usable;
  for (Certificate& certificate : *certificates) {
    if (facts.count(certificate.der) != 0) continue;
    const Outcome reason = Parse(&certificate);
    if (!reason.ok()) {
      const std::string id = Hex(certificate.id.data(), certificate.id.size());
      m_skipped.push_back({names.label + "/" + id, reason});
      continue;
    }
    facts.emplace(certificate.der, certificate.facts);
    usable.push_back(std::move(certificate));
  }
  m_facts = std::move(facts);
  *certificates = std::move(usable);
}

// One that stands above another on the same token is an authority's, too.
void Contents::FindIssuers(std::vector<Certificate>* certificates) {
  std::multimap<std::string, Certificate*> bySubject;
  for (Certificate& certificate : *certificates) {
    bySubject.emplace(SubjectOf(certificate.parsed.get()), &certificate);
  }
  const auto above = [&](const Certificate& certificate) -> Certificate* {
    X509* const below = certificate.parsed.get();
    if (X509_self_signed(below, 0) == 1) return nullptr;
    const auto range = bySubject.equal_range(IssuerOf(below));
    const auto found = std::find_if(range.first, range.second, [&](const auto& entry) {
      return X509_check_issued(entry.second->parsed.get(), below) == X509_V_OK;
    });
    return found == range.second ? nullptr : found->second;
  };
  for (Certificate& certificate : *certificates) {
    Certificate* issuer = above(certificate);
    while (issuer != nullptr && certificate.issuers.size() < certificates->size()) {
      issuer->authority = true;
      certificate.issuers.push_back(issuer->der);
      issuer = above(*issuer);
    }
  }
}

void Contents::MakeIdentities(const Seen& seen, const TokenNames& names,
                              const std::shared_ptr<Token>& token) {
  for (const Certificate& certificate : seen.certificates) {
    auto identity = std::make_shared<TokenIdentity>();
    identity->facts = certificate.facts;
    identity->issuers = certificate.issuers;
    identity->hasKey = HasKey(certificate, seen);
    identity->application = names.serial;
    identity->container = Hex(certificate.id.data(), certificate.id.size());
    identity->device = names.label;
    identity->id = names.key + "/" + IdOf(*certificate.facts);
    identity->login = names.key;
    identity->token = token;
    identity->keyId = certificate.id;
    if (seen.loggedIn) m_keyKnown[IdOf(*certificate.facts)] = identity->hasKey;
    m_identities.push_back(std::move(identity));
  }
}

void Contents::Forget() {
  m_handles.clear();
  m_keyKnown.clear();
}

// A listing that took a missing key for one that hides is not to be repeated.
void Contents::NoteKey(const std::string& certificateId, bool found) {
  m_keyKnown[certificateId] = found;
  if (!found) m_handles.clear();
}

CK_RV Contents::FindAll(const SessionHandle& session, Handles* handles) {
  const CK_RV result = FindObjects(session, Template(), handles);
  std::sort(handles->begin(), handles->end());
  return result;
}

bool Contents::AreSame(const SessionHandle& session, bool loggedIn) const {
  Handles handles;
  return loggedIn == m_loggedIn && FindAll(session, &handles) == CKR_OK && !handles.empty() &&
         handles == m_handles;
}

CK_RV Contents::Refresh(const SessionHandle& session, bool loggedIn, const TokenNames& names,
                        const std::shared_ptr<Token>& token) {
  Handles handles;
  CK_RV result = FindAll(session, &handles);
  if (result != CKR_OK) return result;
  if (!handles.empty() && handles == m_handles && loggedIn == m_loggedIn) return CKR_OK;
  m_handles.clear();
  Seen seen;
  seen.loggedIn = loggedIn;
  result = Read(session, &seen);
  if (result != CKR_OK) return result;
  m_identities.clear();
  m_skipped.clear();
  ParseAll(&seen.certificates, names);
  if (seen.certificates.empty() && m_skipped.empty()) {
    m_skipped.push_back({names.label, {kCertificateNotFound, 0, "the token has no certificates"}});
  }
  FindIssuers(&seen.certificates);
  std::sort(seen.certificates.begin(), seen.certificates.end(),
            [](const Certificate& left, const Certificate& right) {
              return std::tie(left.label, left.id, left.der) <
                     std::tie(right.label, right.id, right.der);
            });
  MakeIdentities(seen, names, token);
  m_handles = std::move(handles);
  m_loggedIn = loggedIn;
  return CKR_OK;
}

}  // namespace velcrypto
