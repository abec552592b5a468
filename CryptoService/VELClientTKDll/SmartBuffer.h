#pragma once
// A growable byte buffer on the process heap. Buffers cross the boundary to the device library as
// IBuffer*; the slot order is frozen.
#include <cstdint>
#include <cstring>

#include "VELInterface.h"

// Records are packed to 4 bytes and hold these objects at such offsets, so the classes themselves
// ask for no more alignment than that.
#pragma pack(push, 4)

class IBuffer {
 public:
  virtual void* Alloc(unsigned int nSize) = 0;
  virtual void* ReAlloc(unsigned int nSize) = 0;
  virtual void Free() = 0;
  virtual void* AppendBuffer(const void* pData, unsigned int nSize) = 0;
  virtual void* SetBuffer(const void* pData, unsigned int nSize) = 0;
  virtual unsigned int GetBuffer(void* pDest, unsigned int nSize) = 0;
  virtual unsigned int GetSize() = 0;
  virtual void* GetAddress() = 0;
  virtual BYTE* GetBytes() = 0;
};

// The size is not stored: it is what HeapSize reports, and every growth is exact. The operations
// call each other through the virtual table, so that a subclass may replace ReAlloc. One thread at
// a time.
class CSmartBuffer : public IBuffer {
 public:
  CSmartBuffer() : m_pBuffer(nullptr) {}
  CSmartBuffer(const CSmartBuffer& other) : IBuffer(), m_pBuffer(nullptr) { CopyFrom(other); }
  CSmartBuffer(CSmartBuffer&& other) noexcept : IBuffer(), m_pBuffer(other.m_pBuffer) {
    other.m_pBuffer = nullptr;
  }
  CSmartBuffer& operator=(const CSmartBuffer& other) {
    CopyFrom(other);
    return *this;
  }

  // A fresh block of nSize zero bytes in place of the old one; null for 0 bytes or no memory.
  void* Alloc(unsigned int nSize) override {
    Free();
    if (nSize == 0) return nullptr;
    m_pBuffer = HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, nSize);
    return m_pBuffer;
  }

  // Resizes, the grown tail zero. Without memory the old block is lost and null comes back.
  void* ReAlloc(unsigned int nSize) override {
    if (m_pBuffer == nullptr) return Alloc(nSize);
    if (nSize == 0) {
      Free();
      return nullptr;
    }
    void* const old = m_pBuffer;
    m_pBuffer = HeapReAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, old, nSize);
    if (m_pBuffer == nullptr) HeapFree(GetProcessHeap(), 0, old);
    return m_pBuffer;
  }

  void Free() override {
    if (m_pBuffer == nullptr) return;
    HeapFree(GetProcessHeap(), 0, m_pBuffer);
    m_pBuffer = nullptr;
  }

  // Appends nSize bytes; null data or 0 bytes change nothing. pData may lie in the buffer.
  void* AppendBuffer(const void* pData, unsigned int nSize) override;

  // Replaces the content by nSize bytes; 0 bytes free the block. pData may lie in the buffer.
  void* SetBuffer(const void* pData, unsigned int nSize) override;

  // Copies at most nSize bytes out; the count, or 0 when pDest is null or nearer to the block than
  // its size.
  unsigned int GetBuffer(void* pDest, unsigned int nSize) override;

  unsigned int GetSize() override {
    if (m_pBuffer == nullptr) return 0;
    return static_cast<unsigned int>(HeapSize(GetProcessHeap(), 0, m_pBuffer));
  }
  void* GetAddress() override { return m_pBuffer; }
  BYTE* GetBytes() override { return static_cast<BYTE*>(m_pBuffer); }

  virtual ~CSmartBuffer() { CSmartBuffer::Free(); }

  void* m_pBuffer;

 private:
  size_t Offset(const void* pData) const {
    return reinterpret_cast<uintptr_t>(pData) - reinterpret_cast<uintptr_t>(m_pBuffer);
  }
  bool Holds(const void* pData, unsigned int nSize) const { return Offset(pData) < nSize; }
  void CopyFrom(const CSmartBuffer& other) {
    CSmartBuffer& source = const_cast<CSmartBuffer&>(other);
    SetBuffer(source.GetAddress(), source.GetSize());
  }
};

inline void* CSmartBuffer::AppendBuffer(const void* pData, unsigned int nSize) {
  const unsigned int oldSize = GetSize();
  if (pData == nullptr || nSize == 0) return m_pBuffer;
  if (nSize > UINT32_MAX - oldSize) return nullptr;
  const bool inside = Holds(pData, oldSize);
  const size_t offset = inside ? Offset(pData) : 0;
  if (ReAlloc(oldSize + nSize) == nullptr) return nullptr;
  const void* const source = inside ? GetBytes() + offset : pData;
  memcpy(GetBytes() + GetSize() - nSize, source, nSize);
  return m_pBuffer;
}

inline void* CSmartBuffer::SetBuffer(const void* pData, unsigned int nSize) {
  const unsigned int oldSize = GetSize();
  if (pData == m_pBuffer && nSize == oldSize) return m_pBuffer;
  if (!Holds(pData, oldSize)) {
    if (ReAlloc(nSize) != nullptr && pData != nullptr) memcpy(m_pBuffer, pData, nSize);
    return m_pBuffer;
  }
  // The source lies in the block that ReAlloc may move or cut: bring it to the front first.
  const size_t rest = oldSize - Offset(pData);
  memmove(m_pBuffer, pData, nSize < rest ? nSize : rest);
  return ReAlloc(nSize);
}

inline unsigned int CSmartBuffer::GetBuffer(void* pDest, unsigned int nSize) {
  const unsigned int size = GetSize();
  if (pDest == nullptr || size == 0) return 0;
  const uintptr_t dest = reinterpret_cast<uintptr_t>(pDest);
  const uintptr_t block = reinterpret_cast<uintptr_t>(m_pBuffer);
  if ((dest > block ? dest - block : block - dest) < size) return 0;
  const unsigned int count = size < nSize ? size : nSize;
  memcpy(pDest, m_pBuffer, count);
  return count;
}

#pragma pack(pop)
