#include "ArrayAllocations.h"

#include <cstdint>
#include <cstdlib>
#include <new>

size_t ArrayAllocations::made = 0;
size_t ArrayAllocations::freed = 0;
size_t ArrayAllocations::lastSize = 0;
size_t ArrayAllocations::failFrom = SIZE_MAX;

void ArrayAllocations::Reset() {
  made = freed = lastSize = 0;
  failFrom = SIZE_MAX;
}

void* operator new[](size_t size) {
  void* const block = size < ArrayAllocations::failFrom ? malloc(size) : nullptr;
  if (block == nullptr) throw std::bad_alloc();
  ++ArrayAllocations::made;
  ArrayAllocations::lastSize = size;
  return block;
}

void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  void* const block = size < ArrayAllocations::failFrom ? malloc(size) : nullptr;
  if (block == nullptr) return nullptr;
  ++ArrayAllocations::made;
  ArrayAllocations::lastSize = size;
  return block;
}

void operator delete[](void* block) noexcept {
  if (block != nullptr) ++ArrayAllocations::freed;
  free(block);
}

void operator delete[](void* block, size_t) noexcept {
  operator delete[](block);
}
