#pragma once
// A list that crosses the boundary to the device library as ISmartList<T>*; the slot order is
// frozen. The items are copies made by the code that owns the list, so they outlive the library
// that filled it.
#include <algorithm>
#include <vector>

template <typename T>
class ISmartList {
 public:
  virtual long AddItem(T item) = 0;  // a copy goes to the end; the new count
  virtual long GetCount() = 0;
  virtual void Clear() = 0;
  virtual long GetData(int index, T& out) = 0;  // the count, not a status
  virtual T& GetItem(int index) = 0;            // unchecked: 0 <= index < GetCount()
  virtual void RemoveItem(int index) = 0;
  virtual void RemoveItem(const T& item) = 0;
  virtual T& operator[](int index) = 0;
};

// One thread at a time.
template <typename T>
class CSmartList : public ISmartList<T> {
 public:
  CSmartList() = default;
  CSmartList(const CSmartList&) = default;
  // Clears first, so that a list assigned to itself ends empty.
  CSmartList& operator=(const CSmartList& other) {
    Clear();
    CSmartList& source = const_cast<CSmartList&>(other);
    for (int i = 0; i < source.GetCount(); ++i) AddItem(source.GetItem(i));
    return *this;
  }

  // Copied, not taken over: device libraries that are not written in C++ hand in the address of a
  // record that they keep.
  long AddItem(T item) override {
    m_vecList.push_back(item);
    return GetCount();
  }
  long GetCount() override { return static_cast<long>(m_vecList.size()); }
  void Clear() override { m_vecList.clear(); }

  // Copies the item at the index; leaves `out` alone when it is outside the list.
  long GetData(int index, T& out) override {
    if (Has(index)) out = GetItem(index);
    return GetCount();
  }
  T& GetItem(int index) override { return m_vecList[static_cast<size_t>(index)]; }

  // Removes the item at the index; nothing when it is outside the list.
  void RemoveItem(int index) override {
    if (Has(index)) m_vecList.erase(m_vecList.begin() + index);
  }

  // Removes the first item that equals `item`; nothing when none does.
  void RemoveItem(const T& item) override {
    const auto found = std::find(m_vecList.begin(), m_vecList.end(), item);
    if (found != m_vecList.end()) m_vecList.erase(found);
  }
  T& operator[](int index) override { return m_vecList[static_cast<size_t>(index)]; }

  std::vector<T> m_vecList;

 private:
  bool Has(int index) { return index >= 0 && index < GetCount(); }
};
