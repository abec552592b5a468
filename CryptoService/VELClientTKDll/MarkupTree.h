#pragma once
// The element index of a markup document: one record of 32 bytes for each element, in segments.
#include "MarkupFlags.h"

struct ElemPos {
  enum : unsigned int { START_TAG_MAX = 0x3fffff, END_TAG_MAX = 0x3ff };
  enum : int { LEVEL_MASK = 0xffff };

  int nStart;                      // offset of the '<'
  int nLength;                     // to the end of the end tag; of the start tag without one
  unsigned int nStartTagLen : 22;  // START_TAG_MAX also when the tag is longer
  unsigned int nEndTagLen : 10;    // 0 without end tag; END_TAG_MAX also when the tag is longer
  int nFlags;                      // node flags above, the depth modulo 65,536 in the low 16 bits
  int iElemParent;                 // 0 = the document
  int iElemChild;                  // first child, 0 = none
  int iElemNext;                   // next sibling, 0 = none
  int iElemPrev;                   // previous sibling; of the first child: the last sibling
};
static_assert(sizeof(ElemPos) == 32, "one element costs 32 bytes");

// Positions 0 to m_nSize - 1; new ones are not initialised. Position i is entry i % 65,536 of
// segment i / 65,536; growth moves the entries of the last segment at most. Out of memory growth
// throws std::bad_alloc and changes nothing that is seen.
struct ElemPosTree {
  enum : int { SEG_BITS = 16, SEG_SIZE = 1 << SEG_BITS };

  ElemPosTree() : m_pSegs(nullptr), m_nSize(0), m_nSegs(0) {}
  ElemPosTree(const ElemPosTree&) = delete;
  ElemPosTree& operator=(const ElemPosTree&) = delete;
  ~ElemPosTree() { Clear(); }

  int GetSize() const { return m_nSize; }
  ElemPos& GetAt(int i) const {
    return m_pSegs[static_cast<unsigned int>(i) >> SEG_BITS][i & (SEG_SIZE - 1)];
  }

  // Grows to nNewSize positions, or to the end of the segment after the last one when that is
  // less. A size that is not larger changes nothing.
  void GrowElemPosTree(int nNewSize);
  void Clear();

  ElemPos** m_pSegs;
  int m_nSize;  // positions allocated
  int m_nSegs;  // capacity of m_pSegs

 private:
  enum : int { FIRST_SEGS = 4 };

  void ResizeSegment(int iSeg, int nNewSize);

  ElemPos* m_pFirstSegs[FIRST_SEGS];  // what m_pSegs points at while it is enough
};
