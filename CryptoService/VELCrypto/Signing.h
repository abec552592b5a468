#pragma once
// The arithmetic around a signature: what is handed to the key, and the check of what comes back.
#include <vector>

#include "OpenSsl.h"
#include "Outcome.h"
#include "VelKeyTypes.h"

namespace velcrypto {

// OpenSSL's number of the digest; NID_undef for UNKNOWN, and for MD2, which is nowhere to be had.
int DigestNid(VEL_HASH_ALG hashAlg);

// Digests `data` for a signature that verifies with `publicKey`: for RSA a DigestInfo, for SM2
// e = SM3(Z || data) with the user id 1234567812345678. kInvalidMechanism for a digest that is
// missing or does not go with the key; kKeyTypeWrong for other keys.
Outcome DigestForSigning(const EVP_PKEY* publicKey, VEL_HASH_ALG hashAlg, const BYTE* data,
                         size_t size, std::vector<BYTE>* digest);

// Signs what DigestForSigning gave with a key that OpenSSL can use.
Outcome SignWithKey(EVP_PKEY* privateKey, const std::vector<BYTE>& digest,
                    std::vector<BYTE>* signature);

// kSignatureInvalid unless the signature of `digest` holds.
Outcome VerifyDigest(EVP_PKEY* publicKey, const std::vector<BYTE>& digest,
                     const std::vector<BYTE>& signature);

}  // namespace velcrypto
