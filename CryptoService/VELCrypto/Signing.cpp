#include "Signing.h"

#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/rsa.h>

#include "CertFacts.h"

namespace velcrypto {

namespace {

using BigNumberPtr = Owned<BIGNUM, BN_free>;
using GroupPtr = Owned<EC_GROUP, EC_GROUP_free>;
using DigestInfoPtr = Owned<X509_SIG, X509_SIG_free>;

const int kSm2FieldBytes = 32;

// OpenSSL 3.0 takes the empty id when none is given, so the id is part of our own Z.
const char kUserId[] = "1234567812345678";
const BYTE kUserIdBits[] = {0x00, 0x80};  // its length, 16 bits, big-endian

bool Update(EVP_MD_CTX* hash, const BIGNUM* number) {
  BYTE bytes[kSm2FieldBytes];
  return number != nullptr && BN_bn2binpad(number, bytes, sizeof(bytes)) == kSm2FieldBytes &&
         EVP_DigestUpdate(hash, bytes, sizeof(bytes)) == 1;
}

bool UpdateParameter(EVP_MD_CTX* hash, const EVP_PKEY* key, const char* name) {
  BIGNUM* number = nullptr;
  if (EVP_PKEY_get_bn_param(key, name, &number) != 1) return false;
  const BigNumberPtr owner(number);
  return Update(hash, number);
}

bool UpdateCurve(EVP_MD_CTX* hash) {
  const GroupPtr group(EC_GROUP_new_by_curve_name(NID_sm2));
  const BigNumberPtr first(BN_new());
  const BigNumberPtr second(BN_new());
  return group != nullptr &&
         EC_GROUP_get_curve(group.get(), nullptr, first.get(), second.get(), nullptr) == 1 &&
         Update(hash, first.get()) && Update(hash, second.get()) &&
         EC_POINT_get_affine_coordinates(group.get(), EC_GROUP_get0_generator(group.get()),
                                         first.get(), second.get(), nullptr) == 1 &&
         Update(hash, first.get()) && Update(hash, second.get());
}

// Z = SM3(ENTL || ID || a || b || xG || yG || xA || yA), GB/T 32918.2.
bool Sm2Z(const EVP_PKEY* key, BYTE* z) {
  const DigestContextPtr hash(EVP_MD_CTX_new());
  return EVP_DigestInit_ex(hash.get(), EVP_sm3(), nullptr) == 1 &&
         EVP_DigestUpdate(hash.get(), kUserIdBits, sizeof(kUserIdBits)) == 1 &&
         EVP_DigestUpdate(hash.get(), kUserId, sizeof(kUserId) - 1) == 1 &&
         UpdateCurve(hash.get()) && UpdateParameter(hash.get(), key, OSSL_PKEY_PARAM_EC_PUB_X) &&
         UpdateParameter(hash.get(), key, OSSL_PKEY_PARAM_EC_PUB_Y) &&
         EVP_DigestFinal_ex(hash.get(), z, nullptr) == 1;
}

Outcome Sm2Digest(const EVP_PKEY* key, const BYTE* data, size_t size, std::vector<BYTE>* digest) {
  BYTE z[kSm2FieldBytes];
  digest->resize(kSm2FieldBytes);
  const DigestContextPtr hash(EVP_MD_CTX_new());
  const bool done = Sm2Z(key, z) && EVP_DigestInit_ex(hash.get(), EVP_sm3(), nullptr) == 1 &&
                    EVP_DigestUpdate(hash.get(), z, sizeof(z)) == 1 &&
                    EVP_DigestUpdate(hash.get(), data, size) == 1 &&
                    EVP_DigestFinal_ex(hash.get(), digest->data(), nullptr) == 1;
  return done ? Outcome() : OpenSslOutcome(kFailed, "SM3");
}

// OpenSSL knows no prefix for SM3 with RSA, hence the DigestInfo is made here for every digest.
Outcome RsaDigestInfo(VEL_HASH_ALG hashAlg, const BYTE* data, size_t size,
                      std::vector<BYTE>* digest) {
  const int nid = DigestNid(hashAlg);
  const EVP_MD* const md = EVP_get_digestbynid(nid);
  BYTE hash[EVP_MAX_MD_SIZE];
  unsigned length = 0;
  if (md == nullptr || EVP_Digest(data, size, hash, &length, md, nullptr) != 1) {
    return OpenSslOutcome(kInvalidMechanism, "digest");
  }
  const DigestInfoPtr info(X509_SIG_new());
  X509_ALGOR* algorithm = nullptr;
  ASN1_OCTET_STRING* value = nullptr;
  if (info == nullptr) return kOutOfMemory;
  X509_SIG_getm(info.get(), &algorithm, &value);
  X509_ALGOR_set0(algorithm, OBJ_nid2obj(nid), V_ASN1_NULL, nullptr);
  BYTE* der = nullptr;
  if (ASN1_OCTET_STRING_set(value, hash, static_cast<int>(length)) != 1) return kOutOfMemory;
  const int derSize = i2d_X509_SIG(info.get(), &der);
  if (derSize <= 0) return OpenSslOutcome(kFailed, "DigestInfo");
  digest->assign(der, der + derSize);
  OPENSSL_free(der);
  return kOk;
}

bool UsePkcs1Padding(EVP_PKEY_CTX* context, const EVP_PKEY* key) {
  return AlgorithmOf(key) != VEL_ASYMM_ALG_RSA ||
         EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING) == 1;
}

}  // namespace

int DigestNid(VEL_HASH_ALG hashAlg) {
  switch (hashAlg) {
    case VEL_HASH_ALG_MD5:
      return NID_md5;
    case VEL_HASH_ALG_SHA1:
      return NID_sha1;
    case VEL_HASH_ALG_SHA256:
      return NID_sha256;
    case VEL_HASH_ALG_SHA512:
      return NID_sha512;
    case VEL_HASH_ALG_SM3:
      return NID_sm3;
    default:
      return NID_undef;
  }
}

Outcome DigestForSigning(const EVP_PKEY* publicKey, VEL_HASH_ALG hashAlg, const BYTE* data,
                         size_t size, std::vector<BYTE>* digest) {
  if (DigestNid(hashAlg) == NID_undef) return {kInvalidMechanism, 0, "no such digest"};
  switch (AlgorithmOf(publicKey)) {
    case VEL_ASYMM_ALG_RSA:
      return RsaDigestInfo(hashAlg, data, size, digest);
    case VEL_ASYMM_ALG_SM2:
      if (hashAlg != VEL_HASH_ALG_SM3) return {kInvalidMechanism, 0, "SM2 signs SM3 only"};
      return Sm2Digest(publicKey, data, size, digest);
    default:
      return {kKeyTypeWrong, 0, "neither RSA nor SM2"};
  }
}

Outcome SignWithKey(EVP_PKEY* privateKey, const std::vector<BYTE>& digest,
                    std::vector<BYTE>* signature) {
  const KeyContextPtr context(EVP_PKEY_CTX_new(privateKey, nullptr));
  size_t size = 0;
  if (context == nullptr || EVP_PKEY_sign_init(context.get()) != 1 ||
      !UsePkcs1Padding(context.get(), privateKey) ||
      EVP_PKEY_sign(context.get(), nullptr, &size, digest.data(), digest.size()) != 1) {
    return OpenSslOutcome(kFailed, "EVP_PKEY_sign");
  }
  signature->resize(size);
  if (EVP_PKEY_sign(context.get(), signature->data(), &size, digest.data(), digest.size()) != 1) {
    return OpenSslOutcome(kFailed, "EVP_PKEY_sign");
  }
  signature->resize(size);
  return kOk;
}

Outcome VerifyDigest(EVP_PKEY* publicKey, const std::vector<BYTE>& digest,
                     const std::vector<BYTE>& signature) {
  const KeyContextPtr context(EVP_PKEY_CTX_new(publicKey, nullptr));
  if (context == nullptr || EVP_PKEY_verify_init(context.get()) != 1 ||
      !UsePkcs1Padding(context.get(), publicKey) ||
      EVP_PKEY_verify(context.get(), signature.data(), signature.size(), digest.data(),
                      digest.size()) != 1) {
    return OpenSslOutcome(kSignatureInvalid, "EVP_PKEY_verify");
  }
  return kOk;
}

}  // namespace velcrypto
