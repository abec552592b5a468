#pragma once
// Verification by Botan, a library that shares no code with OpenSSL. Everything throws
// std::exception with the reason when it does not hold.
#include <string>

// Bytes throughout; `certificate` is the signer's in DER or PEM.

// A bare signature: RSA with PKCS#1 v1.5 padding and the digest as Botan names it ("SHA-1"), or
// SM2 with SM3 and the user id 1234567812345678 as DER.
void VerifyBare(const std::string& signature, const std::string& content,
                const std::string& certificate, const std::string& digest);

// A PKCS#7 structure of one signer, taken apart strictly: version 1, the PKCS#7 identifiers for RSA
// or those of GM/T 0010 for SM2, the signer's certificate inside, no attributes, and the signature
// over the content itself.
// attached  whether the content must be inside; when not, it must not be.
void VerifyPkcs7(const std::string& structure, const std::string& content,
                 const std::string& certificate, const std::string& digest, bool attached);
