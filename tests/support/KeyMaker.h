#pragma once
// Keys, certificates and PKCS#12 files for tests, made by OpenSSL when they are needed.
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace keymaker {

using Bytes = std::vector<unsigned char>;

enum class Kind { kRsa, kSm2, kP256 };

struct Request {
  Kind kind = Kind::kRsa;
  // Short names of OpenSSL and UTF-8 values, in the order of the certificate.
  std::vector<std::pair<std::string, std::string>> subject = {{"C", "CN"}, {"CN", "张三"}};
  std::string serial = "01";  // hexadecimal
  std::string keyUsage;       // as in openssl's configuration; empty: no extension
  std::string altName;        // the same
  long fromSeconds = -3600, toSeconds = 86400;  // validity from now
  bool authority = false;
};

// A key and its certificate. Copies share them.
struct Identity {
  std::shared_ptr<EVP_PKEY> key;
  std::shared_ptr<X509> certificate;

  Bytes Der() const;
  std::string SerialHex() const;  // as openssl x509 -serial prints it
};

// RSA keys have 2048 bits; those made without `freshKey` share one, for they take long to find.
Identity Make(const Request& request, const Identity* issuer = nullptr, bool freshKey = false);

struct Pkcs12Options {
  bool encryptCertificates = false;
  bool withMac = true;
  bool encryptKey = true;
  bool withKey = true;
  std::vector<Identity> issuers = {};
};
Bytes Pkcs12(const Identity& identity, const std::string& pin, const Pkcs12Options& options = {});

// The private key of a PKCS#12 file; null when the PIN is wrong.
std::shared_ptr<EVP_PKEY> OpenPkcs12(const Bytes& file, const std::string& pin);

// Whether OpenSSL's one-shot verification accepts the signature of the data; for SM2 with the user
// id 1234567812345678.
bool Verifies(EVP_PKEY* key, const char* digest, const Bytes& data, const Bytes& signature);

Bytes ReadFile(const std::string& path);
void WriteFile(const std::string& path, const Bytes& content);

// A folder that goes with all its files.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  const std::string& path() const { return m_path; }
  std::string operator/(const std::string& name) const { return m_path + "/" + name; }

 private:
  std::string m_path;
};

}  // namespace keymaker
