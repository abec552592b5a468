/* sign [SERIAL]: lists the certificates that can sign; with a serial number signs a text as PKCS#7
 * with that certificate, prints the structure in base64 and lets openssl verify it, which knows the
 * structures of RSA keys alone. The PIN is the first line of standard input. */
#include <locale.h>
#include <stdio.h>
#include <string.h>

#include "vctk.h"

static int sign(HANDLE session, const char* serial, const char* pin, char* text, int* size) {
  int code = VCTK_SetCert(session, serial);
  if (code == 1) code = VCTK_SetPinCode(session, pin); /* both give 1 for success */
  if (code == 1) code = VCTK_P7SignStrEx(session, "I agree.", 0, 0, 1);
  return code == VCTK_OK ? VCTK_GetP7SignResult(session, text, size) : code;
}

static int verify(const char* base64) { /* for the certificate, too: -CAfile, not -noverify */
  FILE* openssl = popen("openssl base64 -d -A | "
                        "openssl cms -verify -inform DER -noverify -out /dev/null", "w");
  return openssl == NULL || fputs(base64, openssl) < 0 || pclose(openssl) != 0;
}

int main(int argc, char** argv) {
  char pin[64] = "", text[16384] = "";
  int length = 0, size = sizeof(text), code;
  HANDLE session;
  setlocale(LC_ALL, ""); /* a UTF-8 one, for texts beyond ASCII */
  session = VCTK_Initialize("<authinfo><liblist><lib type=\"CSP\">"
      "<algid val=\"SHA256\" sm2_hashalg=\"SM3\"/></lib></liblist></authinfo>");
  if (session == NULL || (argc > 1 && fgets(pin, sizeof(pin), stdin) == NULL)) return 2;
  pin[strcspn(pin, "\n")] = '\0';
  if (argc > 1) {
    code = sign(session, argv[1], pin, text, &size);
  } else if ((code = VCTK_GetCertList(session, "\n", "  ", NULL, &length)) == VCTK_OK) {
    code = VCTK_GetCertList(session, "\n", "  ", text, &size); /* copies what the first listed */
  }
  size = sizeof(text) - 1; /* the message comes without a terminator */
  if (code != VCTK_OK) VCTK_GetLastErrorMessage(session, text, &size);
  puts(text);
  VCTK_Finalize(session);
  return code != VCTK_OK || (argc > 1 && verify(text) != 0);
}
