// asks_for_the_pin SERIAL CONTROL: a host that leaves the PIN to the device library's dialog. Says
// how its signature went, and what the call queue holds; ends its session after a line of input and
// itself after another. Keeps CONTROL in memory, narrow and wide.
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "vctk.h"

namespace {

const char kKeyList[] =
    "<authinfo><liblist><lib type=\"CSP\" version=\"1\">"
    "<algid val=\"SHA256\" sm2_hashalg=\"SM3\"/></lib></liblist></authinfo>";

void WaitForLine() {
  fflush(stdout);
  while (const int c = getchar()) {
    if (c == '\n' || c == EOF) return;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const std::wstring control(argv[2], argv[2] + std::string(argv[2]).size());
  void* const handle = VCTK_Initialize(kKeyList);
  if (handle == nullptr) return 3;
  VCTK_CallQueueEnable(handle, 1, 1);
  if (VCTK_SetCert(handle, argv[1]) != 1) return 4;
  const int code = VCTK_P7SignStrEx(handle, "I agree.", 0, 0, 1);
  std::string calls(1 << 16, '\0');
  int length = static_cast<int>(calls.size());
  if (VCTK_CallQueueGet(handle, &calls[0], &length) != 0) return 5;
  printf("%s\nsigned 0x%08X\n", calls.c_str(), static_cast<unsigned>(code));
  WaitForLine();
  VCTK_Finalize(handle);
  printf("closed\n");
  WaitForLine();
  return control.empty() ? 6 : 0;
}
