#include "SignedData.h"

#include <openssl/asn1t.h>
#include <openssl/pkcs7.h>

#include <climits>

#include "CertFacts.h"
#include "Signing.h"

namespace {

struct SdContent {
  ASN1_OBJECT* type;
  ASN1_OCTET_STRING* bytes;
};

struct SdSigner {
  ASN1_INTEGER* version;
  PKCS7_ISSUER_AND_SERIAL* issuerAndSerial;
  X509_ALGOR* digestAlgorithm;
  X509_ALGOR* encryptionAlgorithm;
  ASN1_OCTET_STRING* signature;
};

struct SdSignedData {
  ASN1_INTEGER* version;
  STACK_OF(X509_ALGOR) * digestAlgorithms;
  SdContent* content;
  STACK_OF(X509) * certificates;
  STACK_OF(SdSigner) * signers;
};

struct SdMessage {
  ASN1_OBJECT* type;
  SdSignedData* data;
};

ASN1_SEQUENCE(SdContent) =
    {
        ASN1_SIMPLE(SdContent, type, ASN1_OBJECT),
        ASN1_EXP_OPT(SdContent, bytes, ASN1_OCTET_STRING, 0),
} static_ASN1_SEQUENCE_END(SdContent)

        ASN1_SEQUENCE(SdSigner) =
            {
                ASN1_SIMPLE(SdSigner, version, ASN1_INTEGER),
                ASN1_SIMPLE(SdSigner, issuerAndSerial, PKCS7_ISSUER_AND_SERIAL),
                ASN1_SIMPLE(SdSigner, digestAlgorithm, X509_ALGOR),
                ASN1_SIMPLE(SdSigner, encryptionAlgorithm, X509_ALGOR),
                ASN1_SIMPLE(SdSigner, signature, ASN1_OCTET_STRING),
} static_ASN1_SEQUENCE_END(SdSigner)

    // The certificates are a SET; written as a sequence so that the signer's stays the first.
    ASN1_SEQUENCE(SdSignedData) =
        {
            ASN1_SIMPLE(SdSignedData, version, ASN1_INTEGER),
            ASN1_SET_OF(SdSignedData, digestAlgorithms, X509_ALGOR),
            ASN1_SIMPLE(SdSignedData, content, SdContent),
            ASN1_IMP_SEQUENCE_OF_OPT(SdSignedData, certificates, X509, 0),
            ASN1_SET_OF(SdSignedData, signers, SdSigner),
} static_ASN1_SEQUENCE_END(SdSignedData)

            ASN1_SEQUENCE(SdMessage) =
                {
                    ASN1_SIMPLE(SdMessage, type, ASN1_OBJECT),
                    ASN1_EXP(SdMessage, data, SdSignedData, 0),
} static_ASN1_SEQUENCE_END(SdMessage)

    // How the two families name things.
    struct Names {
  const char* signedData;
  const char* data;
  const char* encryption;
  int parameters;  // of the algorithm identifiers
};

const Names kPkcs7Names = {"1.2.840.113549.1.7.2", "1.2.840.113549.1.7.1", "1.2.840.113549.1.1.1",
                           V_ASN1_NULL};
const Names kGmNames = {"1.2.156.10197.6.1.4.2.2", "1.2.156.10197.6.1.4.2.1",
                        "1.2.156.10197.1.301.1", V_ASN1_UNDEF};

bool SetObject(ASN1_OBJECT** target, const char* oid) {
  ASN1_OBJECT_free(*target);
  *target = OBJ_txt2obj(oid, 1);
  return *target != nullptr;
}

bool SetAlgorithm(X509_ALGOR* algorithm, const char* oid, int parameters) {
  return X509_ALGOR_set0(algorithm, OBJ_txt2obj(oid, 1), parameters, nullptr) == 1;
}

bool SetDigest(X509_ALGOR* algorithm, int nid, int parameters) {
  return X509_ALGOR_set0(algorithm, OBJ_nid2obj(nid), parameters, nullptr) == 1;
}

bool FillSigner(SdSigner* signer, const velcrypto::SignedDataParts& parts, const Names& names) {
  const X509* const certificate = parts.signer;
  const std::vector<BYTE>& signature = *parts.signature;
  ASN1_INTEGER* const serial = ASN1_INTEGER_dup(X509_get0_serialNumber(certificate));
  ASN1_INTEGER_free(signer->issuerAndSerial->serial);
  signer->issuerAndSerial->serial = serial;
  return serial != nullptr && ASN1_INTEGER_set(signer->version, 1) == 1 &&
         X509_NAME_set(&signer->issuerAndSerial->issuer, X509_get_issuer_name(certificate)) == 1 &&
         SetDigest(signer->digestAlgorithm, velcrypto::DigestNid(parts.hashAlg),
                   names.parameters) &&
         SetAlgorithm(signer->encryptionAlgorithm, names.encryption, names.parameters) &&
         ASN1_OCTET_STRING_set(signer->signature, signature.data(),
                               static_cast<int>(signature.size())) == 1;
}

bool AddSigner(SdSignedData* data, const velcrypto::SignedDataParts& parts, const Names& names) {
  SdSigner* const signer = reinterpret_cast<SdSigner*>(ASN1_item_new(ASN1_ITEM_rptr(SdSigner)));
  if (signer == nullptr) return false;
  const bool added = OPENSSL_sk_push(reinterpret_cast<OPENSSL_STACK*>(data->signers), signer) > 0;
  if (!added) ASN1_item_free(reinterpret_cast<ASN1_VALUE*>(signer), ASN1_ITEM_rptr(SdSigner));
  return added && FillSigner(signer, parts, names);
}

bool AddDigest(SdSignedData* data, int nid, int parameters) {
  X509_ALGOR* const algorithm = X509_ALGOR_new();
  if (algorithm == nullptr || sk_X509_ALGOR_push(data->digestAlgorithms, algorithm) <= 0) {
    X509_ALGOR_free(algorithm);
    return false;
  }
  return SetDigest(algorithm, nid, parameters);
}

bool AddCertificates(SdSignedData* data, const std::vector<X509*>& certificates) {
  if (certificates.empty()) return true;
  data->certificates = sk_X509_new_null();
  for (X509* certificate : certificates) {
    if (X509_add_cert(data->certificates, certificate, X509_ADD_FLAG_UP_REF) != 1) return false;
  }
  return true;
}

bool SetContent(SdContent* content, const velcrypto::SignedDataParts& parts, const Names& names) {
  if (!SetObject(&content->type, names.data)) return false;
  if (parts.detached) return true;
  content->bytes = ASN1_OCTET_STRING_new();
  if (content->bytes == nullptr) return false;
  // Lent, not copied: content may be large. The owner takes it back before it frees the message.
  ASN1_STRING_set0(content->bytes, const_cast<BYTE*>(parts.content),
                   static_cast<int>(parts.contentSize));
  return true;
}

}  // namespace

namespace velcrypto {

SignedDataWriter::~SignedDataWriter() {
  if (m_message == nullptr) return;
  ASN1_OCTET_STRING* const lent = reinterpret_cast<SdMessage*>(m_message)->data->content->bytes;
  if (lent != nullptr) lent->data = nullptr;
  ASN1_item_free(m_message, ASN1_ITEM_rptr(SdMessage));
}

Outcome SignedDataWriter::Assemble(const SignedDataParts& parts) {
  const VEL_ASYMM_ALG keyAlg = AlgorithmOf(X509_get0_pubkey(parts.signer));
  if (keyAlg == VEL_ASYMM_ALG_UNKNOWN) return {kKeyTypeWrong, 0, "neither RSA nor SM2"};
  const bool sm2 = keyAlg == VEL_ASYMM_ALG_SM2;
  const int digest = DigestNid(parts.hashAlg);
  if (digest == NID_undef || (sm2 && digest != NID_sm3)) {
    return {kInvalidMechanism, 0, "the digest does not go with the key"};
  }
  // Room for the rest within the 31-bit lengths of OpenSSL's encoder.
  if (parts.contentSize > INT_MAX - (1 << 20)) return {kInputLengthWrong, 0, "content too long"};
  const Names& names = sm2 ? kGmNames : kPkcs7Names;
  m_message = ASN1_item_new(ASN1_ITEM_rptr(SdMessage));
  if (m_message == nullptr) return kOutOfMemory;
  SdMessage* const message = reinterpret_cast<SdMessage*>(m_message);
  SdSignedData* const data = message->data;
  if (!SetObject(&message->type, names.signedData) || ASN1_INTEGER_set(data->version, 1) != 1 ||
      !AddDigest(data, digest, names.parameters) || !SetContent(data->content, parts, names) ||
      !AddCertificates(data, parts.certificates) || !AddSigner(data, parts, names)) {
    return OpenSslOutcome(kFailed, "SignedData");
  }
  const int size = ASN1_item_i2d(m_message, nullptr, ASN1_ITEM_rptr(SdMessage));
  if (size <= 0) return OpenSslOutcome(kFailed, "SignedData");
  m_size = static_cast<size_t>(size);
  return kOk;
}

Outcome SignedDataWriter::Write(BYTE* target) const {
  BYTE* at = target;
  const int size = ASN1_item_i2d(m_message, &at, ASN1_ITEM_rptr(SdMessage));
  return size == static_cast<int>(m_size) ? Outcome() : OpenSslOutcome(kFailed, "SignedData");
}

}  // namespace velcrypto
