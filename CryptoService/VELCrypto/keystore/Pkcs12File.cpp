#include "Pkcs12File.h"

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <algorithm>

namespace velcrypto {

namespace {

void FreeSafes(STACK_OF(PKCS7) * safes) {
  sk_PKCS7_pop_free(safes, PKCS7_free);
}

void FreeBags(STACK_OF(PKCS12_SAFEBAG) * bags) {
  sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free);
}

using SafesPtr = Owned<STACK_OF(PKCS7), FreeSafes>;
using BagsPtr = Owned<STACK_OF(PKCS12_SAFEBAG), FreeBags>;
using EncryptedKeyPtr = Owned<X509_SIG, X509_SIG_free>;

// As many rounds as a desktop does in well under a tenth of a second.
const int kRounds = 100000;

// OpenSSL's key derivation for PKCS#12 frees its copy of salt and password, multiples of the
// digest's block, without wiping it. Memory that was freed last is given out first, so taking and
// wiping some blocks of these sizes gets it.
struct FreedCopies {
  FreedCopies() = default;
  FreedCopies(const FreedCopies&) = delete;
  FreedCopies& operator=(const FreedCopies&) = delete;
  ~FreedCopies() {
    void* blocks[8];  // more than the C library keeps for a thread
    for (size_t size = 64; size <= 512; size += 64) {
      for (void*& block : blocks) block = OPENSSL_malloc(size);
      for (void* const block : blocks) OPENSSL_clear_free(block, size);
    }
  }
};

int SizeOf(const Secret& pin) {
  return static_cast<int>(pin.size());
}

Pkcs12Ptr Parse(const std::vector<BYTE>& file) {
  const BYTE* at = file.data();
  Pkcs12Ptr parsed(d2i_PKCS12(nullptr, &at, static_cast<long>(file.size())));
  if (at != file.data() + file.size()) parsed.reset();
  return parsed;
}

std::string KeyIdOf(const PKCS12_SAFEBAG* bag) {
  const ASN1_TYPE* const id = PKCS12_SAFEBAG_get0_attr(bag, NID_localKeyID);
  if (id == nullptr || id->type != V_ASN1_OCTET_STRING) return {};
  return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(id->value.octet_string)),
          static_cast<size_t>(ASN1_STRING_length(id->value.octet_string))};
}

std::vector<BYTE> DerOf(X509* certificate) {
  std::vector<BYTE> der(static_cast<size_t>(std::max(0, i2d_X509(certificate, nullptr))));
  BYTE* at = der.data();
  if (!der.empty()) i2d_X509(certificate, &at);
  return der;
}

// What the bags without encryption hold.
struct Contents {
  struct Certificate {
    X509Ptr x509;
    std::string keyId;
  };
  std::vector<Certificate> certificates;
  std::vector<std::string> keyIds;  // of the encrypted keys
  bool hasBareKey = false;
  bool hasEncryptedPart = false;
};

void Collect(const PKCS12_SAFEBAG* bag, Contents* contents) {
  switch (PKCS12_SAFEBAG_get_nid(bag)) {
    case NID_certBag: {
      X509Ptr certificate(PKCS12_SAFEBAG_get1_cert(bag));
      if (certificate != nullptr) {
        contents->certificates.push_back({std::move(certificate), KeyIdOf(bag)});
      }
      break;
    }
    case NID_pkcs8ShroudedKeyBag:
      contents->keyIds.push_back(KeyIdOf(bag));
      break;
    case NID_keyBag:
      contents->hasBareKey = true;
      break;
    default:
      break;
  }
}

Outcome CollectAll(const PKCS12* file, Contents* contents) {
  const SafesPtr safes(PKCS12_unpack_authsafes(file));
  if (safes == nullptr) return OpenSslOutcome(kFileContentWrong, "PKCS#12 content");
  for (int i = 0; i < sk_PKCS7_num(safes.get()); ++i) {
    PKCS7* const safe = sk_PKCS7_value(safes.get(), i);
    if (OBJ_obj2nid(safe->type) == NID_pkcs7_encrypted) contents->hasEncryptedPart = true;
    if (OBJ_obj2nid(safe->type) != NID_pkcs7_data) continue;
    const BagsPtr bags(PKCS12_unpack_p7data(safe));
    if (bags == nullptr) return OpenSslOutcome(kFileContentWrong, "PKCS#12 bags");
    for (int j = 0; j < sk_PKCS12_SAFEBAG_num(bags.get()); ++j) {
      Collect(sk_PKCS12_SAFEBAG_value(bags.get(), j), contents);
    }
  }
  return kOk;
}

// The certificate that bears the key's id, else the first one: that is where it is put by programs
// that give no ids.
size_t LeafOf(const Contents& contents) {
  const auto& all = contents.certificates;
  if (contents.keyIds.empty() || contents.keyIds.front().empty()) return 0;
  const auto leaf = std::find_if(all.begin(), all.end(), [&](const Contents::Certificate& c) {
    return c.keyId == contents.keyIds.front();
  });
  return leaf == all.end() ? 0 : static_cast<size_t>(leaf - all.begin());
}

std::vector<std::vector<BYTE>> IssuersOf(const Contents& contents, size_t leaf) {
  std::vector<std::vector<BYTE>> issuers;
  const auto& all = contents.certificates;
  X509* current = all[leaf].x509.get();
  while (issuers.size() < all.size()) {
    const auto above = std::find_if(all.begin(), all.end(), [&](const Contents::Certificate& c) {
      return c.x509.get() != current && X509_check_issued(c.x509.get(), current) == X509_V_OK;
    });
    if (above == all.end() || X509_self_signed(current, 0) == 1) break;
    current = above->x509.get();
    issuers.push_back(DerOf(current));
  }
  return issuers;
}

// Encrypts the key in the bag again, the bag's names and ids staying.
bool ReencryptKey(PKCS12_SAFEBAG* bag, const Secret& oldPin, const Secret& newPin) {
  const Pkcs8Ptr key(PKCS12_decrypt_skey(bag, oldPin.c_str(), SizeOf(oldPin)));
  if (key == nullptr) return false;
  const EncryptedKeyPtr fresh(PKCS8_encrypt(-1, EVP_aes_256_cbc(), newPin.c_str(), SizeOf(newPin),
                                            nullptr, 0, kRounds, key.get()));
  if (fresh == nullptr) return false;
  const X509_ALGOR* newAlgorithm = nullptr;
  const ASN1_OCTET_STRING* newBytes = nullptr;
  X509_SIG_get0(fresh.get(), &newAlgorithm, &newBytes);
  X509_ALGOR* algorithm = nullptr;
  ASN1_OCTET_STRING* bytes = nullptr;
  X509_SIG_getm(const_cast<X509_SIG*>(PKCS12_SAFEBAG_get0_pkcs8(bag)), &algorithm, &bytes);
  return X509_ALGOR_copy(algorithm, newAlgorithm) == 1 && ASN1_STRING_copy(bytes, newBytes) == 1;
}

bool ReencryptKeys(STACK_OF(PKCS12_SAFEBAG) * bags, const Secret& oldPin, const Secret& newPin) {
  for (int i = 0; i < sk_PKCS12_SAFEBAG_num(bags); ++i) {
    PKCS12_SAFEBAG* const bag = sk_PKCS12_SAFEBAG_value(bags, i);
    if (PKCS12_SAFEBAG_get_nid(bag) == NID_pkcs8ShroudedKeyBag &&
        !ReencryptKey(bag, oldPin, newPin)) {
      return false;
    }
  }
  return true;
}

// The safe with everything encrypted again; null on failure.
PKCS7* Reencrypted(PKCS7* safe, const Secret& oldPin, const Secret& newPin) {
  const int type = OBJ_obj2nid(safe->type);
  if (type != NID_pkcs7_data && type != NID_pkcs7_encrypted) return PKCS7_dup(safe);
  const bool encrypted = type == NID_pkcs7_encrypted;
  const BagsPtr bags(encrypted ? PKCS12_unpack_p7encdata(safe, oldPin.c_str(), SizeOf(oldPin))
                               : PKCS12_unpack_p7data(safe));
  if (bags == nullptr || !ReencryptKeys(bags.get(), oldPin, newPin)) return nullptr;
  if (!encrypted) return PKCS12_pack_p7data(bags.get());
  return PKCS12_pack_p7encdata(NID_aes_256_cbc, newPin.c_str(), SizeOf(newPin), nullptr, 0, kRounds,
                               bags.get());
}

bool ReencryptSafes(PKCS12* file, const Secret& oldPin, const Secret& newPin) {
  const SafesPtr safes(PKCS12_unpack_authsafes(file));
  const SafesPtr changed(sk_PKCS7_new_null());
  if (safes == nullptr || changed == nullptr) return false;
  for (int i = 0; i < sk_PKCS7_num(safes.get()); ++i) {
    PKCS7* const safe = Reencrypted(sk_PKCS7_value(safes.get(), i), oldPin, newPin);
    if (safe == nullptr) return false;
    if (sk_PKCS7_push(changed.get(), safe) == 0) {
      PKCS7_free(safe);
      return false;
    }
  }
  return PKCS12_pack_authsafes(file, changed.get()) == 1;
}

}  // namespace

Outcome ReadPkcs12(const std::vector<BYTE>& file, Pkcs12Content* content) {
  const Pkcs12Ptr parsed = Parse(file);
  if (parsed == nullptr) return OpenSslOutcome(kFileContentWrong, "no PKCS#12 file");
  if (PKCS12_mac_present(parsed.get()) != 1) {
    return {kFileContentWrong, 0, "has no MAC: a wrong PIN could not be told from damage"};
  }
  Contents contents;
  const Outcome outcome = CollectAll(parsed.get(), &contents);
  if (!outcome.ok()) return outcome;
  if (contents.hasBareKey) return {kFileContentWrong, 0, "the private key is not encrypted"};
  if (contents.keyIds.size() > 1) return {kFileContentWrong, 0, "holds several private keys"};
  content->hasKey = !contents.keyIds.empty() || contents.hasEncryptedPart;
  if (contents.certificates.empty()) return kOk;
  const size_t leaf = LeafOf(contents);
  content->issuers = IssuersOf(contents, leaf);
  content->certificate = std::move(contents.certificates[leaf].x509);
  return kOk;
}

Outcome OpenPkcs12Key(const std::vector<BYTE>& file, const Secret& pin, const BYTE* certificate,
                      size_t certificateSize, KeyPtr* key) {
  const FreedCopies wiped;
  const Pkcs12Ptr parsed = Parse(file);
  const X509Ptr owner = ParseCertificate(certificate, certificateSize);
  if (parsed == nullptr || owner == nullptr) return {kFileContentWrong, 0, "no PKCS#12 file"};
  EVP_PKEY* opened = nullptr;
  if (PKCS12_parse(parsed.get(), pin.c_str(), &opened, nullptr, nullptr) != 1) {
    return OpenSslOutcome(kFileContentWrong, "PKCS12_parse");
  }
  key->reset(opened);
  if (opened == nullptr) return {kKeyNotFound, 0, "holds no private key"};
  if (EVP_PKEY_eq(X509_get0_pubkey(owner.get()), opened) != 1) {
    key->reset();
    return OpenSslOutcome(kKeyNotFound, "the private key is not the certificate's");
  }
  return kOk;
}

Outcome WithNewPin(const std::vector<BYTE>& file, const Secret& oldPin, const Secret& newPin,
                   std::vector<BYTE>* changed) {
  const FreedCopies wiped;
  const Pkcs12Ptr parsed = Parse(file);
  if (parsed == nullptr) return OpenSslOutcome(kFileContentWrong, "no PKCS#12 file");
  if (!ReencryptSafes(parsed.get(), oldPin, newPin) ||
      PKCS12_set_mac(parsed.get(), newPin.c_str(), SizeOf(newPin), nullptr, 0, kRounds,
                     EVP_sha256()) != 1) {
    return OpenSslOutcome(kFileContentWrong, "PKCS#12 with another PIN");
  }
  const int size = i2d_PKCS12(parsed.get(), nullptr);
  if (size <= 0) return OpenSslOutcome(kFailed, "i2d_PKCS12");
  changed->resize(static_cast<size_t>(size));
  BYTE* at = changed->data();
  i2d_PKCS12(parsed.get(), &at);
  return kOk;
}

}  // namespace velcrypto
