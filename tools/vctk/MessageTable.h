#pragma once
// The texts of the toolkit's codes. vctk.h gives the text of a failure that happened and no other,
// so MessageTable.cpp is generated while building, by MessageTableGenerator asking the toolkit's
// own message class.
#include <stddef.h>
#include <stdint.h>

namespace vctk {

struct MessageEntry {
  uint32_t code;
  const char* text;  // UTF-8
};

// Ascending by code.
extern const MessageEntry kMessageTable[];
extern const size_t kMessageTableSize;

}  // namespace vctk
