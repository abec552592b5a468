#pragma once
// Verification by a second library.
#include <string>
#include <vector>

namespace botanverify {

using Bytes = std::vector<unsigned char>;

// `certificate` is DER. RSA: PKCS#1 v1.5 with this digest. SM2: SM3, user id 1234567812345678.
bool Verifies(const Bytes& certificate, const std::string& digest, const Bytes& data,
              const Bytes& signature);

// A SignedData of one signer without attributes, taken apart by strict DER rules.
struct SignedData {
  std::string type, contentType;  // object identifiers in dotted form
  std::string digest, signerDigest, encryption;
  Bytes digestParameters, encryptionParameters;  // DER; empty when absent
  unsigned long version = 0, signerVersion = 0;
  bool detached = false;
  Bytes content;
  std::vector<Bytes> certificates;
  Bytes issuer;        // DER
  std::string serial;  // decimal
  Bytes signature;
};

// Throws when the structure is another, or bytes follow it.
SignedData Parse(const Bytes& der);

// Of a certificate: the DER of the issuer's name and the serial number in decimal.
Bytes IssuerOf(const Bytes& certificate);
std::string SerialOf(const Bytes& certificate);

}  // namespace botanverify
