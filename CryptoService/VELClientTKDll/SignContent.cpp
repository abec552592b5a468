#include "SignContent.h"

#include <algorithm>
#include <climits>
#include <new>
#include <utility>

#include "base64.h"
#include "DeviceErrorCodes.h"
#include "LargeBlock.h"

// The text, four bytes a character, goes with the end of this.
ULONG CSignContent::Take(CString text, BOOL bIsBase64) {
  return bIsBase64 ? Decode(text) : Narrow(text);
}

ULONG CSignContent::Decode(const CString& text) {
  const size_t length = static_cast<size_t>(text.GetLength());
  const size_t room = length / 4 * 3 + 3;
  m_decoded.reset(new (std::nothrow) BYTE[room]);
  if (m_decoded == nullptr) return kErrorNoMemory;
  AdviseLargeBlock(m_decoded.get(), room);
  m_bytes = m_decoded.get();
  CBase64::DecodeInto(text, length, m_bytes, room, &m_size);
  return m_size == 0 ? ULONG(kErrorInvalidParameter) : 0;
}

ULONG CSignContent::Narrow(const CString& text) {
  m_narrow = static_cast<const wchar_t*>(text);
  m_bytes = reinterpret_cast<BYTE*>(m_narrow.GetBuffer());
  m_size = static_cast<DWORD>(std::min(text.GetLength(), m_narrow.GetLength()));
  return m_size == 0 ? ULONG(kErrorInvalidParameter) : 0;
}

BOOL EncodeText(const void* bytes, size_t size, CString& text) {
  const size_t length = CBase64::EncodedLength(size);
  if (length > INT_MAX) return FALSE;
  const int count = static_cast<int>(length);
  if (text.GetAllocLength() < count) {
    CString room;
    if (!room.AllocText(count)) return FALSE;
    text = std::move(room);
  }
  CBase64::EncodeInto(bytes, size, text.GetBuffer());
  text.ReleaseBuffer(count);
  return TRUE;
}
