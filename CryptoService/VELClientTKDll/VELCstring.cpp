#include "VELCstring.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <wctype.h>

#include <climits>
#include <cwchar>
#include <new>

#include "FormatLength.h"

namespace {

// One overload for each kind; the argument names the kind.
CStringData* NilOf(const wchar_t*) {
  return _atltmpDataNil;
}
CstringDataA* NilOf(const char*) {
  return _atltmpDataNilA;
}
int LengthOf(const wchar_t* s) {
  return lstrlenW(s);
}
int LengthOf(const char* s) {
  return static_cast<int>(strlen(s));
}
size_t LengthWithin(const wchar_t* s, size_t limit) {
  return wcsnlen(s, limit);
}
size_t LengthWithin(const char* s, size_t limit) {
  return strnlen(s, limit);
}
int Order(const wchar_t* a, const wchar_t* b) {
  return lstrcmpW(a, b);
}
int Order(const char* a, const char* b) {
  return strcmp(a, b);
}
int OrderFolded(const wchar_t* a, const wchar_t* b) {
  return wcscasecmp(a, b);
}
int OrderFolded(const char* a, const char* b) {
  return strcasecmp(a, b);
}
int IsDigit(wchar_t c) {
  return iswdigit(static_cast<wint_t>(c));
}
int IsDigit(char c) {
  return isdigit(static_cast<unsigned char>(c));
}
long ToLong(const wchar_t* s) {
  return wcstol(s, nullptr, 0);
}
long ToLong(const char* s) {
  return strtol(s, nullptr, 0);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
int Print(wchar_t* to, size_t room, const wchar_t* format, va_list args) {
  return vswprintf(to, room, format, args);
}
int Print(char* to, size_t room, const char* format, va_list args) {
  return vsnprintf(to, room, format, args);
}
#pragma GCC diagnostic pop

template <typename C>
void Copy(C* to, const C* from, int n) {
  memmove(to, from, static_cast<size_t>(n) * sizeof(C));
}

// The shared empty text is set by every string that becomes empty, on any thread, to the values it
// has already. Looking first keeps those threads from writing, so that nobody's plain read races.
template <typename V>
void SetOnce(V* target, V value) {
  if (__atomic_load_n(target, __ATOMIC_RELAXED) != value)
    __atomic_store_n(target, value, __ATOMIC_RELAXED);
}

template <typename C>
long References(CStringDataT<C>* header) {
  return __atomic_load_n(&header->nRefs, __ATOMIC_RELAXED);
}

}  // namespace

template <class Self, typename C>
void CStringT<Self, C>::Init() {
  Data* const nil = NilOf(m_pchData);
  m_pchData = nil->data();
  SetOnce(m_pchData, C(0));
  SetOnce(&nil->nRefs, -1L);
  SetOnce(&nil->nDataLength, 0);
  SetOnce(&nil->nAllocLength, 0);
}

template <class Self, typename C>
CStringT<Self, C>::CStringT(int n, const C* text) {
  if (n > 0 && AllocText(n)) {
    Copy(m_pchData, text, n);
  } else {
    Init();
  }
}

template <class Self, typename C>
BOOL CStringT<Self, C>::AllocText(int n) {
  if (n < 0) return FALSE;
  const size_t size = sizeof(Data) + (static_cast<size_t>(n) + 1) * sizeof(C);
  char* const block = new (std::nothrow) char[size];
  if (block == nullptr) return FALSE;
  Data* const header = reinterpret_cast<Data*>(block);
  header->nRefs = 1;
  header->nDataLength = header->nAllocLength = n;
  InterLockInit();
  m_pchData = header->data();
  m_pchData[n] = 0;
  return TRUE;
}

template <class Self, typename C>
BOOL CStringT<Self, C>::AllocBuffer(int n) {
  if (n == 0) {
    Release();
    return TRUE;
  }
  if (!AllocText(n)) return FALSE;
  memset(m_pchData, 0, static_cast<size_t>(n) * sizeof(C));
  return TRUE;
}

template <class Self, typename C>
BOOL CStringT<Self, C>::AllocBeforeWrite(int n, bool zeroed) {
  if (References(GetData()) <= 1 && GetAllocLength() >= n) return TRUE;
  Release();
  return zeroed || n == 0 ? AllocBuffer(n) : AllocText(n);
}

template <class Self, typename C>
BOOL CStringT<Self, C>::AssignCopy(int n, const C* text) {
  if (n < 1) {
    Release();
    return TRUE;
  }
  if (!AllocBeforeWrite(n, false)) return FALSE;
  Copy(m_pchData, text, n);
  GetData()->nDataLength = GetData()->nAllocLength = n;
  m_pchData[n] = 0;
  return TRUE;
}

template <class Self, typename C>
BOOL CStringT<Self, C>::ConcatCopy(int length1, const C* text1, int length2, const C* text2) {
  int sum;
  if (__builtin_add_overflow(length1, length2, &sum) || sum < length1 || sum < length2)
    return FALSE;
  if (sum == 0) return TRUE;
  if (!AllocText(sum)) return FALSE;
  Copy(m_pchData, text1, length1);
  Copy(m_pchData + length1, text2, length2);
  return TRUE;
}

template <class Self, typename C>
BOOL CStringT<Self, C>::ConcatInPlace(int n, const C* text) {
  if (n == 0) return TRUE;
  Data* const header = GetData();
  const int length = header->nDataLength;
  if (n > 0 && References(header) < 2 && n <= header->nAllocLength - length) {
    Copy(m_pchData + length, text, n);
    header->nDataLength = length + n;
    m_pchData[length + n] = 0;
    return TRUE;
  }
  if (!ConcatCopy(length, m_pchData, n, text)) return FALSE;
  Release(header);
  return TRUE;
}

template <class Self, typename C>
void CStringT<Self, C>::CopyBeforeWrite() {
  Data* const old = GetData();
  if (References(old) <= 1) return;
  Release();
  if (AllocBuffer(old->nDataLength)) Copy(m_pchData, old->data(), old->nDataLength);
}

template <class Self, typename C>
long CStringT<Self, C>::InterlockedDecrement(long* count) {
  const long value = __atomic_load_n(count, __ATOMIC_RELAXED);
  if (value < 0) return value;
  return *count = value - 1;
}

template <class Self, typename C>
void CStringT<Self, C>::Release(Data* header) {
  if (header == NilOf(header->data()) || InterlockedDecrement(&header->nRefs) != 0) return;
  InterLockRealese();
  delete[] reinterpret_cast<char*>(header);
}

template <class Self, typename C>
void CStringT<Self, C>::Release() {
  Release(GetData());
  Init();
}

template <class Self, typename C>
C* CStringT<Self, C>::GetBuffer(int n) {
  Data* const old = GetData();
  if (References(old) < 2 && old->nAllocLength >= n) return m_pchData;
  const int length = old->nDataLength;
  const int size = n > length ? n : length;
  if (!AllocBuffer(size)) return nullptr;
  if (size == 0) return m_pchData;  // the old block went already
  Copy(m_pchData, old->data(), length);
  Release(old);
  return m_pchData;
}

template <class Self, typename C>
void CStringT<Self, C>::ReleaseBuffer(int n) {
  CopyBeforeWrite();
  Data* const header = GetData();
  if (n < 0) n = LengthOf(m_pchData);
  if (n > header->nAllocLength) n = header->nAllocLength;
  if (n == 0) return Release();
  header->nDataLength = header->nAllocLength = n;
  m_pchData[n] = 0;
}

template <class Self, typename C>
Self& CStringT<Self, C>::Append(const C* text, unsigned long n) {
  const size_t length = text == nullptr ? 0 : LengthWithin(text, n);
  if (length <= INT_MAX) ConcatInPlace(static_cast<int>(length), text);
  return static_cast<Self&>(*this);
}

template <class Self, typename C>
Self& CStringT<Self, C>::operator+=(const Self& other) {
  ConcatInPlace(other.GetLength(), other.m_pchData);
  return static_cast<Self&>(*this);
}

template <class Self, typename C>
int CStringT<Self, C>::Compare(const C* other) const {
  return other == nullptr ? 1 : Order(m_pchData, other);
}

template <class Self, typename C>
int CStringT<Self, C>::CompareNoCase(const C* other) const {
  return other == nullptr ? 1 : OrderFolded(m_pchData, other);
}

template <class Self, typename C>
int CStringT<Self, C>::SafeStrlen(const C* text) {
  return text == nullptr ? 0 : LengthOf(text);
}

template <class Self, typename C>
int CStringT<Self, C>::tchar_cstrisdigit(C c) {
  return IsDigit(c);
}

template <class Self, typename C>
int CStringT<Self, C>::tchar_cstrtoi(const C* text) {
  const long value = ToLong(text);
  return static_cast<int>(value < INT_MIN ? INT_MIN : value > INT_MAX ? INT_MAX : value);
}

// The text is printed into a block of its own, for arguments may lie in the old one.
template <class Self, typename C>
BOOL CStringT<Self, C>::FormatV(const C* format, va_list args) {
  if (format == nullptr) return FALSE;
  const long long estimate = FormatLength<Self>(format, args).Total();
  if (estimate > INT_MAX) return FALSE;
  Self printed;
  const int room = estimate > GetAllocLength() ? static_cast<int>(estimate) : GetAllocLength();
  if (!printed.AllocBuffer(room)) return FALSE;
  if (room > 0) Print(printed.m_pchData, static_cast<size_t>(room) + 1, format, args);
  printed.ReleaseBuffer(-1);
  Swap(printed);
  return TRUE;
}

template <class Self, typename C>
void CStringT<Self, C>::Assign(const Self& other) {
  if (this == &other) return;
  Release();
  Append(other.m_pchData, static_cast<unsigned long>(other.GetLength()));
}

template <class Self, typename C>
void CStringT<Self, C>::Swap(Self& other) {
  C* const text = m_pchData;
  m_pchData = other.m_pchData;
  other.m_pchData = text;
}

template class CStringT<CString, wchar_t>;
template class CStringT<CStringA, char>;
