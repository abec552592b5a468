#include "MarkupTree.h"

#include <algorithm>

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
    ElemPos** const segs = new ElemPos*[capacity]();
    std::copy_n(m_pSegs, m_nSegs, segs);
    delete[] m_pSegs;
    m_pSegs = segs;
    m_nSegs = capacity;
  }
  const int lastSize = m_nSize - (last << SEG_BITS);
  if (newLast > last && lastSize < SEG_SIZE) ResizeSegment(last, lastSize, SEG_SIZE);
  ResizeSegment(newLast, newLast == last ? lastSize : 0, nNewSize - (newLast << SEG_BITS));
  m_nSize = nNewSize;
}

void ElemPosTree::ResizeSegment(int iSeg, int nOldSize, int nNewSize) {
  ElemPos* const segment = new ElemPos[nNewSize];
  std::copy_n(m_pSegs[iSeg], nOldSize, segment);
  delete[] m_pSegs[iSeg];
  m_pSegs[iSeg] = segment;
}

void ElemPosTree::Clear() {
  for (int i = 0; i < m_nSegs; ++i) delete[] m_pSegs[i];
  delete[] m_pSegs;
  m_pSegs = nullptr;
  m_nSize = 0;
  m_nSegs = 0;
}
