#include "LockedMemory.h"

#include <string.h>
#include <sys/mman.h>

namespace velcrypto {

void* AllocateLocked(size_t size) noexcept {
  void* const pages =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED) return nullptr;
  // Without the right to lock memory a PIN still works; the swap is then the system's business.
  mlock(pages, size);
  madvise(pages, size, MADV_DONTDUMP);
  madvise(pages, size, MADV_WIPEONFORK);
  return pages;
}

void FreeLocked(void* memory, size_t size) noexcept {
  if (memory == nullptr) return;
  explicit_bzero(memory, size);
  munmap(memory, size);
}

}  // namespace velcrypto
