#include "OpenSsl.h"

#include <openssl/err.h>
#include <openssl/pkcs12err.h>

#include <climits>

#include "Process.h"

namespace velcrypto {

OpenSslScope::OpenSslScope() : m_hosts(OSSL_LIB_CTX_set0_default(Process::Current().openSsl)) {
  ERR_clear_error();
}

OpenSslScope::~OpenSslScope() {
  ERR_clear_error();
  OSSL_LIB_CTX_set0_default(m_hosts);
}

Outcome OpenSslOutcome(Code fallback, const char* what) {
  const unsigned long error = ERR_peek_error();
  ERR_clear_error();
  Code code = fallback;
  const int reason = ERR_GET_REASON(error);
  if (reason == ERR_R_MALLOC_FAILURE) code = kOutOfMemory;
  if (ERR_GET_LIB(error) == ERR_LIB_PKCS12 && reason == PKCS12_R_MAC_VERIFY_FAILURE) {
    code = kPinWrong;
  }
  std::string remark = what;
  const char* const text = error == 0 ? nullptr : ERR_reason_error_string(error);
  if (text != nullptr) remark.append(": ").append(text);
  return {code, error, remark};
}

X509Ptr ParseCertificate(const BYTE* der, size_t size) {
  if (der == nullptr || size == 0 || size > INT_MAX) return nullptr;
  const BYTE* at = der;
  X509Ptr certificate(d2i_X509(nullptr, &at, static_cast<long>(size)));
  if (certificate == nullptr || at != der + size) {
    ERR_clear_error();
    return nullptr;
  }
  return certificate;
}

}  // namespace velcrypto
