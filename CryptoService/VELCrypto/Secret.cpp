#include "Secret.h"

#include <string.h>
#include <sys/mman.h>

#include <climits>
#include <new>
#include <utility>

namespace velcrypto {

Secret::Secret(LPCSTR utf8) {
  const size_t size = utf8 == nullptr ? 0 : strlen(utf8);
  if (size == 0) return;
  Allocate(size);
  memcpy(m_text, utf8, size);
}

Secret::Secret(LPCWSTR text) {
  const size_t length = text == nullptr ? 0 : wcslen(text);
  if (length == 0 || length > INT_MAX / 4) return;
  const int count = static_cast<int>(length);
  const int size = WideCharToMultiByte(CP_UTF8, 0, text, count, nullptr, 0, nullptr, nullptr);
  Allocate(static_cast<size_t>(size));
  WideCharToMultiByte(CP_UTF8, 0, text, count, m_text, size, nullptr, nullptr);
}

Secret::Secret(Secret&& other) noexcept
    : m_text(std::exchange(other.m_text, nullptr)), m_size(std::exchange(other.m_size, 0)) {}

Secret& Secret::operator=(Secret&& other) noexcept {
  std::swap(m_text, other.m_text);
  std::swap(m_size, other.m_size);
  return *this;
}

void Secret::Allocate(size_t size) {
  void* const pages =
      mmap(nullptr, size + 1, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED) throw std::bad_alloc();
  // Without the right to lock memory a PIN still works; the swap is then the system's business.
  mlock(pages, size + 1);
  madvise(pages, size + 1, MADV_DONTDUMP);
  madvise(pages, size + 1, MADV_WIPEONFORK);
  m_text = static_cast<char*>(pages);
  m_size = size;
}

void Secret::Wipe() {
  if (m_text == nullptr) return;
  explicit_bzero(m_text, m_size);
  munmap(m_text, m_size + 1);
  m_text = nullptr;
  m_size = 0;
}

}  // namespace velcrypto
