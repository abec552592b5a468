#pragma once
// The toolkit's strings: CString (wide, one element is one UTF-32 code unit) and CStringA (narrow),
// the same design twice. A string is one pointer to its text, which lies behind a header in one
// new[] block of exactly the size needed; an empty string owns nothing and points at a shared
// empty text.
//
//   lengths   characters without the terminator, 32 bits. What would not fit fails before anything
//             is allocated.
//   memory    when it is exhausted, assignments leave the empty text, appending leaves the text
//             alone, GetBuffer(n) gives null, Format and FormatV give FALSE. Nothing throws.
//   sources   null counts as empty. A source may lie inside the string's own text.
//   copies    never share a block, so distinct strings may be used by distinct threads; one string
//             belongs to one thread at a time.
//   locale    narrow text becomes wide, and back, only if the locale of the process can count its
//             characters; else the result is empty. The conversion itself is UTF-8.
#include <pthread.h>

#include <cstdarg>
#include <string>

#include "VELInterface.h"

// Reserved for locking the count; never initialised and never locked. The room is that of the
// larger of the supported processors' mutexes, so that blocks are laid out alike on all of them.
union lockid_t {
  pthread_mutex_t mutex;
  char room[48];
};

template <typename C>
struct CStringDataT {
  long nRefs;        // 1 for an owned block, -1 for the shared empty text
  int nDataLength;   // of the text
  int nAllocLength;  // recorded capacity, at least nDataLength
  lockid_t cslock;

  C* data() { return reinterpret_cast<C*>(this + 1); }
};
typedef CStringDataT<wchar_t> CStringData;
typedef CStringDataT<char> CstringDataA;
static_assert(sizeof(CStringData) == 64 && sizeof(CstringDataA) == 64, "the text follows at once");

// The shared empty texts, one of each kind in every library or program: a header and one
// character at the start, the rest is never used.
alignas(CStringData) inline char rgInitData[32788];
inline CStringData* const _atltmpDataNil = reinterpret_cast<CStringData*>(rgInitData);
inline wchar_t* const _atltmpPchNil = reinterpret_cast<wchar_t*>(rgInitData + sizeof(CStringData));
alignas(CstringDataA) inline char rgInitDataA[32788];
inline CstringDataA* const _atltmpDataNilA = reinterpret_cast<CstringDataA*>(rgInitDataA);
inline char* const _atltmpPchNilA = rgInitDataA + sizeof(CstringDataA);

// What both kinds have in common; Self is the class that derives from it.
template <class Self, typename C>
class CStringT {
 public:
  typedef C Char;
  typedef CStringDataT<C> Data;

  int GetLength() const { return GetData()->nDataLength; }
  int GetAllocLength() const { return GetData()->nAllocLength; }
  bool IsEmpty() const { return GetLength() == 0; }
  operator const C*() const { return m_pchData; }
  operator C*() { return m_pchData; }
  void Empty() { Release(); }

  // Negative, zero or positive; null sorts before every text.
  int Compare(const C* other) const;
  int CompareNoCase(const C* other) const;

  // The text as it is, to be read or changed in place up to GetLength().
  C* GetBuffer() const { return m_pchData; }

  // The text with room for n characters and the terminator, or null without memory. When it had to
  // grow, the length reads n until ReleaseBuffer is called.
  C* GetBuffer(int n);

  // Ends writing: the text has n characters, or those before its terminator for -1. Forgets the
  // spare room; n beyond the room counts as the room.
  void ReleaseBuffer(int n = -1);

  // Appends at most n characters, ending at a zero among them.
  Self& Append(const C* text, unsigned long n);
  Self& operator+=(const Self& other);

  // printf. The room is estimated first and what lies beyond it is cut: 32 characters or the width
  // for an integer, the length of each text, but nothing for floating values, which therefore
  // vanish or are cut; callers print times and sizes as integers.
  BOOL FormatV(const C* format, va_list args);

  static const C* CharNext(const C* p) { return p + 1; }
  static int SafeStrlen(const C* text);
  static int tchar_cstrisdigit(C c);
  static int tchar_cstrtoi(const C* text);

  // Internal operations. AllocBuffer does not release the block that was there before.
  Data* GetData() const { return reinterpret_cast<Data*>(m_pchData) - 1; }
  void Init();
  BOOL AllocBuffer(int n);
  BOOL AllocText(int n);  // for n > 0: writes the terminator alone, the caller the characters
  BOOL AssignCopy(int n, const C* text);
  BOOL ConcatCopy(int length1, const C* text1, int length2, const C* text2);
  BOOL ConcatInPlace(int n, const C* text);
  void CopyBeforeWrite();
  BOOL AllocBeforeWrite(int n, bool zeroed = true);
  void Release();
  static void Release(Data* header);
  static long InterlockedDecrement(long* count);
  static int InterLockInit() { return 0; }
  static int InterLockRealese() { return 0; }

  C* m_pchData;  // never null

 protected:
  CStringT() { Init(); }
  CStringT(int n, const C* text);
  CStringT(const CStringT&) = delete;
  CStringT& operator=(const CStringT&) = delete;
  ~CStringT() { Release(GetData()); }
  void Assign(const Self& other);
  void Swap(Self& other);
};

class CString : public CStringT<CString, wchar_t> {
 public:
  CString() {}
  CString(const CString& other) : CString(other.m_pchData) {}
  CString(CString&& other) noexcept { Swap(other); }
  CString(const wchar_t* text);                // NOLINT: meant to convert, as the next
  CString(const char* text) { *this = text; }  // NOLINT

  CString& operator=(const CString& other);
  CString& operator=(CString&& other) noexcept;
  CString& operator=(const wchar_t* text);
  CString& operator=(const char* text);

  // A plain "%s" takes a wide text, as "%ls" does; "%hs" a narrow one.
  BOOL Format(const wchar_t* format, ...);

  // UTF-8 to `target`, which has room for limit + 1 characters. The result of
  // MultiByteToWideChar.
  static int tchar_mbstowcsz(wchar_t* target, const char* source, int limit);
};

class CStringA : public CStringT<CStringA, char> {
 public:
  CStringA() {}
  CStringA(const CStringA& other) : CStringA(other.m_pchData) {}
  CStringA(CStringA&& other) noexcept { Swap(other); }
  CStringA(const char* text);                      // NOLINT: meant to convert, as the next
  CStringA(const wchar_t* text) { *this = text; }  // NOLINT

  CStringA& operator=(const CStringA& other);
  CStringA& operator=(CStringA&& other) noexcept;
  CStringA& operator=(const char* text);
  CStringA& operator=(const wchar_t* text);

  // "%s" takes a narrow text, "%ls" a wide one; nothing is rewritten.
  BOOL Format(const char* format, ...);

  // UTF-32 to UTF-8 into `target`, which has room for limit + 1 bytes. The result of
  // WideCharToMultiByte.
  static int char_wcstombsz(char* target, const wchar_t* source, int limit);
};

static_assert(sizeof(CString) == sizeof(void*) && sizeof(CStringA) == sizeof(void*),
              "a string is one pointer");

// Replaces every `from`, each time searching again from the start of the text, so that what a
// replacement completes is replaced as well. An empty `from` changes nothing; where `to` holds
// `from`, what was put in is not searched again. Returns 0.
int my_replace(std::wstring& text, const std::wstring& from, const std::wstring& to);

extern template class CStringT<CString, wchar_t>;
extern template class CStringT<CStringA, char>;
