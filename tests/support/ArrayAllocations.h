#pragma once
// Watches the global array allocator: every new[] of a test program that links
// ArrayAllocations.cpp goes through it. One thread at a time.
#include <cstddef>

struct ArrayAllocations {
  static size_t made;      // since Reset
  static size_t freed;     // since Reset, null not counted
  static size_t lastSize;  // bytes of the latest new[]
  static size_t failFrom;  // requests of at least so many bytes fail

  static void Reset();
};
