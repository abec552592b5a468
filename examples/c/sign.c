/* sign SERIAL: signs a text as PKCS#7 with the certificate of that serial number and prints the
 * structure in base64. The PIN is the first line of standard input. */
#include <stdio.h>
#include <string.h>

#include "vctk.h"

int main(int argc, char** argv) {
  char pin[64] = "", text[16384] = "";
  int length = sizeof(text), code;
  HANDLE session = VCTK_Initialize("<authinfo><liblist><lib type=\"CSP\">"
      "<algid val=\"SHA256\" sm2_hashalg=\"SM3\"/></lib></liblist></authinfo>");
  if (session == NULL || argc != 2 || fgets(pin, sizeof(pin), stdin) == NULL) return 2;
  pin[strcspn(pin, "\n")] = '\0';
  VCTK_SetCert(session, argv[1]);
  VCTK_SetPinCode(session, pin);
  code = VCTK_P7SignStrEx(session, "I agree.", 0, 0, 1);
  if (code == VCTK_OK) VCTK_GetP7SignResult(session, text, &length);
  else VCTK_GetLastErrorMessage(session, text, &length);
  puts(text);
  VCTK_Finalize(session);
  return code != VCTK_OK;
}
