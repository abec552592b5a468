#include "SmartObject.h"

#include <gtest/gtest.h>

namespace {

class Object : public ISmartObject {
 public:
  void Destroy() override { ++destroyed; }
  unsigned long AddRef() override {
    ++added;
    return ++count;
  }
  unsigned long Release() override {
    ++released;
    return --count;
  }
  unsigned long count = 0;
  int added = 0, released = 0, destroyed = 0;
};
typedef CSmartObjPtr<Object> Ptr;

class SmartObjPtr : public testing::Test {
 protected:
  void Expect(const Object& object, int added, int released) {
    EXPECT_EQ(object.added, added);
    EXPECT_EQ(object.released, released);
    EXPECT_EQ(object.destroyed, 0);
  }
  Object m_a, m_b;
};

TEST_F(SmartObjPtr, StartsWithNothing) {
  Ptr p;
  EXPECT_EQ(p.m_ptr, nullptr);
  EXPECT_TRUE(!p);
  p.Release();
  Ptr null(nullptr);
  EXPECT_TRUE(null == nullptr);
}

TEST_F(SmartObjPtr, HoldsOneReferenceUntilItEnds) {
  {
    Ptr p(&m_a);
    Expect(m_a, 1, 0);
    EXPECT_EQ(p->added, 1);
    EXPECT_FALSE(!p);
  }
  Expect(m_a, 1, 1);
}

TEST_F(SmartObjPtr, ReleaseDropsOnce) {
  Ptr p(&m_a);
  p.Release();
  EXPECT_EQ(p.m_ptr, nullptr);
  p.Release();
  Expect(m_a, 1, 1);
}

TEST_F(SmartObjPtr, AssignmentReleasesAndTakes) {
  Ptr p(&m_a);
  EXPECT_EQ(p = &m_b, &m_b);
  Expect(m_a, 1, 1);
  Expect(m_b, 1, 0);
  EXPECT_EQ(p = static_cast<Object*>(nullptr), nullptr);
  Expect(m_b, 1, 1);
}

TEST_F(SmartObjPtr, AssigningTheHeldObjectChangesNothing) {
  Ptr p(&m_a);
  EXPECT_EQ(p = &m_a, &m_a);
  p = p.m_ptr;
  const Ptr& same = p;
  p = same;
  Expect(m_a, 1, 0);
}

TEST_F(SmartObjPtr, CopiesHoldReferencesOfTheirOwn) {
  Ptr p(&m_a);
  {
    const Ptr copy(p);
    Ptr assigned(&m_b);
    assigned = p;
    Expect(m_a, 3, 0);
    Expect(m_b, 1, 1);
  }
  Expect(m_a, 3, 2);
}

TEST_F(SmartObjPtr, AttachTakesOverAndDetachGivesUp) {
  Ptr p(&m_a);
  m_b.AddRef();
  p.Attach(&m_b);
  Expect(m_a, 1, 1);
  Expect(m_b, 1, 0);
  EXPECT_EQ(p.Detach(), &m_b);
  EXPECT_EQ(p.m_ptr, nullptr);
  Expect(m_b, 1, 0);
}

TEST_F(SmartObjPtr, ComparesByIdentity) {
  const Ptr p(&m_a);
  EXPECT_TRUE(p == &m_a);
  EXPECT_FALSE(p == &m_b);
  EXPECT_TRUE(p != &m_b);
  Object* const plain = p;
  EXPECT_EQ(plain, &m_a);
}

TEST_F(SmartObjPtr, GivesItsSlotToOutParameters) {
  Ptr p;
  Object** const slot = &p;
  EXPECT_EQ(slot, &p.m_ptr);
  m_a.AddRef();
  *slot = &m_a;
  p.Release();
  Expect(m_a, 1, 1);
}

TEST_F(SmartObjPtr, HasOneVirtualOperationAndOneField) {
  EXPECT_EQ(sizeof(Ptr), 2 * sizeof(void*));
  Ptr* const p = new Ptr(&m_a);
  delete p;
  Expect(m_a, 1, 1);
}

}  // namespace
