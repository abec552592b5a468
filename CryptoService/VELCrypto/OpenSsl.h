#pragma once
// Owners for OpenSSL's objects, and its errors as outcomes.
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

#include "Outcome.h"

namespace velcrypto {

template <typename T, void (*Free)(T*)>
struct Freer {
  void operator()(T* object) const { Free(object); }
};
template <typename T, void (*Free)(T*)>
using Owned = std::unique_ptr<T, Freer<T, Free>>;

inline void FreeBio(BIO* bio) {
  BIO_free(bio);
}

using BioPtr = Owned<BIO, FreeBio>;
using X509Ptr = Owned<X509, X509_free>;
using NamePtr = Owned<X509_NAME, X509_NAME_free>;
using KeyPtr = Owned<EVP_PKEY, EVP_PKEY_free>;
using KeyContextPtr = Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using DigestContextPtr = Owned<EVP_MD_CTX, EVP_MD_CTX_free>;
using Pkcs12Ptr = Owned<PKCS12, PKCS12_free>;
using Pkcs8Ptr = Owned<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>;

// Makes OpenSSL work in the process's own library context on this thread, whatever the host does
// with OpenSSL. The thread's error queue is empty at both ends.
//
// A forked child gets a fresh context with it: the locks of an inherited one may be held for ever
// by threads that the fork left behind.
class OpenSslScope {
 public:
  OpenSslScope();
  ~OpenSslScope();
  OpenSslScope(const OpenSslScope&) = delete;
  OpenSslScope& operator=(const OpenSslScope&) = delete;

 private:
  OSSL_LIB_CTX* const m_hosts;
};

// The oldest queued error of this thread as an outcome with `what` as the remark, and the queue
// emptied. `fallback` is the code for reasons that have no counterpart.
Outcome OpenSslOutcome(Code fallback, const char* what);

// A parsed certificate, or null.
X509Ptr ParseCertificate(const BYTE* der, size_t size);

}  // namespace velcrypto
