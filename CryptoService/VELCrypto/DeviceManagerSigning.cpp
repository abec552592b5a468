#include "DeviceManager.h"
#include "SignedData.h"
#include "Signing.h"
#include "Text.h"

namespace velcrypto {

// A PIN that was given serves one try, so a wrong one cannot lock the key by being used again.
Outcome DeviceManager::TakePin(const Found& found, Secret* pin) {
  const auto given = m_pins.find(Folded(found.identity().facts->record.VELCertUniqueID));
  if (given != m_pins.end() && !given->second.empty()) {
    *pin = std::move(given->second);
    m_pins.erase(given);
    return kOk;
  }
  if (!m_mustAsk && found.backend->IsLoggedIn(found.identity())) return kOk;
  return {kNotLoggedIn, 0, m_mayAsk ? "there is no PIN dialog" : "the PIN dialog is off"};
}

Outcome DeviceManager::SignDigest(const Found& found, EVP_PKEY* publicKey,
                                  const std::vector<BYTE>& digest, std::vector<BYTE>* signature) {
  Secret pin;
  Outcome outcome = TakePin(found, &pin);
  if (!outcome.ok()) return outcome;
  outcome =
      found.backend->SignDigest(found.identity(), pin.empty() ? nullptr : &pin, digest, signature);
  return outcome.ok() ? VerifyDigest(publicKey, digest, *signature) : outcome;
}

Outcome DeviceManager::Sign(const Request& request, Signed* result) {
  if (request.certificate == nullptr || request.data == nullptr || request.result == nullptr) {
    return kInvalidParameter;
  }
  Found& found = result->found;
  Outcome outcome = FindByRecord(*request.certificate, &found);
  if (!outcome.ok()) return outcome;
  const Identity& identity = found.identity();
  if (!identity.hasKey) return {kKeyNotFound, 0, "a certificate without a key"};
  result->signer = ParseCertificate(identity.facts->der.data(), identity.facts->der.size());
  EVP_PKEY* const publicKey = X509_get0_pubkey(result->signer.get());
  std::vector<BYTE> digest;
  outcome = DigestForSigning(publicKey, request.hashAlg, request.data, request.size, &digest);
  if (!outcome.ok()) return outcome;
  return NotePinState(found, SignDigest(found, publicKey, digest, &result->signature), nullptr);
}

ULONG DeviceManager::P1Sign(VEL_CERT_INFO* pCert, VEL_HASH_ALG hashAlg, BYTE* pData, DWORD nSize,
                            IBuffer* pSignature) {
  return Recorded("P1Sign", [&](std::string& device) -> Outcome {
    Signed result;
    const Outcome outcome = Sign({pCert, hashAlg, pData, nSize, pSignature}, &result);
    if (result.found.backend != nullptr) device = result.found.device();
    if (!outcome.ok()) return outcome;
    const unsigned size = static_cast<unsigned>(result.signature.size());
    return pSignature->SetBuffer(result.signature.data(), size) ? kOk : kOutOfMemory;
  });
}

ULONG DeviceManager::P7Sign(VEL_CERT_INFO* pCert, VEL_HASH_ALG hashAlg, BOOL bDetach,
                            BOOL bIncludeCert, BYTE* pData, DWORD nSize, IBuffer* pSignature) {
  return Recorded("P7Sign", [&](std::string& device) -> Outcome {
    const Request request = {pCert, hashAlg, pData, nSize, pSignature};
    Signed result;
    const Outcome outcome = Sign(request, &result);
    if (result.found.backend != nullptr) device = result.found.device();
    return outcome.ok() ? WriteP7(request, result, bDetach != FALSE, bIncludeCert != FALSE)
                        : outcome;
  });
}

Outcome DeviceManager::WriteP7(const Request& request, const Signed& result, bool detached,
                               bool withCertificates) {
  SignedDataParts parts;
  parts.signer = result.signer.get();
  parts.hashAlg = request.hashAlg;
  parts.signature = &result.signature;
  parts.content = request.data;
  parts.contentSize = request.size;
  parts.detached = detached;
  std::vector<X509Ptr> issuers;
  if (withCertificates) {
    parts.certificates.push_back(result.signer.get());
    for (const std::vector<BYTE>& der : result.found.identity().issuers) {
      issuers.push_back(ParseCertificate(der.data(), der.size()));
      if (issuers.back() != nullptr) parts.certificates.push_back(issuers.back().get());
    }
  }
  SignedDataWriter writer;
  const Outcome outcome = writer.Assemble(parts);
  if (!outcome.ok()) return outcome;
  if (request.result->Alloc(static_cast<unsigned>(writer.Size())) == nullptr) return kOutOfMemory;
  return writer.Write(request.result->GetBytes());
}

}  // namespace velcrypto
