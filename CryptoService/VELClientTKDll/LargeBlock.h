#pragma once
// Large blocks in large pages.
#include <sys/mman.h>

#include <cstddef>
#include <cstdint>

// First touches of small pages cost more than converting what goes into them: asks the system to
// back a fresh block of some megabytes with large pages. A hint, on which nothing depends.
inline void AdviseLargeBlock(void* block, size_t size) {
  const size_t largePage = size_t(2) << 20;
  if (size < 2 * largePage) return;
  const uintptr_t begin = (reinterpret_cast<uintptr_t>(block) + largePage - 1) & ~(largePage - 1);
  const uintptr_t end = (reinterpret_cast<uintptr_t>(block) + size) & ~(largePage - 1);
  madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}
