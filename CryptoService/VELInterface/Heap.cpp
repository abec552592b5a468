// The process heap over malloc, with the size that was asked for in front of each block:
// malloc_usable_size rounds up, and callers divide what HeapSize reports.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "LastError.h"
#include "VELInterface.h"

namespace {

struct alignas(16) BlockHeader {
  size_t size;
};

char g_heap;  // its address is the handle of the one heap

BlockHeader* HeaderOf(LPCVOID block) {
  return static_cast<BlockHeader*>(const_cast<LPVOID>(block)) - 1;
}

bool IsProcessHeap(HANDLE heap) {
  if (heap == &g_heap) return true;
  SetThreadError(ERROR_INVALID_HANDLE);
  return false;
}

}  // namespace

HANDLE GetProcessHeap(void) {
  return &g_heap;
}

LPVOID HeapAlloc(HANDLE heap, DWORD flags, SIZE_T size) {
  if (!IsProcessHeap(heap)) return nullptr;
  if (size > SIZE_MAX - sizeof(BlockHeader)) {
    SetThreadError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  const size_t total = sizeof(BlockHeader) + size;
  void* const memory = flags & HEAP_ZERO_MEMORY ? calloc(1, total) : malloc(total);
  if (memory == nullptr) {
    SetThreadError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  BlockHeader* const header = static_cast<BlockHeader*>(memory);
  header->size = size;
  return header + 1;
}

LPVOID HeapReAlloc(HANDLE heap, DWORD flags, LPVOID block, SIZE_T size) {
  if (!IsProcessHeap(heap)) return nullptr;
  if (block == nullptr) {
    SetThreadError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  const size_t oldSize = HeaderOf(block)->size;
  void* const memory = size > SIZE_MAX - sizeof(BlockHeader)
                           ? nullptr
                           : realloc(HeaderOf(block), sizeof(BlockHeader) + size);
  if (memory == nullptr) {
    SetThreadError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  BlockHeader* const header = static_cast<BlockHeader*>(memory);
  header->size = size;
  char* const bytes = reinterpret_cast<char*>(header + 1);
  if ((flags & HEAP_ZERO_MEMORY) && size > oldSize) memset(bytes + oldSize, 0, size - oldSize);
  return bytes;
}

BOOL HeapFree(HANDLE heap, DWORD, LPVOID block) {
  if (!IsProcessHeap(heap)) return FALSE;
  if (block != nullptr) free(HeaderOf(block));
  return TRUE;
}

SIZE_T HeapSize(HANDLE heap, DWORD, LPCVOID block) {
  if (!IsProcessHeap(heap)) return static_cast<SIZE_T>(-1);
  if (block == nullptr) {
    SetThreadError(ERROR_INVALID_PARAMETER);
    return static_cast<SIZE_T>(-1);
  }
  return HeaderOf(block)->size;
}
