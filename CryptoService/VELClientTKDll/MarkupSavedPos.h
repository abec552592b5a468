#pragma once
// Named positions of a markup document, in numbered hash maps.
#include <string>
#include <unordered_map>
#include <vector>

// An element's index and the place it had in the position triple.
struct SavedPos {
  enum Role { ROLE_PARENT, ROLE_MAIN, ROLE_CHILD };
  int iPos;
  Role role;
};

struct SavedPosMap {
  static constexpr int DEFAULT_SIZE = 7;
  std::unordered_map<std::wstring, SavedPos> positions{DEFAULT_SIZE};
};

struct SavedPosMapArray {
  // The map of that number, made when missing; null for a number outside 0 to 65,535.
  SavedPosMap* GetMap(int nMap) {
    if (nMap < 0 || nMap > 0xffff) return nullptr;
    if (m_maps.size() <= static_cast<size_t>(nMap)) m_maps.resize(nMap + 1);
    return &m_maps[nMap];
  }
  void ReleaseMaps() { m_maps.clear(); }

  std::vector<SavedPosMap> m_maps;
};
