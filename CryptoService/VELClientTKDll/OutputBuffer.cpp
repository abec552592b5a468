#include "OutputBuffer.h"

#include <string.h>

#include "vctk.h"

bool SettleWithoutCopy(int length, LPSTR pResult, INT* pResultLen, DWORD tooSmall, DWORD& code) {
  code = VCTK_OK;
  if (pResult != nullptr && length < *pResultLen) return false;
  if (pResult != nullptr) code = tooSmall;
  *pResultLen = length + 1;
  return true;
}

DWORD CopyOut(const CStringA& text, LPSTR pResult, INT* pResultLen) {
  const int length = text.GetLength();
  DWORD code;
  if (SettleWithoutCopy(length, pResult, pResultLen, VCTK_ERROR_OUT_BUFFER_SIZE_NOT_ENOUGH, code)) {
    return code;
  }
  strncpy_s(pResult, static_cast<SIZE_T>(*pResultLen), text, static_cast<SIZE_T>(length));
  *pResultLen = length;
  return VCTK_OK;
}

DWORD CopyOutZeroFilled(const CStringA& text, LPSTR pResult, INT* pResultLen, DWORD tooSmall) {
  const int length = text.GetLength();
  DWORD code;
  if (SettleWithoutCopy(length, pResult, pResultLen, tooSmall, code)) return code;
  memset(pResult, 0, static_cast<size_t>(*pResultLen));
  memcpy(pResult, static_cast<const char*>(text), static_cast<size_t>(length));
  return VCTK_OK;
}
