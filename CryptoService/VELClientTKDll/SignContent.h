#pragma once
// The bytes to sign, taken from a host's text.
#include "base64.h"
#include "VELCstring.h"
#include "VELInterface.h"

class CSignContent {
 public:
  // Decodes the text when it is base64, else takes its narrow form: as many bytes as the text has
  // characters, so of text beyond ASCII only the first bytes are signed. Verifiers in the field
  // count the same way. 0, or 0xE0000003 when no byte results.
  ULONG Take(const CString& text, BOOL bIsBase64);

  // The object's own; they live as long as it does. Not const, as the device interfaces ask.
  BYTE* GetBytes() const { return m_bytes; }
  DWORD GetSize() const { return m_size; }

 private:
  CBase64 m_decoder;
  CStringA m_narrow;
  BYTE* m_bytes = nullptr;
  DWORD m_size = 0;
};
