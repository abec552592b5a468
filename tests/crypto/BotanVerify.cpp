#include "BotanVerify.h"

#include <botan/ber_dec.h>
#include <botan/data_src.h>
#include <botan/der_enc.h>
#include <botan/ec_group.h>
#include <botan/oids.h>
#include <botan/pubkey.h>
#include <botan/rsa.h>
#include <botan/sm2.h>
#include <botan/x509_key.h>

#include <memory>
#include <stdexcept>

namespace botanverify {

namespace {

const char kSm2Curve[] = "1.2.156.10197.1.301";

// The fields of a certificate up to the public key.
struct CertificateFields {
  Botan::BigInt serial;
  Bytes issuer;
  Bytes publicKey;  // SubjectPublicKeyInfo
};

Bytes Raw(const Botan::BER_Object& object) {
  Bytes der;
  Botan::DER_Encoder(der).add_object(object.type(), object.get_class(), object.bits(),
                                     object.length());
  return der;
}

CertificateFields FieldsOf(const Bytes& certificate) {
  CertificateFields fields;
  Botan::BER_Decoder source(certificate.data(), certificate.size());
  Botan::BER_Decoder outer = source.start_cons(Botan::SEQUENCE);
  Botan::BER_Decoder body = outer.start_cons(Botan::SEQUENCE);
  body.get_next_object();  // version
  body.decode(fields.serial);
  body.get_next_object();  // signature algorithm
  fields.issuer = Raw(body.get_next_object());
  body.get_next_object();  // validity
  body.get_next_object();  // subject
  fields.publicKey = Raw(body.get_next_object());
  return fields;
}

std::unique_ptr<Botan::Public_Key> KeyOf(const Bytes& info) {
  Botan::AlgorithmIdentifier algorithm;
  Bytes bits;
  Botan::BER_Decoder(info.data(), info.size())
      .start_cons(Botan::SEQUENCE)
      .decode(algorithm)
      .decode(bits, Botan::BIT_STRING);
  if (algorithm.get_oid().to_string() == "1.2.840.113549.1.1.1") {
    return std::make_unique<Botan::RSA_PublicKey>(algorithm, bits);
  }
  const Botan::EC_Group group(Botan::OID{std::string(kSm2Curve)});
  return std::make_unique<Botan::SM2_PublicKey>(group, group.OS2ECP(bits));
}

void ReadSigner(Botan::BER_Decoder& signers, SignedData* result) {
  Botan::AlgorithmIdentifier digest, encryption;
  Botan::BigInt serial;
  Botan::BER_Decoder signer = signers.start_cons(Botan::SEQUENCE);
  size_t version = 0;
  signer.decode(version);
  Botan::BER_Decoder name = signer.start_cons(Botan::SEQUENCE);
  result->issuer = Raw(name.get_next_object());
  name.decode(serial);
  name.verify_end();
  signer.decode(digest).decode(encryption).decode(result->signature, Botan::OCTET_STRING);
  signer.verify_end();
  result->signerVersion = version;
  result->serial = serial.to_dec_string();
  result->signerDigest = digest.get_oid().to_string();
  result->encryption = encryption.get_oid().to_string();
  result->encryptionParameters = encryption.get_parameters();
  if (digest.get_parameters() != result->digestParameters) throw std::runtime_error("digests");
}

}  // namespace

bool Verifies(const Bytes& certificate, const std::string& digest, const Bytes& data,
              const Bytes& signature) {
  const std::unique_ptr<Botan::Public_Key> key = KeyOf(FieldsOf(certificate).publicKey);
  const bool rsa = key->algo_name() == "RSA";
  Botan::PK_Verifier verifier(*key, rsa ? "EMSA3(" + digest + ")" : "1234567812345678,SM3",
                              rsa ? Botan::IEEE_1363 : Botan::DER_SEQUENCE);
  return verifier.verify_message(data, signature);
}

SignedData Parse(const Bytes& der) {
  SignedData result;
  Botan::OID type, contentType;
  Botan::AlgorithmIdentifier digest;
  Botan::DataSource_Memory memory(der.data(), der.size());
  Botan::BER_Decoder source(memory);
  Botan::BER_Decoder message = source.start_cons(Botan::SEQUENCE);
  message.decode(type);
  Botan::BER_Decoder tagged = message.start_cons(Botan::ASN1_Tag(0), Botan::CONTEXT_SPECIFIC);
  Botan::BER_Decoder data = tagged.start_cons(Botan::SEQUENCE);
  size_t version = 0;
  data.decode(version);
  Botan::BER_Decoder digests = data.start_cons(Botan::SET);
  digests.decode(digest).verify_end();
  Botan::BER_Decoder content = data.start_cons(Botan::SEQUENCE);
  content.decode(contentType);
  result.detached = !content.more_items();
  if (!result.detached) {
    content.start_cons(Botan::ASN1_Tag(0), Botan::CONTEXT_SPECIFIC)
        .decode(result.content, Botan::OCTET_STRING)
        .verify_end();
  }
  content.verify_end();
  Botan::BER_Object next = data.get_next_object();
  if (next.is_a(Botan::ASN1_Tag(0),
                Botan::ASN1_Tag(Botan::CONTEXT_SPECIFIC | Botan::CONSTRUCTED))) {
    Botan::BER_Decoder certificates(next.bits(), next.length());
    while (certificates.more_items()) {
      result.certificates.push_back(Raw(certificates.get_next_object()));
    }
  } else {
    data.push_back(next);
  }
  result.version = version;
  result.type = type.to_string();
  result.contentType = contentType.to_string();
  result.digest = digest.get_oid().to_string();
  result.digestParameters = digest.get_parameters();
  Botan::BER_Decoder signers = data.start_cons(Botan::SET);
  ReadSigner(signers, &result);
  signers.verify_end();
  data.verify_end();
  tagged.verify_end();
  message.verify_end();
  source.verify_end();
  return result;
}

Bytes IssuerOf(const Bytes& certificate) {
  return FieldsOf(certificate).issuer;
}

std::string SerialOf(const Bytes& certificate) {
  return FieldsOf(certificate).serial.to_dec_string();
}

}  // namespace botanverify
