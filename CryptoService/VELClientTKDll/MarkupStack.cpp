#include "MarkupStack.h"

#include <cwchar>

ElemStack::ElemStack(const TokenPos& token)
    : m_pDocText(token.m_pDocText),
      m_bIgnoreCase((token.m_nTokenFlags & MDF_IGNORECASE) != 0),
      // Differs from run to run, so that no document can be written to fill one slot.
      m_nSeed(reinterpret_cast<uintptr_t>(this) * 0x9e3779b97f4a7c15u),
      m_nFiled(0) {}

uint64_t ElemStack::x_Hash(uint64_t nHash, wchar_t c) const {
  if (m_bIgnoreCase && c >= L'A' && c <= L'Z') c += L'a' - L'A';
  nHash = (nHash ^ static_cast<uint32_t>(c)) * 0x9fb21c651e98df25u;
  return nHash ^ nHash >> 29;
}

void ElemStack::Pop(int nCount) {
  m_tags.resize(m_tags.size() - nCount);
  if (m_nFiled <= m_tags.size()) return;
  m_nFiled = m_tags.size();
  // Keys go in the order opposite to their coming, so each is the first of its slot.
  for (; !m_keys.empty() && m_keys.back().iTag >= static_cast<int>(m_nFiled); m_keys.pop_back()) {
    m_slots[CalcSlot(m_keys.back().nHash)] = m_keys.back().iNext;
  }
}

int ElemStack::FindAbove(const TokenPos& token) {
  if (m_tags.empty()) return -1;
  const OpenTag& top = m_tags.back();
  if (token.Match(m_pDocText + top.nName, top.nNameLen)) return 0;
  FileTags();
  uint64_t hash = m_nSeed;
  for (int i = 0; i < token.Length(); ++i) hash = x_Hash(hash, token.GetTokenPtr()[i]);
  for (int i = m_slots[CalcSlot(hash)]; i != -1; i = m_keys[i].iNext) {
    const Key& key = m_keys[i];
    if (key.nHash != hash || key.nLen != token.Length()) continue;
    const OpenTag& tag = m_tags[key.iTag];
    if (token.Match(m_pDocText + tag.nName, tag.nNameLen)) return GetDepth() - 1 - key.iTag;
  }
  return -1;
}

void ElemStack::FileTags() {
  for (; m_nFiled < m_tags.size(); ++m_nFiled) {
    const OpenTag& tag = m_tags[m_nFiled];
    const wchar_t* const name = m_pDocText + tag.nName;
    uint64_t hash = m_nSeed;
    for (int i = 0; i <= tag.nNameLen; ++i) {
      const bool whole = i == tag.nNameLen;
      if (whole || name[i] == L'[' || name[i] == L']') {
        AddKey({hash, static_cast<int>(m_nFiled), i, -1});
      }
      if (!whole) hash = x_Hash(hash, name[i]);
    }
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
