#pragma once
// A copy of a PIN that is wiped when it goes.
#include <string.h>

// Overwrites the text of a CString or CStringA in place; its length stays.
template <typename String>
void WipeText(String& text) {
  explicit_bzero(text.GetBuffer(),
                 static_cast<size_t>(text.GetLength()) * sizeof(*text.GetBuffer()));
}

template <typename String>
class CPinText {
 public:
  template <typename Source>
  explicit CPinText(const Source& source) : m_text(source) {}
  CPinText(const CPinText&) = delete;
  CPinText& operator=(const CPinText&) = delete;
  ~CPinText() { WipeText(m_text); }

  const String& Get() const { return m_text; }

 private:
  String m_text;
};
