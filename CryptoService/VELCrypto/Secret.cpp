#include "Secret.h"

#include <string.h>

#include <climits>
#include <new>
#include <utility>

#include "LockedMemory.h"

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

void Secret::Append(const char* bytes, size_t size) {
  Secret longer;
  longer.Allocate(m_size + size);
  memcpy(longer.m_text, c_str(), m_size);
  memcpy(longer.m_text + m_size, bytes, size);
  *this = std::move(longer);
}

void Secret::Allocate(size_t size) {
  m_text = static_cast<char*>(AllocateLocked(size + 1));
  if (m_text == nullptr) throw std::bad_alloc();
  m_size = size;
}

void Secret::Wipe() {
  FreeLocked(m_text, m_size + 1);
  m_text = nullptr;
  m_size = 0;
}

}  // namespace velcrypto
