#include "MarkupTree.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <type_traits>

static_assert(std::is_trivially_copyable<ElemPos>::value, "segments are resized as bytes");

void ElemPosTree::GrowElemPosTree(int nNewSize) {
  if (nNewSize <= m_nSize) return;
  const int last = m_nSize == 0 ? 0 : (m_nSize - 1) >> SEG_BITS;
  int newLast = (nNewSize - 1) >> SEG_BITS;
  if (newLast > last + 1) {
    newLast = last + 1;
    nNewSize = (newLast + 1) << SEG_BITS;
  }
  if (newLast >= m_nSegs) {
    const int capacity = (newLast + 2) * 2;
    ElemPos** const segs = capacity > FIRST_SEGS ? new ElemPos*[capacity] : m_pFirstSegs;
    std::fill_n(std::copy_n(m_pSegs, m_nSegs, segs), capacity - m_nSegs, nullptr);
    if (m_pSegs != m_pFirstSegs) delete[] m_pSegs;
    m_pSegs = segs;
    m_nSegs = capacity;
  }
  const int lastSize = m_nSize - (last << SEG_BITS);
  if (newLast > last && lastSize < SEG_SIZE) ResizeSegment(last, SEG_SIZE);
  ResizeSegment(newLast, nNewSize - (newLast << SEG_BITS));
  m_nSize = nNewSize;
}

// A block that can grow where it is need not be copied.
void ElemPosTree::ResizeSegment(int iSeg, int nNewSize) {
  void* const segment = realloc(m_pSegs[iSeg], nNewSize * sizeof(ElemPos));
  if (segment == nullptr) throw std::bad_alloc();
  m_pSegs[iSeg] = static_cast<ElemPos*>(segment);
}

void ElemPosTree::Clear() {
  for (int i = 0; i < m_nSegs; ++i) free(m_pSegs[i]);
  if (m_pSegs != m_pFirstSegs) delete[] m_pSegs;
  m_pSegs = nullptr;
  m_nSize = 0;
  m_nSegs = 0;
}
