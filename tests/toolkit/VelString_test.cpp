#include "VelString.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

template <typename C>
std::basic_string<C> Widen(const std::string& ascii) {
  return {ascii.begin(), ascii.end()};
}

template <typename C>
void ExpectText(CVelStringT<C>& s, const std::string& text) {
  EXPECT_TRUE(static_cast<const C*>(s) == Widen<C>(text)) << text;
  EXPECT_EQ(s.GetSize(), static_cast<long>(text.size()));
  EXPECT_EQ(s.m_smString.GetSize(), (text.size() + 1) * sizeof(C));
  if (text.empty())
    EXPECT_EQ(s.m_pStr, nullptr);
  else
    EXPECT_EQ(s.m_pStr, static_cast<const C*>(s));
}

template <typename C>
class VelString : public testing::Test {};
typedef testing::Types<wchar_t, char> Characters;
TYPED_TEST_SUITE(VelString, Characters, );

// Both kinds go through the same cases: T("abc") is a text of the kind.
#define TEST_BOTH(name)                                     \
  template <typename C>                                     \
  void name(std::basic_string<C> (*T)(const std::string&)); \
  TYPED_TEST(VelString, name) {                             \
    name<TypeParam>(Widen<TypeParam>);                      \
  }                                                         \
  template <typename C>                                     \
  void name([[maybe_unused]] std::basic_string<C> (*T)(const std::string&))

TEST_BOTH(StartsAsTheEmptyTextWithItsTerminator) {
  CVelStringT<C> s;
  ExpectText(s, "");
}

TEST_BOTH(AddStringAppends) {
  CVelStringT<C> s;
  EXPECT_EQ(s.AddString(T("ab").c_str()), 2);
  ExpectText(s, "ab");
  EXPECT_EQ(s.AddString(T("c").c_str()), 3);
  ExpectText(s, "abc");
}

TEST_BOTH(AddStringOfNothingOnlyTellsTheLength) {
  CVelStringT<C> s(T("ab").c_str());
  const C* const block = s;
  EXPECT_EQ(s.AddString(nullptr), 2);
  EXPECT_EQ(s.AddString(T("").c_str()), 2);
  EXPECT_EQ(static_cast<const C*>(s), block);
  CVelStringT<C> empty;
  EXPECT_EQ(empty.AddString(nullptr), 0);
  ExpectText(empty, "");
}

TEST_BOTH(EmptyKeepsTheTerminatorAlone) {
  CVelStringT<C> s(T("ab").c_str());
  s.Empty();
  ExpectText(s, "");
  ASSERT_NE(static_cast<const C*>(s), nullptr);
}

TEST_BOTH(AddingTheOwnTextDoublesIt) {
  CVelStringT<C> s(T("abc").c_str());
  s.AddString(s);
  ExpectText(s, "abcabc");
  s.AddString(static_cast<const C*>(s) + 5);
  ExpectText(s, "abcabcc");
}

TEST_BOTH(AssignmentReplacesTheText) {
  CVelStringT<C> s(T("abc").c_str());
  s = T("defg").c_str();
  ExpectText(s, "defg");
  const CVelStringT<C> other(T("x").c_str());
  s = other;
  ExpectText(s, "x");
  EXPECT_NE(static_cast<const C*>(s), static_cast<const C*>(other));
  s = T("").c_str();
  ExpectText(s, "");
  s = T("a").c_str();
  s = static_cast<const C*>(nullptr);
  ExpectText(s, "");
}

TEST_BOTH(AssignmentOfTheOwnTextIsSafe) {
  CVelStringT<C> s(T("abcdef").c_str());
  const CVelStringT<C>& same = s;
  s = same;
  ExpectText(s, "abcdef");
  s = static_cast<const C*>(s);
  ExpectText(s, "abcdef");
  s = static_cast<const C*>(s) + 2;
  ExpectText(s, "cdef");
  s = static_cast<const C*>(s) + 4;  // its terminator
  ExpectText(s, "");
}

TEST_BOTH(CopiesOwnTheirText) {
  CVelStringT<C> s(T("abc").c_str());
  CVelStringT<C> copy(s);
  s.Empty();
  ExpectText(copy, "abc");
  CVelStringT<C> emptyCopy(s);
  ExpectText(emptyCopy, "");
}

// As a record of a device library with a heap of its own is.
TEST_BOTH(CopiesTakeTheTextOfABlockFromAnotherHeap) {
  struct {
    unsigned long before[2];  // where the process heap would have its size
    C text[8];
  } foreign = {{~0ul, ~0ul}, {'a', 'b', 'c', 0}};
  CVelStringT<C> s;
  s.m_smString.Free();
  s.m_smString.m_pBuffer = foreign.text;
  CVelStringT<C> copy(s);
  s.m_smString.m_pBuffer = nullptr;
  ExpectText(copy, "abc");
}

TEST_BOTH(MovingTakesTheBlockAndTheOtherMayBeUsedAgain) {
  CVelStringT<C> s(T("abc").c_str());
  const C* const block = s;
  CVelStringT<C> moved(std::move(s));
  EXPECT_EQ(static_cast<const C*>(moved), block);
  ExpectText(moved, "abc");
  EXPECT_EQ(s.Compare(T("").c_str()), -1);
  CVelStringT<C> copyOfNothing(s);
  ExpectText(copyOfNothing, "");
  CVelStringT<C> movedNothing(std::move(s));
  ExpectText(movedNothing, "");
  s = T("new").c_str();
  ExpectText(s, "new");
  CVelStringT<C> again(std::move(s));
  s.AddString(T("added").c_str());
  ExpectText(s, "added");
  CVelStringT<C> last(std::move(s));
  s = static_cast<const C*>(nullptr);
  ExpectText(s, "");
}

TEST_BOTH(Compares) {
  const struct {
    const char *left, *right;
    int exact, folded;
  } cases[] = {{"abc", "abc", 0, 0}, {"abc", "ABC", 1, 0}, {"a", "b", -1, -1},
               {"ab", "a", 1, 1},    {"", "", 0, 0},       {"", "a", -1, -1}};
  const auto sign = [](int v) { return (v > 0) - (v < 0); };
  for (const auto& c : cases) {
    const CVelStringT<C> s(T(c.left).c_str());
    EXPECT_EQ(sign(s.Compare(T(c.right).c_str())), c.exact) << c.left << "," << c.right;
    EXPECT_EQ(sign(s.Compare(T(c.right).c_str(), TRUE)), c.folded);
    EXPECT_EQ(sign(s.CompareNoCase(T(c.right).c_str())), c.folded);
  }
  const CVelStringT<C> s;
  EXPECT_EQ(s.Compare(nullptr), 1);
  EXPECT_EQ(s.CompareNoCase(nullptr), 1);
}

TEST_BOTH(WithoutStorageComparesAsMinusOne) {
  CVelStringT<C> s;
  s.m_smString.Free();
  EXPECT_EQ(s.Compare(T("").c_str()), -1);
  EXPECT_EQ(s.Compare(nullptr), -1);
  EXPECT_EQ(s.CompareNoCase(nullptr), -1);
}

// Notes the calls that reach it through the virtual table.
template <typename C>
class Recording : public CVelStringT<C> {
 public:
  using CVelStringT<C>::operator=;
  long AddString(const C* text) override {
    calls += 'A';
    return CVelStringT<C>::AddString(text);
  }
  void Empty() override {
    calls += 'E';
    CVelStringT<C>::Empty();
  }
  std::string calls;
};

TEST_BOTH(AssignmentGoesThroughTheVirtualOperations) {
  Recording<C> s;
  s = T("abc").c_str();
  EXPECT_EQ(s.calls, "EA");
  s = CVelStringT<C>(T("x").c_str());
  EXPECT_EQ(s.calls, "EAEA");
  ExpectText<C>(s, "x");
}

TEST_BOTH(GrowsInAVector) {
  std::vector<CVelStringT<C>> list;
  for (int i = 0; i < 100; ++i) list.push_back(T(std::to_string(i)).c_str());
  list.erase(list.begin());
  for (int i = 1; i < 100; ++i) ExpectText(list[static_cast<size_t>(i) - 1], std::to_string(i));
}

TEST(VelStringLayout, IsThirtyTwoBytesOfTableTextAndBuffer) {
  EXPECT_EQ(sizeof(CVelStringW), 32u);
  EXPECT_EQ(alignof(CVelStringW), 4u);
  CVelStringW s;
  const char* const start = reinterpret_cast<const char*>(&s);
  EXPECT_EQ(reinterpret_cast<const char*>(&s.m_pStr) - start, 8);
  EXPECT_EQ(reinterpret_cast<const char*>(&s.m_smString) - start, 16);
}

TEST(VelString32, HoldsCharactersOutsideTheBasicPlane) {
  CVelStringW s(L"\U0001F600\u4e2d");
  EXPECT_EQ(s.GetSize(), 2);
  EXPECT_EQ(s.m_smString.GetSize(), 12u);
}

}  // namespace
