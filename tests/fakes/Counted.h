#pragma once
#include "FakeDevice.h"
#include "SmartObject.h"

// An object of the device library: handed out with `first` references, gone with the last one.
template <typename Interface>
class Counted : public Interface {
 public:
  explicit Counted(unsigned long first) : m_references(first) { Fake().Count(1); }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

  void Destroy() override { delete this; }
  unsigned long AddRef() override { return ++m_references; }
  unsigned long Release() override {
    const unsigned long left = --m_references;
    if (left == 0) delete this;
    return left;
  }

 protected:
  virtual ~Counted() { Fake().Count(-1); }

 private:
  unsigned long m_references;
};
