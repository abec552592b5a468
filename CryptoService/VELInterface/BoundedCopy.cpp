// Copies that know the size of their target. All of them move, so overlapping ranges do no harm.
#include <errno.h>
#include <string.h>
#include <wchar.h>

#include "VELInterface.h"

namespace {

size_t LengthUpTo(const char* text, size_t limit) {
  return strnlen(text, limit);
}

size_t LengthUpTo(const wchar_t* text, size_t limit) {
  return wcsnlen(text, limit);
}

template <typename Char>
int CopyText(Char* target, size_t targetSize, const Char* source, size_t count) {
  if (target == nullptr || targetSize == 0) return EINVAL;
  if (source == nullptr) {
    target[0] = 0;
    return EINVAL;
  }
  const size_t length = LengthUpTo(source, count < targetSize ? count : targetSize);
  if (length == targetSize) {
    target[0] = 0;
    return ERANGE;
  }
  memmove(target, source, length * sizeof(Char));
  target[length] = 0;
  return 0;
}

}  // namespace

int strcpy_s(LPSTR target, SIZE_T targetSize, LPCSTR source) {
  return CopyText(target, targetSize, source, targetSize);
}

int wcscpy_s(LPWSTR target, SIZE_T targetSize, LPCWSTR source) {
  return CopyText(target, targetSize, source, targetSize);
}

int strncpy_s(LPSTR target, SIZE_T targetSize, LPCSTR source, SIZE_T count) {
  return CopyText(target, targetSize, source, count);
}

int memcpy_s(void* target, SIZE_T targetSize, const void* source, SIZE_T count) {
  if (count == 0) return 0;
  if (target == nullptr) return EINVAL;
  if (source == nullptr || targetSize < count) {
    memset(target, 0, targetSize);
    return source == nullptr ? EINVAL : ERANGE;
  }
  memmove(target, source, count);
  return 0;
}
