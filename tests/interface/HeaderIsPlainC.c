/* Compiled as C11 alone: the header serves device libraries that are written in C. */
#include "VELInterface.h"

DWORD CallFromC(void);
DWORD CallFromC(void) {
  LARGE_INTEGER size;
  size.QuadPart = lstrlenW(L"abc");
  return (DWORD)size.QuadPart;
}
