#pragma once
// The bytes to sign, taken from a host's text, and the text of a signature. Both may be as large as
// the host's memory: nothing is copied or measured that need not be.
#include <memory>

#include "VELCstring.h"
#include "VELInterface.h"

class CSignContent {
 public:
  // Decodes the text when it is base64, else takes its narrow form: as many bytes as the text has
  // characters, so of text beyond ASCII only the first bytes are signed. Verifiers in the field
  // count the same way. 0, 0xE0000003 when no byte results, or 0xE0000005 without memory.
  ULONG Take(CString text, BOOL bIsBase64);

  // The same for the narrow text that stands for it, without the four bytes a character where
  // they would change nothing. 0xE000000B when the text is empty or cannot be converted.
  ULONG TakeNarrow(LPCSTR text, BOOL bIsBase64);

  // The object's own; they live as long as it does. Not const, as the device interfaces ask.
  BYTE* GetBytes() const { return m_bytes; }
  DWORD GetSize() const { return m_size; }

 private:
  template <typename C>
  ULONG Decode(const C* text, size_t length);
  ULONG Narrow(const CString& text);

  std::unique_ptr<BYTE[]> m_decoded;
  CStringA m_narrow;
  BYTE* m_bytes = nullptr;
  DWORD m_size = 0;
};

// Replaces `text` by the bytes in base64 on one padded line, in its block if that is large enough.
// FALSE without memory, `text` as it was.
BOOL EncodeText(const void* bytes, size_t size, CString& text);
