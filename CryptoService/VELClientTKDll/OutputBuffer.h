#pragma once
// Copying texts out into (LPSTR pResult, INT* pResultLen), as VELClientTKImp.h tells.
#include "VELCstring.h"
#include "VELInterface.h"

// True when there is nothing to copy: pResult is null and asks for the size, or `length` bytes and
// a terminator do not fit, which makes `code` `tooSmall`. *pResultLen is the size needed then.
bool SettleWithoutCopy(int length, LPSTR pResult, INT* pResultLen, DWORD tooSmall, DWORD& code);

// Copies with a terminator; *pResultLen becomes the length without it. 0, or 4: too small.
DWORD CopyOut(const CStringA& text, LPSTR pResult, INT* pResultLen);

// Copies and zeroes the rest of the buffer; *pResultLen stays. 0, or `tooSmall`.
DWORD CopyOutZeroFilled(const CStringA& text, LPSTR pResult, INT* pResultLen, DWORD tooSmall);
