#include "SignContent.h"

#include <algorithm>

#include "DeviceErrorCodes.h"

ULONG CSignContent::Take(const CString& text, BOOL bIsBase64) {
  unsigned long size = 0;
  if (bIsBase64) {
    const void* const decoded = m_decoder.Decode(text, &size);
    m_bytes = static_cast<BYTE*>(const_cast<void*>(decoded));
    if (m_bytes == nullptr) size = 0;
  } else {
    m_narrow = static_cast<const wchar_t*>(text);
    m_bytes = reinterpret_cast<BYTE*>(m_narrow.GetBuffer());
    size = static_cast<unsigned long>(std::min(text.GetLength(), m_narrow.GetLength()));
  }
  m_size = size;
  return size == 0 ? ULONG(kErrorInvalidParameter) : 0;
}
