// sign [SERIAL]: lists the certificates that can sign; with a serial number signs a text as PKCS#7
// with that certificate, prints the structure in base64 and lets openssl verify it, which knows the
// structures of RSA keys alone. The PIN is the first line of standard input.
#include <iostream>

#include "vctk.hpp"

namespace {

const char kKeyList[] =
    "<authinfo><liblist><lib type=\"CSP\"><algid val=\"SHA256\" sm2_hashalg=\"SM3\"/></lib>"
    "</liblist></authinfo>";

// For the certificate, too: -CAfile and the authority's certificate, not -noverify.
bool Verified(const std::string& base64) {
  FILE* const openssl =
      popen("openssl base64 -d -A | openssl cms -verify -inform DER -noverify -out /dev/null", "w");
  if (openssl == nullptr) return false;
  const bool written = fputs(base64.c_str(), openssl) >= 0;
  return pclose(openssl) == 0 && written;
}

void List(vctk::Session& session) {
  for (const vctk::Certificate& certificate : session.Certificates()) {
    std::cout << certificate.subject << "  " << certificate.serial << '\n';
  }
}

}  // namespace

int main(int argc, char** argv) try {
  vctk::Session session(kKeyList);
  if (argc < 2) {
    List(session);
    return 0;
  }
  std::string pin;
  std::getline(std::cin, pin);
  session.Choose(argv[1]);
  const std::string signature = session.SignPkcs7("我同意。", pin);
  std::cout << signature << std::endl;
  return Verified(signature) ? 0 : 1;
} catch (const std::exception& error) {
  std::cout << error.what() << std::endl;
  return 1;
}
