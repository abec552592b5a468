#include "DeviceManager.h"
#include "SignedData.h"
#include "Signing.h"

namespace velcrypto {

Outcome DeviceManager::SignDigest(Found* found, EVP_PKEY* publicKey,
                                  const std::vector<BYTE>& digest, std::vector<BYTE>* signature) {
  Secret pin;
  Outcome outcome = Unlock(found, &pin);
  if (!outcome.ok()) return outcome;
  outcome = found->backend->SignDigest(found->identity(), pin.empty() ? nullptr : &pin, digest,
                                       signature);
  return outcome.ok() ? VerifyDigest(publicKey, digest, *signature) : outcome;
}

Outcome DeviceManager::Sign(const Request& request, Signed* result) {
  if (request.certificate == nullptr || request.data == nullptr || request.result == nullptr) {
    return kInvalidParameter;
  }
  Found& found = result->found;
  Outcome outcome = FindByRecord(*request.certificate, Look::kKnown, &found);
  if (!outcome.ok()) return outcome;
  if (!found.identity().hasKey) return {kKeyNotFound, 0, "a certificate without a key"};
  X509* const certificate = found.identity().facts->parsed.get();
  X509_up_ref(certificate);
  result->signer.reset(certificate);
  EVP_PKEY* const publicKey = X509_get0_pubkey(result->signer.get());
  std::vector<BYTE> digest;
  outcome = DigestForSigning(publicKey, request.hashAlg, request.data, request.size, &digest);
  if (!outcome.ok()) return outcome;
  return NotePinState(found, SignDigest(&found, publicKey, digest, &result->signature), nullptr);
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
