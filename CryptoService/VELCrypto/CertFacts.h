#pragma once
// What is known about one certificate from its DER form alone. Immutable once made, so listings of
// several managers and threads share it.
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "OpenSsl.h"
#include "VelKeyTypes.h"

namespace velcrypto {

struct CertFacts {
  std::vector<BYTE> der;
  X509Ptr parsed;  // to be read only; OpenSSL may take its time to read it again
  // The fields that follow from the certificate; those of device and key family are empty.
  tag_VEL_CERT_INFO record;
  std::vector<std::wstring> emails;  // of the subject and the alternative names
  bool hasKeyUsage = false;
  time_t notBefore = 0;
  time_t notAfter = 0;
};
using CertFactsPtr = std::shared_ptr<const CertFacts>;

// Null when a field cannot be read. Certificates of other keys than RSA and SM2 come out with
// VEL_ASYMM_ALG_UNKNOWN.
CertFactsPtr FactsOf(X509* certificate);

// RSA, SM2, or unknown.
VEL_ASYMM_ALG AlgorithmOf(const EVP_PKEY* key);

enum KeyUsageBits : DWORD {
  kSigningBits = 1 << 0 | 1 << 1,             // digitalSignature, nonRepudiation
  kEncryptionBits = 1 << 2 | 1 << 3 | 1 << 4  // keyEncipherment, dataEncipherment, keyAgreement
};

}  // namespace velcrypto
