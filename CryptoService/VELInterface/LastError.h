#pragma once
// The last error of the calling thread, and errno in Win32 numbers.
#include "VELInterface.h"

void SetThreadError(DWORD error);

// The Win32 number that says what `posixError` says; ERROR_IO_DEVICE for what has none.
DWORD ErrorFromErrno(int posixError);
