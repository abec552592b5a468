#pragma once
// The string inside the records that cross to the device library: the text and its terminator in a
// CSmartBuffer, 32 bytes an object. Wide in the certificate records, narrow in device name lists.
#include <strings.h>

#include <cwchar>
#include <string>
#include <utility>

#include "SmartBuffer.h"

#pragma pack(push, 4)

template <typename C>
class IVelStringT {
 public:
  virtual long AddString(const C* pStr) = 0;
  virtual void Empty() = 0;
};

// Records hold many of these and are copied by the thousand, so a copy takes one block and a move
// none. One thread at a time.
template <typename C>
class CVelStringT : public IVelStringT<C> {
 public:
  CVelStringT() { CVelStringT::Empty(); }
  CVelStringT(const C* pStr) : CVelStringT() { CVelStringT::AddString(pStr); }  // NOLINT: converts

  // Takes the text alone, read by the layout: `other` may have been made on another heap and have
  // tables of its own.
  CVelStringT(const CVelStringT& other) : IVelStringT<C>() {
    const C* const text = static_cast<const C*>(other.m_smString.m_pBuffer);
    const size_t length = text == nullptr ? 0 : std::char_traits<C>::length(text);
    if (length > 0 && length < UINT32_MAX / sizeof(C))
      m_smString.SetBuffer(text, static_cast<unsigned int>((length + 1) * sizeof(C)));
    Settle();
  }

  // Leaves `other` without a text until it is assigned one.
  CVelStringT(CVelStringT&& other) noexcept : m_smString(std::move(other.m_smString)) {
    other.m_pStr = nullptr;
    Settle();
  }

  // Through the virtual Empty and AddString; assigning the own text changes nothing.
  CVelStringT& operator=(const C* pStr) {
    const C* const text = *this;
    if (pStr != nullptr && pStr == text) return *this;
    if (Holds(pStr)) return *this = CVelStringT(pStr);
    Empty();
    AddString(pStr);
    return *this;
  }
  CVelStringT& operator=(const CVelStringT& other) {
    return this == &other ? *this : *this = static_cast<const C*>(other);
  }

  // Appends the text; null and empty texts change nothing. Returns the new length.
  long AddString(const C* pStr) override {
    if (pStr == nullptr || *pStr == 0) return GetSize();
    if (m_smString.GetAddress() == nullptr) AppendTerminator();
    C* text = static_cast<C*>(m_smString.GetAddress());
    const size_t length = std::char_traits<C>::length(pStr);
    if (text == nullptr) return GetSize();
    if (length > UINT32_MAX / sizeof(C) - 2 - static_cast<size_t>(GetSize())) return GetSize();
    // The first character takes the terminator's place; the others and a new terminator, which
    // follows them in the source, are one growth.
    text[GetSize()] = *pStr;
    m_smString.AppendBuffer(pStr + 1, static_cast<unsigned int>(length * sizeof(C)));
    text = static_cast<C*>(m_smString.GetAddress());
    m_pStr = text;
    if (text != nullptr)
      text[GetSize()] = 0;  // it was overwritten if pStr ends where this text does
    return GetSize();
  }

  // The empty text: m_pStr is null and the buffer holds the terminator alone.
  void Empty() override {
    m_pStr = nullptr;
    m_smString.Free();
    AppendTerminator();
  }

  // The text; never null while memory lasts.
  operator const C*() const {
    return static_cast<const C*>(const_cast<CSmartBuffer&>(m_smString).GetAddress());
  }

  // Characters without the terminator.
  long GetSize() const {
    return static_cast<long>(const_cast<CSmartBuffer&>(m_smString).GetSize() / sizeof(C)) - 1;
  }

  // Negative, zero or positive; letters compare as small ones when bNoCase is set. Null sorts
  // before every text.
  int Compare(const C* pStr, BOOL bNoCase = FALSE) const {
    const C* const text = *this;
    if (text == nullptr) return -1;
    if (pStr == nullptr) return 1;
    return bNoCase ? CompareFolded(text, pStr) : CompareExact(text, pStr);
  }
  int CompareNoCase(const C* pStr) const { return Compare(pStr, TRUE); }

  const C* m_pStr;
  CSmartBuffer m_smString;

 private:
  // After taking over a buffer: the state that AddString would have left.
  void Settle() {
    if (m_smString.GetAddress() == nullptr) AppendTerminator();
    m_pStr = GetSize() > 0 ? static_cast<const C*>(*this) : nullptr;
  }
  bool Holds(const C* pStr) const {
    const size_t distance = reinterpret_cast<uintptr_t>(pStr) -
                            reinterpret_cast<uintptr_t>(static_cast<const C*>(*this));
    return distance < const_cast<CSmartBuffer&>(m_smString).GetSize();
  }
  void AppendTerminator() {
    const C terminator = 0;
    m_smString.AppendBuffer(&terminator, sizeof(terminator));
  }
  static int CompareFolded(const wchar_t* a, const wchar_t* b) { return _wcsicmp(a, b); }
  static int CompareFolded(const char* a, const char* b) { return strcasecmp(a, b); }
  static int CompareExact(const wchar_t* a, const wchar_t* b) { return wcscmp(a, b); }
  static int CompareExact(const char* a, const char* b) { return strcmp(a, b); }
};

#pragma pack(pop)

typedef CVelStringT<wchar_t> CVelStringW;
typedef CVelStringT<char> CVelStringA;

static_assert(sizeof(CVelStringW) == 32 && alignof(CVelStringW) == 4, "part of record layouts");
