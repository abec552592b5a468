#pragma once
// Memory for what must not leave the process: in pages of their own that are never swapped, never part
// of a core dump, empty in a forked child, and wiped before they go.
#include <cstddef>

namespace velcrypto {

// Zero bytes; null when there is no memory. Without the right to lock memory it is given unlocked.
void* AllocateLocked(size_t size) noexcept;

// Wipes and gives back what AllocateLocked gave with the same size; null is nothing.
void FreeLocked(void* memory, size_t size) noexcept;

}  // namespace velcrypto
