#include <time.h>

#include "VELInterface.h"

DWORD GetTickCount(void) {
  timespec now;
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<DWORD>(now.tv_sec) * 1000 + static_cast<DWORD>(now.tv_nsec) / 1000000;
}
