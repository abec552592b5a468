#include "MarkupTree.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "Markup.h"

namespace {

constexpr int kSegment = 65536;

}  // namespace

TEST(MarkupTree, APositionIsEightWords) {
  EXPECT_EQ(sizeof(ElemPos), 32u);
  EXPECT_EQ(offsetof(ElemPos, nStart), 0u);
  EXPECT_EQ(offsetof(ElemPos, nLength), 4u);
  EXPECT_EQ(offsetof(ElemPos, nFlags), 12u);
  EXPECT_EQ(offsetof(ElemPos, iElemParent), 16u);
  EXPECT_EQ(offsetof(ElemPos, iElemChild), 20u);
  EXPECT_EQ(offsetof(ElemPos, iElemNext), 24u);
  EXPECT_EQ(offsetof(ElemPos, iElemPrev), 28u);
  ElemPos elem = ElemPos();
  elem.nStartTagLen = 0x3fffff;
  elem.nEndTagLen = 0x201;
  uint32_t word;
  memcpy(&word, reinterpret_cast<const char*>(&elem) + 8, sizeof(word));
  EXPECT_EQ(word, 0x201u << 22 | 0x3fffffu);
}

TEST(MarkupTree, OneCallAddsAtMostOneSegment) {
  ElemPosTree tree;
  tree.GrowElemPosTree(100);
  EXPECT_EQ(tree.m_nSize, 100);
  EXPECT_EQ(tree.m_nSegs, 4);
  tree.GrowElemPosTree(10 * kSegment);
  EXPECT_EQ(tree.m_nSize, 2 * kSegment);
  EXPECT_EQ(tree.m_nSegs, 4);
  tree.GrowElemPosTree(2 * kSegment + 5);
  EXPECT_EQ(tree.m_nSize, 2 * kSegment + 5);
  tree.GrowElemPosTree(10 * kSegment);
  EXPECT_EQ(tree.m_nSize, 4 * kSegment);
  EXPECT_EQ(tree.m_nSegs, 4);
  tree.GrowElemPosTree(4 * kSegment + 1);
  EXPECT_EQ(tree.m_nSize, 4 * kSegment + 1);
  EXPECT_EQ(tree.m_nSegs, 12);
}

TEST(MarkupTree, AnEmptyTreeMayGrowIntoTwoSegments) {
  ElemPosTree tree;
  tree.GrowElemPosTree(5 * kSegment);
  EXPECT_EQ(tree.m_nSize, 2 * kSegment);
  EXPECT_EQ(tree.m_nSegs, 6);
}

TEST(MarkupTree, GrowthKeepsEntriesAndFullSegmentsInPlace) {
  ElemPosTree tree;
  int filled = 0;
  for (const int size : {10, 70, kSegment - 1, kSegment + 1, kSegment + 9, 3 * kSegment}) {
    const ElemPos* const full = tree.m_nSize >= kSegment ? tree.m_pSegs[0] : nullptr;
    tree.GrowElemPosTree(size);
    if (full != nullptr) {
      EXPECT_EQ(tree.m_pSegs[0], full);
    }
    for (int i = 0; i < filled; ++i) ASSERT_EQ(tree.GetAt(i).nStart, i);
    for (; filled < tree.GetSize(); ++filled) tree.GetAt(filled).nStart = filled;
  }
  EXPECT_EQ(filled, 3 * kSegment);
}

TEST(MarkupTree, ASizeThatIsNotLargerChangesNothing) {
  ElemPosTree tree;
  tree.GrowElemPosTree(10);
  const ElemPos* const segment = tree.m_pSegs[0];
  tree.GrowElemPosTree(10);
  tree.GrowElemPosTree(0);
  tree.GrowElemPosTree(-1);
  EXPECT_EQ(tree.m_nSize, 10);
  EXPECT_EQ(tree.m_pSegs[0], segment);
  tree.Clear();
  EXPECT_EQ(tree.m_nSize, 0);
  EXPECT_EQ(tree.m_pSegs, nullptr);
}

TEST(MarkupTree, PositionsAreReservedByTheLengthOfTheText) {
  CMarkup doc(L"<a/>");
  EXPECT_EQ(doc.m_pElemPosTree->m_nSize, 8);
  doc.SetDoc(L"<a>" + std::wstring(6400, L'x') + L"</a>");
  EXPECT_EQ(doc.m_pElemPosTree->m_nSize, 6407 / 64 + 8);
  doc.SetDoc(L"<a/>");
  EXPECT_EQ(doc.m_pElemPosTree->m_nSize, 6407 / 64 + 8);
  doc.SetDoc(nullptr);
  EXPECT_EQ(doc.m_pElemPosTree->m_nSize, 8);
}

TEST(MarkupTree, AFullTreeGrowsByHalf) {
  CMarkup doc(L"<a/>");
  EXPECT_EQ(doc.m_iPosFree, 2);
  for (int i = 2; i < 8; ++i) EXPECT_EQ(doc.x_GetFreePos(), i);
  EXPECT_EQ(doc.m_pElemPosTree->m_nSize, 8);
  EXPECT_EQ(doc.x_GetFreePos(), 8);
  EXPECT_EQ(doc.m_pElemPosTree->m_nSize, 12);
  doc.x_AllocElemPos(5);
  EXPECT_EQ(doc.m_pElemPosTree->m_nSize, 12);
  doc.x_AllocElemPos();
  EXPECT_EQ(doc.m_pElemPosTree->m_nSize, 13);
}
