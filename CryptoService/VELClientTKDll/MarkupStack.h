#pragma once
// The open elements of a parse, by the place of their names in the document text.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "MarkupToken.h"

// An end tag that closes the element on top costs one comparison. Only an end tag that does not
// fills the hash of the open names, each name once, so that a search is constant however many
// elements are open and however their names differ. (Match lets a name that goes on with "[" or
// "]" answer to the shorter one: it is filed under each of them.)
class ElemStack {
 public:
  struct OpenTag {
    int iPos;      // position of the element
    int nName;     // offset of its name
    int nNameLen;  // characters
  };

  // The text and flags are those of the token; neither is owned.
  explicit ElemStack(const TokenPos& token);

  void Push(int iPos, int nName, int nNameLen) { m_tags.push_back({iPos, nName, nNameLen}); }
  void Pop(int nCount);
  int GetDepth() const { return static_cast<int>(m_tags.size()); }
  // nAbove = 0 is the element on top.
  const OpenTag& GetAt(int nAbove) const { return m_tags[m_tags.size() - 1 - nAbove]; }

  // How many open elements lie above the nearest one that the token matches; -1 when none does.
  int FindAbove(const TokenPos& token);

 private:
  struct Key {
    uint64_t nHash;
    int iTag;
    int nLen;   // characters of the tag's name that are the key
    int iNext;  // next key of the slot, -1 = none
  };

  uint64_t x_Hash(uint64_t nHash, wchar_t c) const;
  size_t CalcSlot(uint64_t nHash) const { return (nHash ^ nHash >> 32) & (m_slots.size() - 1); }
  void FileTags();
  void AddKey(const Key& key);
  void GrowSlots();

  const wchar_t* m_pDocText;
  bool m_bIgnoreCase;
  uint64_t m_nSeed;
  std::vector<OpenTag> m_tags;
  size_t m_nFiled;  // tags at the bottom that the hash knows
  std::vector<Key> m_keys;
  std::vector<int> m_slots;
};
