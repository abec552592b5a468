#include "BotanVerifier.h"

#include <botan/ber_dec.h>
#include <botan/data_src.h>
#include <botan/ecdsa.h>
#include <botan/pubkey.h>
#include <botan/sm2.h>
#include <botan/x509_dn.h>
#include <botan/x509cert.h>

#include <memory>
#include <stdexcept>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

void Require(bool holds, const std::string& what) {
  if (!holds) throw std::runtime_error(what);
}

Bytes BytesOf(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

Botan::X509_Certificate CertificateOf(const std::string& bytes) {
  Botan::DataSource_Memory source(bytes);
  return Botan::X509_Certificate(source);
}

// The identifiers that a structure must have.
struct Scheme {
  bool isSm2;
  std::string signedData;
  std::string data;
  std::string digest;
  std::string signature;
};

std::string OidOf(const std::string& digest) {
  if (digest == "SHA-1") return "1.3.14.3.2.26";
  if (digest == "SHA-256") return "2.16.840.1.101.3.4.2.1";
  if (digest == "SHA-512") return "2.16.840.1.101.3.4.2.3";
  throw std::runtime_error("no identifier is known for " + digest);
}

Scheme SchemeOf(bool isSm2, const std::string& digest) {
  if (isSm2) {
    return {true, "1.2.156.10197.6.1.4.2.2", "1.2.156.10197.6.1.4.2.1", "1.2.156.10197.1.401",
            "1.2.156.10197.1.301.1"};
  }
  return {false, "1.2.840.113549.1.7.2", "1.2.840.113549.1.7.1", OidOf(digest),
          "1.2.840.113549.1.1.1"};
}

bool IsSm2(const Botan::X509_Certificate& certificate) {
  const std::unique_ptr<Botan::Public_Key> key(certificate.load_subject_public_key());
  return key->algo_name() != "RSA";
}

void Verify(const Bytes& signature, const Bytes& content,
            const Botan::X509_Certificate& certificate, const std::string& digest) {
  const std::unique_ptr<Botan::Public_Key> key(certificate.load_subject_public_key());
  bool holds = false;
  if (key->algo_name() == "RSA") {
    Botan::PK_Verifier verifier(*key, "EMSA3(" + digest + ")");
    holds = verifier.verify_message(content, signature);
  } else {
    // The certificate says only "elliptic curve"; the curve makes it an SM2 key.
    const auto& curve = dynamic_cast<const Botan::EC_PublicKey&>(*key);
    Require(curve.domain().get_curve_oid().to_string() == "1.2.156.10197.1.301",
            "not the SM2 curve");
    const Botan::SM2_PublicKey sm2(curve.domain(), curve.public_point());
    Botan::PK_Verifier verifier(sm2, "1234567812345678,SM3", Botan::DER_SEQUENCE);
    holds = verifier.verify_message(content, signature);
  }
  Require(holds, "the signature does not hold");
}

void ExpectAlgorithm(Botan::BER_Decoder& from, const std::string& oid, const std::string& what) {
  Botan::AlgorithmIdentifier algorithm;
  from.decode(algorithm);
  Require(algorithm.get_oid().to_string() == oid,
          what + " is " + algorithm.get_oid().to_string() + ", not " + oid);
}

void ExpectOid(Botan::BER_Decoder& from, const std::string& expected, const std::string& what) {
  Botan::OID oid;
  from.decode(oid);
  Require(oid.to_string() == expected, what + " is " + oid.to_string() + ", not " + expected);
}

void ExpectVersion(Botan::BER_Decoder& from, const std::string& what) {
  size_t version = 0;
  from.decode(version);
  Require(version == 1, what + " is not of version 1");
}

void CheckContent(Botan::BER_Decoder& signedData, const Scheme& scheme, const Bytes& content,
                  bool attached) {
  Botan::BER_Decoder info = signedData.start_cons(Botan::SEQUENCE);
  ExpectOid(info, scheme.data, "the content's type");
  Require(info.more_items() == attached,
          attached ? "the content is missing" : "the content is inside");
  if (attached) {
    Bytes inside;
    Botan::BER_Decoder wrapper = info.start_cons(Botan::ASN1_Tag(0), Botan::CONTEXT_SPECIFIC);
    wrapper.decode(inside, Botan::OCTET_STRING).verify_end();
    wrapper.end_cons();
    Require(inside == content, "the content is another");
  }
  info.verify_end();
  info.end_cons();
}

void CheckCertificates(Botan::BER_Decoder& signedData, const Botan::X509_Certificate& certificate) {
  Botan::BER_Decoder list = signedData.start_cons(Botan::ASN1_Tag(0), Botan::CONTEXT_SPECIFIC);
  Botan::X509_Certificate first;
  list.decode(first);
  Require(first == certificate, "the first certificate is not the signer's");
  list.discard_remaining();
  list.end_cons();
}

Bytes TakeSignature(Botan::BER_Decoder& signedData, const Scheme& scheme,
                    const Botan::X509_Certificate& certificate) {
  Botan::BER_Decoder set = signedData.start_cons(Botan::SET);
  Botan::BER_Decoder signer = set.start_cons(Botan::SEQUENCE);
  ExpectVersion(signer, "the signer");
  Botan::BER_Decoder name = signer.start_cons(Botan::SEQUENCE);
  Botan::X509_DN issuer;
  Botan::BigInt serial;
  name.decode(issuer).decode(serial).verify_end();
  name.end_cons();
  Require(issuer == certificate.issuer_dn(), "the issuer is another");
  Require(serial == Botan::BigInt::decode(certificate.serial_number()),
          "the serial number is another");
  ExpectAlgorithm(signer, scheme.digest, "the signer's digest");
  // Attributes would stand here, with the tag [0].
  ExpectAlgorithm(signer, scheme.signature, "the signature's algorithm");
  Bytes signature;
  signer.decode(signature, Botan::OCTET_STRING).verify_end();
  signer.end_cons();
  set.verify_end();
  set.end_cons();
  return signature;
}

}  // namespace

void VerifyBare(const std::string& signature, const std::string& content,
                const std::string& certificate, const std::string& digest) {
  Verify(BytesOf(signature), BytesOf(content), CertificateOf(certificate), digest);
}

void VerifyPkcs7(const std::string& structure, const std::string& content,
                 const std::string& certificate, const std::string& digest, bool attached) {
  const Botan::X509_Certificate signerCertificate = CertificateOf(certificate);
  const Scheme scheme = SchemeOf(IsSm2(signerCertificate), digest);
  const Bytes bytes = BytesOf(structure);
  Botan::BER_Decoder whole(bytes);
  Botan::BER_Decoder info = whole.start_cons(Botan::SEQUENCE);
  ExpectOid(info, scheme.signedData, "the structure's type");
  Botan::BER_Decoder wrapper = info.start_cons(Botan::ASN1_Tag(0), Botan::CONTEXT_SPECIFIC);
  Botan::BER_Decoder signedData = wrapper.start_cons(Botan::SEQUENCE);
  ExpectVersion(signedData, "the structure");
  Botan::BER_Decoder digests = signedData.start_cons(Botan::SET);
  ExpectAlgorithm(digests, scheme.digest, "the digest");
  digests.verify_end();
  digests.end_cons();
  CheckContent(signedData, scheme, BytesOf(content), attached);
  CheckCertificates(signedData, signerCertificate);
  const Bytes signature = TakeSignature(signedData, scheme, signerCertificate);
  signedData.verify_end();
  whole.verify_end();
  Verify(signature, BytesOf(content), signerCertificate, digest);
}
