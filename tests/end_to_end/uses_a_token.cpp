// uses_a_token KEY_LIST SERIAL CONTROL: a host that gives PINs to the library in every way. Reads
// them from its terminal: the current one and its replacement, which it changes and signs with;
// another replacement, which it changes and signs with by the device library's dialog. Says how
// each went and what the call queue holds; ends its session after a line of input and itself after
// another. Keeps CONTROL in memory, narrow and wide.
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "vctk.h"

namespace {

struct Line {
  char text[256] = {};
  ~Line() { explicit_bzero(text, sizeof(text)); }
};

// Unbuffered, so that no other copy is this program's.
bool Read(Line* line) {
  for (size_t i = 0; i < sizeof(line->text) - 1; ++i) {
    if (read(STDIN_FILENO, line->text + i, 1) != 1) return false;
    if (line->text[i] != '\n') continue;
    line->text[i] = '\0';
    return true;
  }
  return false;
}

void Say(const char* what, int code) {
  printf("%s 0x%08X\n", what, static_cast<unsigned>(code));
  fflush(stdout);
}

bool UsePins(void* handle, const char* serial) {
  Line first, second, third;
  if (!Read(&first) || !Read(&second)) return false;
  Say("changed", VCTK_ChangePinCode(handle, serial, 2, first.text, second.text));
  Say("signed", VCTK_P1SignWithPin(handle, serial, second.text, "I agree.", 0));
  if (!Read(&third)) return false;
  Say("changed", VCTK_ChangePinCode(handle, serial, 2, second.text, third.text));
  Say("refused", VCTK_P1SignWithPin(handle, serial, second.text, "I agree.", 0));
  if (VCTK_SetPinCode(handle, third.text) != 1 || VCTK_SetCert(handle, serial) != 1) return false;
  Say("wrapped", VCTK_P7SignStrEx(handle, "I agree.", 0, 0, 1));
  return VCTK_SetPinCode(handle, "") == 1;  // the session would keep it for the next signature
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const std::wstring control(argv[3], argv[3] + strlen(argv[3]));
  void* const handle = VCTK_Initialize(argv[1]);
  if (handle == nullptr) return 3;
  VCTK_CallQueueEnable(handle, 1, 1);
  if (!UsePins(handle, argv[2])) return 4;
  VCTK_SetChooseSingleCert(handle, 1);
  const int asked = VCTK_P1Sign(handle, "I agree.", 0);
  std::string calls(1 << 16, '\0');
  int length = static_cast<int>(calls.size());
  if (VCTK_CallQueueGet(handle, &calls[0], &length) != 0) return 5;
  printf("%s\n", calls.c_str());
  Say("asked", asked);
  Line line;
  Read(&line);
  VCTK_Finalize(handle);
  Say("closed", 0);
  Read(&line);
  return control.empty() ? 6 : 0;
}
