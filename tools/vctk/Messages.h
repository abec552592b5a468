#pragma once
// What a result code means: its text, what to do about it, and the exit code it leads to.
#include <stdint.h>

#include <string>

#include "Failure.h"

namespace vctk {

// The text that VCTK_GetLastErrorMessage has for the code, as UTF-8. The tries left in the text of
// 0xE0000056 read "?", since only the failed call knows them.
std::string TextOf(uint32_t code);

// Whether the code has a text or a meaning in vctk.h; others get the text "unknown error".
bool IsKnown(uint32_t code);

// One English sentence or two; never empty.
std::string AdviceFor(uint32_t code);

ExitCode ExitOf(uint32_t code);

// "0xE0000056"
std::string Hex(uint32_t code);

}  // namespace vctk
