#pragma once
// What the fuzz targets share. A target looks at one input and returns, or ends the process when
// something does not hold; it opens no file and keeps nothing between inputs.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "Markup.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

inline void Require(bool holds, const char* rule) {
  if (holds) return;
  fprintf(stderr, "does not hold: %s\n", rule);
  abort();
}

// The characters of UTF-8; a byte that is none of it becomes the character of its value, so that
// every input is a text.
inline std::wstring Widen(const uint8_t* data, size_t size) {
  std::wstring text;
  const char* p = reinterpret_cast<const char*>(data);
  const char* const end = p + size;
  while (p != end) {
    const int code = CMarkup::DecodeCharUTF8(p, end);
    text += static_cast<wchar_t>(code != -1 ? code : static_cast<unsigned char>(*p++));
  }
  return text;
}
