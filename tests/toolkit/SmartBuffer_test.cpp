#include "SmartBuffer.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

class SmartBuffer : public testing::Test {
 protected:
  static std::string Text(CSmartBuffer& buffer) {
    return std::string(reinterpret_cast<const char*>(buffer.GetBytes()), buffer.GetSize());
  }
  static std::string Zeros(size_t n) { return std::string(n, '\0'); }

  CSmartBuffer m_buffer;
};

TEST_F(SmartBuffer, StartsWithoutABlock) {
  EXPECT_EQ(m_buffer.m_pBuffer, nullptr);
  EXPECT_EQ(m_buffer.GetAddress(), nullptr);
  EXPECT_EQ(m_buffer.GetBytes(), nullptr);
  EXPECT_EQ(m_buffer.GetSize(), 0u);
}

TEST_F(SmartBuffer, AllocGivesZeroBytesInPlaceOfTheOldBlock) {
  m_buffer.SetBuffer("abcdef", 6);
  const void* const block = m_buffer.Alloc(4);
  EXPECT_EQ(block, m_buffer.m_pBuffer);
  EXPECT_EQ(Text(m_buffer), Zeros(4));
  EXPECT_EQ(m_buffer.Alloc(0), nullptr);
  EXPECT_EQ(m_buffer.GetSize(), 0u);
}

TEST_F(SmartBuffer, SizeIsExactAtEveryLength) {
  for (unsigned int n = 1; n < 4096; n += n < 64 ? 1 : 61) {
    m_buffer.Alloc(n);
    ASSERT_EQ(m_buffer.GetSize(), n);
    m_buffer.ReAlloc(n + 1);
    ASSERT_EQ(m_buffer.GetSize(), n + 1);
  }
}

TEST_F(SmartBuffer, ReAllocKeepsBytesAndZeroesTheTail) {
  EXPECT_NE(m_buffer.ReAlloc(2), nullptr);
  EXPECT_EQ(Text(m_buffer), Zeros(2));
  m_buffer.SetBuffer("abcd", 4);
  m_buffer.ReAlloc(2);
  EXPECT_EQ(Text(m_buffer), "ab");
  m_buffer.ReAlloc(6);
  EXPECT_EQ(Text(m_buffer), "ab" + Zeros(4));
  EXPECT_EQ(m_buffer.ReAlloc(0), nullptr);
  EXPECT_EQ(m_buffer.GetAddress(), nullptr);
}

TEST_F(SmartBuffer, FreeMayBeRepeated) {
  m_buffer.SetBuffer("a", 1);
  m_buffer.Free();
  m_buffer.Free();
  EXPECT_EQ(m_buffer.GetAddress(), nullptr);
  EXPECT_EQ(m_buffer.GetSize(), 0u);
}

TEST_F(SmartBuffer, AppendGrowsExactly) {
  const void* const block = m_buffer.AppendBuffer("ab", 2);
  EXPECT_EQ(block, m_buffer.GetAddress());
  m_buffer.AppendBuffer("cde", 3);
  EXPECT_EQ(Text(m_buffer), "abcde");
}

TEST_F(SmartBuffer, AppendOfZeroBytesKeepsTheBlock) {
  m_buffer.SetBuffer("ab", 2);
  const void* const block = m_buffer.GetAddress();
  EXPECT_EQ(m_buffer.AppendBuffer("x", 0), block);
  EXPECT_EQ(m_buffer.AppendBuffer(nullptr, 5), block);
  EXPECT_EQ(m_buffer.GetAddress(), block);
  EXPECT_EQ(Text(m_buffer), "ab");
}

TEST_F(SmartBuffer, AppendBeyond32BitsChangesNothing) {
  m_buffer.SetBuffer("ab", 2);
  volatile unsigned int huge = 0xFFFFFFFF;  // unknown to the compiler, which would warn
  EXPECT_EQ(m_buffer.AppendBuffer("x", huge), nullptr);
  EXPECT_EQ(Text(m_buffer), "ab");
}

TEST_F(SmartBuffer, SetBufferReplaces) {
  const void* const block = m_buffer.SetBuffer("abcd", 4);
  EXPECT_EQ(block, m_buffer.GetAddress());
  EXPECT_EQ(Text(m_buffer), "abcd");
  m_buffer.SetBuffer("xy", 2);
  EXPECT_EQ(Text(m_buffer), "xy");
}

TEST_F(SmartBuffer, SetBufferOfZeroBytesFrees) {
  m_buffer.SetBuffer("ab", 2);
  EXPECT_EQ(m_buffer.SetBuffer("x", 0), nullptr);
  EXPECT_EQ(m_buffer.GetSize(), 0u);
  EXPECT_EQ(m_buffer.GetAddress(), nullptr);
}

TEST_F(SmartBuffer, SettingTheOwnBlockChangesNothing) {
  m_buffer.SetBuffer("ab", 2);
  void* const block = m_buffer.GetAddress();
  EXPECT_EQ(m_buffer.SetBuffer(block, 2), block);
  EXPECT_EQ(Text(m_buffer), "ab");
}

TEST_F(SmartBuffer, SourcesInsideTheOwnBlockAreSafe) {
  m_buffer.SetBuffer("abcdef", 6);
  m_buffer.SetBuffer(m_buffer.GetBytes() + 2, 3);
  EXPECT_EQ(Text(m_buffer), "cde");
  m_buffer.SetBuffer(m_buffer.GetAddress(), 2);
  EXPECT_EQ(Text(m_buffer), "cd");
  for (int i = 0; i < 12; ++i) m_buffer.AppendBuffer(m_buffer.GetAddress(), m_buffer.GetSize());
  EXPECT_EQ(m_buffer.GetSize(), 2u << 12);
  EXPECT_EQ(Text(m_buffer).substr(8190), "cd");
}

TEST_F(SmartBuffer, GetBufferCopiesTheSmallerCount) {
  m_buffer.SetBuffer("abcd", 4);
  char out[8] = "-------";
  EXPECT_EQ(m_buffer.GetBuffer(out, 2), 2u);
  EXPECT_STREQ(out, "ab-----");
  EXPECT_EQ(m_buffer.GetBuffer(out, 8), 4u);
  EXPECT_STREQ(out, "abcd---");
}

TEST_F(SmartBuffer, GetBufferRefusesNullEmptyAndOverlap) {
  char out[200] = {};
  EXPECT_EQ(m_buffer.GetBuffer(out, 4), 0u);
  m_buffer.SetBuffer(std::string(100, 'x').data(), 100);
  EXPECT_EQ(m_buffer.GetBuffer(nullptr, 4), 0u);
  EXPECT_EQ(m_buffer.GetBuffer(m_buffer.GetBytes(), 4), 0u);
  EXPECT_EQ(m_buffer.GetBuffer(m_buffer.GetBytes() + 99, 1), 0u);
  EXPECT_EQ(m_buffer.GetBuffer(m_buffer.GetBytes() - 99, 1), 0u);
}

TEST_F(SmartBuffer, CopiesAreDeep) {
  m_buffer.SetBuffer("ab", 2);
  CSmartBuffer copy(m_buffer);
  CSmartBuffer assigned;
  assigned.SetBuffer("longer", 6);
  assigned = m_buffer;
  for (CSmartBuffer* other : {&copy, &assigned}) {
    EXPECT_EQ(Text(*other), "ab");
    EXPECT_NE(other->GetAddress(), m_buffer.GetAddress());
  }
  const CSmartBuffer empty;
  assigned = empty;
  EXPECT_EQ(assigned.GetAddress(), nullptr);
  const CSmartBuffer& same = copy;
  copy = same;
  EXPECT_EQ(Text(copy), "ab");
}

TEST_F(SmartBuffer, MovingTakesTheBlock) {
  m_buffer.SetBuffer("ab", 2);
  void* const block = m_buffer.GetAddress();
  CSmartBuffer moved(std::move(m_buffer));
  EXPECT_EQ(moved.GetAddress(), block);
  EXPECT_EQ(m_buffer.GetAddress(), nullptr);
}

// Refuses to grow beyond its limit and counts the calls that reach it.
class Limited : public CSmartBuffer {
 public:
  void* ReAlloc(unsigned int size) override {
    ++calls;
    return size > limit ? nullptr : CSmartBuffer::ReAlloc(size);
  }
  unsigned int GetSize() override { return CSmartBuffer::GetSize(); }
  unsigned int limit = 4;
  int calls = 0;
};

TEST_F(SmartBuffer, OperationsCallEachOtherThroughTheVirtualTable) {
  Limited buffer;
  buffer.SetBuffer("ab", 2);
  buffer.AppendBuffer("cd", 2);
  EXPECT_EQ(buffer.calls, 2);
  EXPECT_EQ(Text(buffer), "abcd");
  EXPECT_EQ(buffer.AppendBuffer("e", 1), nullptr);
  EXPECT_EQ(Text(buffer), "abcd");
  buffer.SetBuffer("vwxyz", 5);
  EXPECT_EQ(buffer.calls, 4);
  EXPECT_EQ(Text(buffer), "abcd");
}

// Notes the operation called; the size is a plain count.
class Chain : public CSmartBuffer {
 public:
  void* Alloc(unsigned int size) override {
    calls += 'A';
    return CSmartBuffer::Alloc(size);
  }
  void Free() override {
    calls += 'F';
    CSmartBuffer::Free();
  }
  std::string calls;
};

TEST_F(SmartBuffer, AllocFreesAndReAllocAllocatesThroughTheTable) {
  Chain buffer;
  buffer.ReAlloc(3);
  EXPECT_EQ(buffer.calls, "AF");
  buffer.ReAlloc(0);
  EXPECT_EQ(buffer.calls, "AFF");
}

}  // namespace
