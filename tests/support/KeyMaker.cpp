#include "KeyMaker.h"

#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/pkcs12.h>
#include <openssl/x509v3.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace keymaker {

namespace {

const char kSm2UserId[] = "1234567812345678";

void Require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

std::shared_ptr<EVP_PKEY> NewKey(Kind kind) {
  EVP_PKEY* key = nullptr;
  if (kind == Kind::kRsa) {
    key = EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", size_t{2048});
  } else if (kind == Kind::kSm2) {
    key = EVP_PKEY_Q_keygen(nullptr, nullptr, "SM2");
  } else {
    key = EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256");
  }
  Require(key != nullptr, "key generation");
  return {key, EVP_PKEY_free};
}

std::shared_ptr<EVP_PKEY> KeyFor(Kind kind, bool fresh) {
  static const std::shared_ptr<EVP_PKEY> rsa = NewKey(Kind::kRsa);
  return kind == Kind::kRsa && !fresh ? rsa : NewKey(kind);
}

void SetName(X509_NAME* name, const Request& request) {
  for (const auto& part : request.subject) {
    Require(X509_NAME_add_entry_by_txt(name, part.first.c_str(), MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(part.second.data()),
                                       static_cast<int>(part.second.size()), -1, 0) == 1,
            "name");
  }
}

void AddExtension(X509* certificate, int nid, const std::string& value) {
  if (value.empty()) return;
  X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, nid, value.c_str());
  Require(extension != nullptr && X509_add_ext(certificate, extension, -1) == 1, "extension");
  X509_EXTENSION_free(extension);
}

void SetSerial(X509* certificate, const std::string& hex) {
  BIGNUM* number = nullptr;
  Require(BN_hex2bn(&number, hex.c_str()) > 0, "serial");
  BN_to_ASN1_INTEGER(number, X509_get_serialNumber(certificate));
  BN_free(number);
}

void Sign(X509* certificate, EVP_PKEY* key) {
  const bool sm2 = EVP_PKEY_is_a(key, "SM2") == 1;
  EVP_MD_CTX* const context = EVP_MD_CTX_new();
  EVP_PKEY_CTX* keyContext = nullptr;
  Require(
      EVP_DigestSignInit(context, &keyContext, sm2 ? EVP_sm3() : EVP_sha256(), nullptr, key) == 1,
      "sign init");
  if (sm2) EVP_PKEY_CTX_set1_id(keyContext, kSm2UserId, sizeof(kSm2UserId) - 1);
  Require(X509_sign_ctx(certificate, context) > 0, "sign certificate");
  EVP_MD_CTX_free(context);
}

}  // namespace

Bytes Identity::Der() const {
  Bytes der(static_cast<size_t>(i2d_X509(certificate.get(), nullptr)));
  unsigned char* at = der.data();
  i2d_X509(certificate.get(), &at);
  return der;
}

std::string Identity::SerialHex() const {
  BIGNUM* const number = ASN1_INTEGER_to_BN(X509_get0_serialNumber(certificate.get()), nullptr);
  char* const text = BN_bn2hex(number);
  const std::string hex = text;
  OPENSSL_free(text);
  BN_free(number);
  return hex;
}

Identity Make(const Request& request, const Identity* issuer, bool freshKey) {
  Identity made;
  made.key = KeyFor(request.kind, freshKey);
  made.certificate = {X509_new(), X509_free};
  X509* const certificate = made.certificate.get();
  X509_set_version(certificate, X509_VERSION_3);
  SetSerial(certificate, request.serial);
  SetName(X509_get_subject_name(certificate), request);
  X509_set_issuer_name(certificate, issuer == nullptr
                                        ? X509_get_subject_name(certificate)
                                        : X509_get_subject_name(issuer->certificate.get()));
  X509_gmtime_adj(X509_getm_notBefore(certificate), request.fromSeconds);
  X509_gmtime_adj(X509_getm_notAfter(certificate), request.toSeconds);
  X509_set_pubkey(certificate, made.key.get());
  if (request.authority) AddExtension(certificate, NID_basic_constraints, "critical,CA:TRUE");
  AddExtension(certificate, NID_key_usage, request.keyUsage);
  AddExtension(certificate, NID_subject_alt_name, request.altName);
  Sign(certificate, issuer == nullptr ? made.key.get() : issuer->key.get());
  return made;
}

Bytes Pkcs12(const Identity& identity, const std::string& pin, const Pkcs12Options& options) {
  STACK_OF(X509)* const above = sk_X509_new_null();
  for (const Identity& issuer : options.issuers) sk_X509_push(above, issuer.certificate.get());
  // Few rounds: the tests open many files.
  PKCS12* const file = PKCS12_create(
      pin.c_str(), nullptr, options.withKey ? identity.key.get() : nullptr,
      identity.certificate.get(), above, options.encryptKey ? NID_aes_256_cbc : -1,
      options.encryptCertificates ? NID_aes_256_cbc : -1, 100, options.withMac ? 100 : -1, 0);
  sk_X509_free(above);
  Require(file != nullptr, "PKCS12_create");
  Bytes der(static_cast<size_t>(i2d_PKCS12(file, nullptr)));
  unsigned char* at = der.data();
  i2d_PKCS12(file, &at);
  PKCS12_free(file);
  return der;
}

std::shared_ptr<EVP_PKEY> OpenPkcs12(const Bytes& file, const std::string& pin) {
  const unsigned char* at = file.data();
  PKCS12* const parsed = d2i_PKCS12(nullptr, &at, static_cast<long>(file.size()));
  EVP_PKEY* key = nullptr;
  if (parsed != nullptr) PKCS12_parse(parsed, pin.c_str(), &key, nullptr, nullptr);
  PKCS12_free(parsed);
  ERR_clear_error();
  return {key, EVP_PKEY_free};
}

bool Verifies(EVP_PKEY* key, const char* digest, const Bytes& data, const Bytes& signature) {
  EVP_MD_CTX* const context = EVP_MD_CTX_new();
  EVP_PKEY_CTX* keyContext = nullptr;
  bool good =
      EVP_DigestVerifyInit(context, &keyContext, EVP_get_digestbyname(digest), nullptr, key) == 1;
  if (good && EVP_PKEY_is_a(key, "SM2") == 1) {
    good = EVP_PKEY_CTX_set1_id(keyContext, kSm2UserId, sizeof(kSm2UserId) - 1) == 1;
  }
  good = good && EVP_DigestVerify(context, signature.data(), signature.size(), data.data(),
                                  data.size()) == 1;
  EVP_MD_CTX_free(context);
  ERR_clear_error();
  return good;
}

Bytes ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

void WriteFile(const std::string& path, const Bytes& content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(content.data()),
             static_cast<std::streamsize>(content.size()));
  file.close();
  Require(file.good(), "write file");
}

TemporaryFolder::TemporaryFolder() {
  char name[] = "/tmp/vel-test.XXXXXX";
  Require(mkdtemp(name) != nullptr, "mkdtemp");
  m_path = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(m_path, ignored);
}

}  // namespace keymaker
