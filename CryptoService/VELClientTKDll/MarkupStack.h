#pragma once
// The names of the open elements of a parse, for end tags that do not close the innermost one.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "MarkupToken.h"
#include "MarkupTree.h"

// The open elements are known from the index: each is the parent of the next. They are filed here
// only when one is searched for, each once, so that a document without faults costs nothing and a
// search is constant however many elements are open and however their names differ. (Match lets a
// name that goes on with "[" or "]" answer to the shorter one: it is filed under each of them.)
class ElemStack {
 public:
  // The text, the flags and the tree are not owned; the tree may grow.
  ElemStack(const TokenPos& token, const ElemPosTree& tree);

  // How many open elements lie above the nearest one that the token matches; -1 when none does.
  // nDepth elements are open, iPos is the innermost.
  int FindAbove(const TokenPos& token, int iPos, int nDepth);
  // Only the nDepth outermost elements are still open.
  void Close(int nDepth) {
    if (static_cast<size_t>(nDepth) < m_filed.size()) Unfile(nDepth);
  }

 private:
  struct Key {
    uint64_t nHash;
    int nDepth;  // index of the element in m_filed
    int nLen;    // characters of its name that are the key
    int iNext;   // next key of the slot, -1 = none
  };

  const wchar_t* NameOf(int iPos) const { return m_pDocText + m_tree.GetAt(iPos).nStart + 1; }
  uint64_t x_Hash(uint64_t nHash, wchar_t c) const;
  size_t CalcSlot(uint64_t nHash) const { return (nHash ^ nHash >> 32) & (m_slots.size() - 1); }
  void FileOpen(int iPos, int nDepth);
  void Unfile(int nDepth);
  void AddKey(const Key& key);
  void GrowSlots();

  const wchar_t* m_pDocText;
  bool m_bIgnoreCase;
  const ElemPosTree& m_tree;
  uint64_t m_nSeed;
  std::vector<int> m_filed;  // the outermost open elements
  std::vector<Key> m_keys;
  std::vector<int> m_slots;
};
