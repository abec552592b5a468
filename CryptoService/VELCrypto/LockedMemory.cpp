#include "LockedMemory.h"

#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>

namespace velcrypto {

namespace {

// Without the right to lock memory a PIN still works; the swap is then the system's business.
void* Map(size_t size) noexcept {
  void* const pages =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED) return nullptr;
  mlock(pages, size);
  madvise(pages, size, MADV_DONTDUMP);
  madvise(pages, size, MADV_WIPEONFORK);
  return pages;
}

// PINs are short, and a page for each would cost four calls of the system: those that fit share one
// that stays. No lock, which a forked child might find locked.
class SharedPage {
 public:
  void* Take(size_t size) noexcept {
    if (size > kBlock || m_bytes == nullptr) return nullptr;
    unsigned taken = m_taken;
    unsigned free = 0;
    do {
      if (taken == kAll) return nullptr;
      free = ~taken & (taken + 1);
    } while (!m_taken.compare_exchange_weak(taken, taken | free));
    // A child of fork has the page, but not the lock on it.
    if (m_lockedBy.exchange(getpid()) != getpid()) mlock(m_bytes, kSize);
    return m_bytes + static_cast<size_t>(__builtin_ctz(free)) * kBlock;
  }

  bool GiveBack(void* memory) noexcept {
    char* const block = static_cast<char*>(memory);
    if (m_bytes == nullptr || block < m_bytes || block >= m_bytes + kSize) return false;
    m_taken &= ~(1u << static_cast<size_t>(block - m_bytes) / kBlock);
    return true;
  }

 private:
  static constexpr size_t kSize = 4096, kBlock = 256;
  static constexpr unsigned kAll = (1u << kSize / kBlock) - 1;

  char* const m_bytes = static_cast<char*>(Map(kSize));
  std::atomic<unsigned> m_taken{0};  // a bit for each block
  std::atomic<pid_t> m_lockedBy{getpid()};
};

SharedPage& ThePage() noexcept {
  static SharedPage page;  // without a destructor: threads may use it while the process ends
  return page;
}

}  // namespace

void* AllocateLocked(size_t size) noexcept {
  void* const block = ThePage().Take(size);
  return block != nullptr ? block : Map(size);
}

void FreeLocked(void* memory, size_t size) noexcept {
  if (memory == nullptr) return;
  explicit_bzero(memory, size);
  if (!ThePage().GiveBack(memory)) munmap(memory, size);
}

}  // namespace velcrypto
