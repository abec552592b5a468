#pragma once
// The content of one PKCS#12 file: a private key encrypted with the PIN, its certificate and, if
// given, the certificates above it. The certificates are read without the PIN, so they must not be
// encrypted; the MAC, which needs the PIN, is checked when the key is opened.
#include <string>
#include <vector>

#include "../OpenSsl.h"
#include "../Secret.h"

namespace velcrypto {

struct Pkcs12Content {
  X509Ptr certificate;                     // the key's; null when it is encrypted
  std::vector<std::vector<BYTE>> issuers;  // DER, nearest first
  bool hasKey = false;
};

// Reads what needs no PIN. kFileContentWrong with the reason for what is no PKCS#12 file, has no
// MAC, an unprotected key or several keys.
Outcome ReadPkcs12(const std::vector<BYTE>& file, Pkcs12Content* content);

// Decrypts the key and checks that it belongs to the certificate. kPinWrong, kKeyNotFound.
Outcome OpenPkcs12Key(const std::vector<BYTE>& file, const Secret& pin, const BYTE* certificate,
                      size_t certificateSize, KeyPtr* key);

// The same file with another PIN. What was encrypted is encrypted again, the rest is kept.
Outcome WithNewPin(const std::vector<BYTE>& file, const Secret& oldPin, const Secret& newPin,
                   std::vector<BYTE>* changed);

}  // namespace velcrypto
