#pragma once
// Certificates and keys made with the openssl program: an RSA and an SM2 identity of one
// certificate authority, and a key store to put them in.
#include <string>

#include "Program.h"

struct Identity {
  std::string certificate;  // file, PEM
  std::string pkcs12;       // file: key and certificate, the certificate readable without the PIN
  std::string serial;       // upper-case hexadecimal
  std::string name;         // common name
};

class Identities {
 public:
  static constexpr char kPin[] = "12345678";

  Identities();

  const std::string& Authority() const { return m_authority; }  // file, PEM
  const Identity& Rsa() const { return m_rsa; }
  const Identity& Sm2() const { return m_sm2; }

  // Another identity. The stem names its files; the usage is written as in an openssl
  // configuration.
  Identity Make(const std::string& stem, const std::string& name, bool sm2,
                const std::string& usage = "digitalSignature,nonRepudiation") const;

 private:
  TemporaryFolder m_folder;
  std::string m_authority;
  Identity m_rsa;
  Identity m_sm2;
};

// The identities of this process, made on first use: making keys takes its time.
const Identities& SharedIdentities();

// Copies the identity into the folder of a key store.
void PutInto(const std::string& keyStore, const Identity& identity);
