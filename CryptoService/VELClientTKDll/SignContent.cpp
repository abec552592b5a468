#include "SignContent.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include <utility>

#include "base64.h"
#include "DeviceErrorCodes.h"

namespace {

// Such a text is converted alike by every locale, character by character.
bool IsAscii(const char* text, size_t length) {
  unsigned char all = 0;
  for (size_t i = 0; i < length; ++i) all |= static_cast<unsigned char>(text[i]);
  return all < 0x80;
}

}  // namespace

// The text, four bytes a character, goes with the end of this.
ULONG CSignContent::Take(CString text, BOOL bIsBase64) {
  if (!bIsBase64) return Narrow(text);
  return Decode(static_cast<const wchar_t*>(text), static_cast<size_t>(text.GetLength()));
}

ULONG CSignContent::TakeNarrow(LPCSTR text, BOOL bIsBase64) {
  const size_t length = strlen(text);
  if (bIsBase64 && length != 0 && length <= INT_MAX && IsAscii(text, length)) {
    return Decode(text, length);
  }
  CString wide(text);
  return wide.IsEmpty() ? ULONG(kErrorInvalidHandle) : Take(std::move(wide), bIsBase64);
}

template <typename C>
ULONG CSignContent::Decode(const C* text, size_t length) {
  const size_t room = length / 4 * 3 + 3;
  m_decoded.reset(new (std::nothrow) BYTE[room]);
  if (m_decoded == nullptr) return kErrorNoMemory;
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
