#pragma once
// A PIN: bytes in memory pages of their own that are never swapped, never part of a core dump, and
// wiped before they go. There is no way to print one. In a forked child it is empty.
#include <cstddef>

#include "VELInterface.h"

namespace velcrypto {

class Secret {
 public:
  Secret() = default;
  explicit Secret(LPCSTR utf8);   // null is empty
  explicit Secret(LPCWSTR text);  // kept as UTF-8; null is empty
  Secret(Secret&& other) noexcept;
  Secret& operator=(Secret&& other) noexcept;
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  ~Secret() { Wipe(); }

  // Adds bytes at the end; none of them may be zero.
  void Append(const char* bytes, size_t size);

  bool empty() const { return *c_str() == '\0'; }
  size_t size() const { return m_size; }  // bytes, without the terminator
  const char* c_str() const { return m_text == nullptr ? "" : m_text; }

 private:
  void Allocate(size_t size);
  void Wipe();

  char* m_text = nullptr;
  size_t m_size = 0;
};

}  // namespace velcrypto
