#pragma once
// The table of named character references, and the text argument of the markup operations.
#include <string>

// Bucket i holds the references whose lowercase names' code points sum to i modulo 130, or null.
// Each record is one digit (the name's length), four digits (the code point) and the name; of names
// that differ in case alone the one with the capital comes first.
constexpr int PREDEF_ENTITY_BUCKETS = 130;
extern const wchar_t* const PredefEntityTable[PREDEF_ENTITY_BUCKETS];

// Takes a wide literal, a null pointer or a string; valid for the call alone.
class MarkupCStr {
 public:
  MarkupCStr(const wchar_t* text) : m_text(text) {}               // NOLINT: converts
  MarkupCStr(const std::wstring& text) : m_text(text.c_str()) {}  // NOLINT: converts
  operator const wchar_t*() const { return m_text; }              // NOLINT: converts
  bool IsEmpty() const { return m_text == nullptr || *m_text == 0; }

 private:
  const wchar_t* m_text;
};
