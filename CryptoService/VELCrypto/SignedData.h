#pragma once
// PKCS#7 SignedData, version 1, one signer, without signed attributes: what is signed is the
// content itself, so a bare signature can be wrapped later into the same structure. RSA with the
// identifiers of PKCS#7 (RFC 2315), SM2 with those of GM/T 0010.
#include <vector>

#include "OpenSsl.h"
#include "Outcome.h"
#include "VelKeyTypes.h"

namespace velcrypto {

struct SignedDataParts {
  X509* signer = nullptr;
  VEL_HASH_ALG hashAlg = VEL_HASH_ALG_UNKNOWN;
  const std::vector<BYTE>* signature = nullptr;
  const BYTE* content = nullptr;  // left out when `detached`
  size_t contentSize = 0;
  bool detached = false;
  std::vector<X509*> certificates;  // that go with it; the signer's first
};

class SignedDataWriter {
 public:
  SignedDataWriter() = default;
  ~SignedDataWriter();
  SignedDataWriter(const SignedDataWriter&) = delete;
  SignedDataWriter& operator=(const SignedDataWriter&) = delete;

  // Nothing of `parts` is copied but names and signature: the content must live as long as this.
  // kInvalidMechanism for a digest that does not go with the signer's key.
  Outcome Assemble(const SignedDataParts& parts);

  size_t Size() const { return m_size; }  // bytes that Write will write

  // Writes the DER form.
  Outcome Write(BYTE* target) const;

 private:
  ASN1_VALUE* m_message = nullptr;
  size_t m_size = 0;
};

}  // namespace velcrypto
