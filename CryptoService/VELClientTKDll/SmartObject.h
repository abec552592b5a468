#pragma once
// Objects that the device library hands out, and the pointer that holds them.

// Reference counted; a factory hands an object out with the count 0, the taker's AddRef makes it 1
// and the last Release destroys it. The slot order is frozen.
class ISmartObject {
 public:
  virtual void Destroy() = 0;
  virtual unsigned long AddRef() = 0;   // the new count
  virtual unsigned long Release() = 0;  // the new count
};

// Holds one reference on an object, or nothing. Several pointers may hold the same object, each
// with a reference of its own.
template <typename T>
class CSmartObjPtr {
 public:
  CSmartObjPtr() : m_ptr(nullptr) {}
  CSmartObjPtr(T* p) : m_ptr(p) {  // NOLINT: meant to convert
    if (m_ptr != nullptr) m_ptr->AddRef();
  }
  CSmartObjPtr(const CSmartObjPtr& other) : CSmartObjPtr(other.m_ptr) {}
  virtual ~CSmartObjPtr() { Release(); }

  void Release() {
    if (m_ptr == nullptr) return;
    m_ptr->Release();
    m_ptr = nullptr;
  }

  // Drops the old object and takes a reference on p; the object that is already held is left alone.
  T* operator=(T* p) {
    if (p == m_ptr) return m_ptr;
    Release();
    m_ptr = p;
    if (m_ptr != nullptr) m_ptr->AddRef();
    return m_ptr;
  }
  CSmartObjPtr& operator=(const CSmartObjPtr& other) {
    *this = other.m_ptr;
    return *this;
  }

  operator T*() const { return m_ptr; }
  T* operator->() const { return m_ptr; }
  bool operator==(T* p) const { return m_ptr == p; }
  bool operator!=(T* p) const { return m_ptr != p; }
  bool operator!() const { return m_ptr == nullptr; }

  // The slot itself, for out-parameters; whatever was held must have been released before.
  T** operator&() { return &m_ptr; }

  // Takes over a reference that the caller already owns.
  void Attach(T* p) {
    Release();
    m_ptr = p;
  }

  // Gives the reference up to the caller.
  T* Detach() {
    T* const p = m_ptr;
    m_ptr = nullptr;
    return p;
  }

  T* m_ptr;
};
