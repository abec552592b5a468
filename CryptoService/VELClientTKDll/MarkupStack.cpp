#include "MarkupStack.h"

#include "MarkupScan.h"

ElemStack::ElemStack(const TokenPos& token, const ElemPosTree& tree)
    : m_pDocText(token.m_pDocText),
      m_bIgnoreCase((token.m_nTokenFlags & MDF_IGNORECASE) != 0),
      m_tree(tree),
      // Differs from run to run, so that no document can be written to fill one slot.
      m_nSeed(reinterpret_cast<uintptr_t>(this) * 0x9e3779b97f4a7c15u) {}

uint64_t ElemStack::x_Hash(uint64_t nHash, wchar_t c) const {
  if (m_bIgnoreCase && c >= L'A' && c <= L'Z') c += L'a' - L'A';
  nHash = (nHash ^ static_cast<uint32_t>(c)) * 0x9fb21c651e98df25u;
  return nHash ^ nHash >> 29;
}

int ElemStack::FindAbove(const TokenPos& token, int iPos, int nDepth) {
  if (nDepth == 0) return -1;
  FileOpen(iPos, nDepth);
  uint64_t hash = m_nSeed;
  for (int i = 0; i < token.Length(); ++i) hash = x_Hash(hash, token.GetTokenPtr()[i]);
  for (int i = m_slots[CalcSlot(hash)]; i != -1; i = m_keys[i].iNext) {
    const Key& key = m_keys[i];
    if (key.nHash != hash || key.nLen != token.Length()) continue;
    if (token.MatchTag(NameOf(m_filed[key.nDepth]))) return nDepth - 1 - key.nDepth;
  }
  return -1;
}

void ElemStack::FileOpen(int iPos, int nDepth) {
  size_t depth = m_filed.size();
  m_filed.resize(nDepth);
  for (size_t i = nDepth; i > depth; iPos = m_tree.GetAt(iPos).iElemParent) m_filed[--i] = iPos;
  for (; depth < m_filed.size(); ++depth) {
    const wchar_t* const name = NameOf(m_filed[depth]);
    uint64_t hash = m_nSeed;
    for (int i = 0;; ++i) {
      const bool end = TokenPos::EndsName(name[i]);
      if (end || name[i] == L'[' || name[i] == L']') {
        AddKey({hash, static_cast<int>(depth), i, -1});
      }
      if (end) break;
      hash = x_Hash(hash, name[i]);
    }
  }
}

// Keys go in the order opposite to their coming, so each is the first of its slot.
void ElemStack::Unfile(int nDepth) {
  m_filed.resize(nDepth);
  for (; !m_keys.empty() && m_keys.back().nDepth >= nDepth; m_keys.pop_back()) {
    m_slots[CalcSlot(m_keys.back().nHash)] = m_keys.back().iNext;
  }
}

void ElemStack::AddKey(const Key& key) {
  m_keys.push_back(key);
  if (m_keys.size() > m_slots.size()) {
    GrowSlots();
    return;
  }
  int& slot = m_slots[CalcSlot(key.nHash)];
  m_keys.back().iNext = slot;
  slot = static_cast<int>(m_keys.size()) - 1;
}

void ElemStack::GrowSlots() {
  m_slots.assign(m_slots.empty() ? 256 : m_slots.size() * 2, -1);
  for (size_t i = 0; i < m_keys.size(); ++i) {
    int& slot = m_slots[CalcSlot(m_keys[i].nHash)];
    m_keys[i].iNext = slot;
    slot = static_cast<int>(i);
  }
}
