#include "VELCstring.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <utility>

#include "ArrayAllocations.h"

namespace {

CStringData* Nil(const CString&) {
  return _atltmpDataNil;
}
CstringDataA* Nil(const CStringA&) {
  return _atltmpDataNilA;
}
wchar_t* NilText(const CString&) {
  return _atltmpPchNil;
}
char* NilText(const CStringA&) {
  return _atltmpPchNilA;
}

template <class String>
std::basic_string<typename String::Char> Widen(const std::string& ascii) {
  return {ascii.begin(), ascii.end()};
}

template <class String>
size_t BlockSize(size_t n) {
  return 64 + (n + 1) * sizeof(typename String::Char);
}

template <class String>
void ExpectNil(const String& s) {
  EXPECT_EQ(s.m_pchData, NilText(s));
  EXPECT_EQ(s.GetData(), Nil(s));
  EXPECT_EQ(s.GetData()->nRefs, -1);
  EXPECT_EQ(s.GetLength(), 0);
  EXPECT_EQ(s.GetAllocLength(), 0);
  EXPECT_TRUE(s.IsEmpty());
  EXPECT_EQ(s.m_pchData[0], 0);
}

template <class String>
void ExpectOwned(const String& s, const std::string& text) {
  EXPECT_TRUE(s.m_pchData == Widen<String>(text)) << text;
  EXPECT_EQ(s.GetLength(), static_cast<int>(text.size()));
  EXPECT_FALSE(s.IsEmpty());
  EXPECT_EQ(s.GetData()->nRefs, 1);
  EXPECT_EQ(s.m_pchData[s.GetLength()], 0);
}

template <class String>
class VELCstring : public testing::Test {
 protected:
  void SetUp() override { ArrayAllocations::Reset(); }
  void TearDown() override { ArrayAllocations::Reset(); }
};

typedef testing::Types<CString, CStringA> Kinds;
TYPED_TEST_SUITE(VELCstring, Kinds, );  // the comma is for clang: the macro is variadic

// Both kinds of string go through the same cases: T("abc") is a text of the kind, S("abc") a
// string.
#define TEST_BOTH(name)                                                                        \
  template <class String, typename C>                                                          \
  void name(const decltype(Widen<String>)& T, String (*S)(const std::string&));                \
  TYPED_TEST(VELCstring, name) {                                                               \
    name<TypeParam, typename TypeParam::Char>(Widen<TypeParam>, [](const std::string& ascii) { \
      return TypeParam(Widen<TypeParam>(ascii).c_str());                                       \
    });                                                                                        \
  }                                                                                            \
  template <class String, typename C>                                                          \
  void name([[maybe_unused]] const decltype(Widen<String>)& T,                                 \
            [[maybe_unused]] String (*S)(const std::string&))

TEST(VELCstringLayout, HeaderAndNilBlockHaveTheirFixedForm) {
  EXPECT_EQ(sizeof(CString), sizeof(void*));
  EXPECT_EQ(sizeof(CStringA), sizeof(void*));
  EXPECT_EQ(sizeof(CStringData), 64u);
  EXPECT_EQ(sizeof(CstringDataA), 64u);
  EXPECT_EQ(offsetof(CStringData, nRefs), 0u);
  EXPECT_EQ(offsetof(CStringData, nDataLength), 8u);
  EXPECT_EQ(offsetof(CStringData, nAllocLength), 12u);
  EXPECT_EQ(offsetof(CStringData, cslock), 16u);
  EXPECT_GE(sizeof(lockid_t), sizeof(pthread_mutex_t));
  EXPECT_EQ(sizeof(rgInitData), 32788u);
  EXPECT_EQ(sizeof(rgInitDataA), 32788u);
  EXPECT_EQ(static_cast<void*>(_atltmpDataNil), rgInitData);
  EXPECT_EQ(static_cast<void*>(_atltmpPchNil), rgInitData + 64);
  EXPECT_EQ(static_cast<void*>(_atltmpDataNilA), rgInitDataA);
  EXPECT_EQ(static_cast<void*>(_atltmpPchNilA), rgInitDataA + 64);
  EXPECT_EQ(_atltmpDataNil->data(), _atltmpPchNil);
  EXPECT_EQ(_atltmpDataNilA->data(), _atltmpPchNilA);
}

TEST_BOTH(DefaultIsTheSharedEmptyTextAndOwnsNothing) {
  {
    String s;
    ExpectNil(s);
    EXPECT_EQ(s.GetBuffer(), NilText(s));
    EXPECT_EQ(*s.GetBuffer(), 0);
  }
  EXPECT_EQ(ArrayAllocations::made, 0u);
  EXPECT_EQ(ArrayAllocations::freed, 0u);
}

TEST_BOTH(InitWritesTheNilHeaderAnew) {
  String first;
  auto* const nil = Nil(first);
  nil->nRefs = 7;
  nil->nDataLength = 3;
  nil->nAllocLength = 4;
  *nil->data() = 'x';
  String second;
  ExpectNil(second);
}

TEST_BOTH(NullAndEmptySourcesGiveTheEmptyText) {
  const C* const null = nullptr;
  const C zero = 0;
  ExpectNil(String(null));
  ExpectNil(String(&zero));
  for (const C* source : {null, &zero}) {
    String s = S("abc");
    s = source;
    ExpectNil(s);
  }
  EXPECT_EQ(ArrayAllocations::made, ArrayAllocations::freed);
}

TEST_BOTH(BlocksAreHeaderTextAndTerminatorToTheByte) {
  for (size_t n : {1, 2, 3, 15, 16, 17, 1000}) {
    const auto text = T(std::string(n, 'a'));
    const String s(text.c_str());
    EXPECT_EQ(ArrayAllocations::lastSize, BlockSize<String>(n));
    EXPECT_EQ(s.GetAllocLength(), static_cast<int>(n));
    String t;
    t = text.c_str();
    EXPECT_EQ(ArrayAllocations::lastSize, BlockSize<String>(n));
    t.Append(text.c_str(), n);
    EXPECT_EQ(ArrayAllocations::lastSize, BlockSize<String>(2 * n));
    EXPECT_EQ(t.GetAllocLength(), static_cast<int>(2 * n));
  }
}

TEST_BOTH(CopiesNeverShareABlock) {
  const String a = S("abc");
  const String b(a);
  String c;
  c = a;
  String d = S("longer text");
  d = a;
  for (const String* s : {&b, static_cast<const String*>(&c), static_cast<const String*>(&d)}) {
    EXPECT_NE(s->m_pchData, a.m_pchData);
    ExpectOwned(*s, "abc");
    EXPECT_EQ(s->GetAllocLength(), 3);
  }
  ExpectOwned(a, "abc");
}

TEST_BOTH(CopyingTheEmptyTextOwnsNothing) {
  const String empty;
  const String copy(empty);
  ExpectNil(copy);
  String s = S("abc");
  s = empty;
  ExpectNil(s);
}

TEST_BOTH(MovingHandsTheBlockOver) {
  String a = S("abc");
  C* const block = a.m_pchData;
  String b(std::move(a));
  EXPECT_EQ(b.m_pchData, block);
  ExpectNil(a);
  String c = S("x");
  c = std::move(b);
  EXPECT_EQ(c.m_pchData, block);
  ExpectOwned(c, "abc");
}

TEST_BOTH(CopyEndsAtAnEmbeddedZero) {
  String a = S("abcd");
  a.m_pchData[2] = 0;
  const String copied(a);
  ExpectOwned(copied, "ab");
  String assigned;
  assigned = a;
  ExpectOwned(assigned, "ab");
  String joined = S("x");
  joined += a;
  EXPECT_EQ(joined.GetLength(), 5);
  EXPECT_EQ(joined.m_pchData[4], 'd');
}

TEST_BOTH(SelfAssignmentChangesNothing) {
  String s = S("abc");
  const String& same = s;
  C* const block = s.m_pchData;
  s = same;
  EXPECT_EQ(s.m_pchData, block);
  ExpectOwned(s, "abc");
  s = s.GetBuffer();
  ExpectOwned(s, "abc");
}

TEST_BOTH(SourcesInsideTheOwnTextAreSafe) {
  String tail = S("abcdef");
  tail = tail.GetBuffer() + 2;
  ExpectOwned(tail, "cdef");
  String twice = S("abc");
  twice += twice;
  ExpectOwned(twice, "abcabc");
  String appended = S("abc");
  appended.Append(appended.GetBuffer() + 1, 9);
  ExpectOwned(appended, "abcbc");
  String printed = S("abc");
  printed.Format(T("<%ls>").c_str(), L"in");
  ExpectOwned(printed, "<in>");
}

TEST_BOTH(AssignmentKeepsABlockThatIsLargeEnough) {
  String s = S("abcdef");
  C* const block = s.m_pchData;
  s = T("xy").c_str();
  EXPECT_EQ(s.m_pchData, block);
  ExpectOwned(s, "xy");
  EXPECT_EQ(s.GetAllocLength(), 2);
  s = T("xyz").c_str();  // the room of six characters is forgotten
  EXPECT_EQ(ArrayAllocations::lastSize, BlockSize<String>(3));
  ExpectOwned(s, "xyz");
}

TEST_BOTH(AppendEndsAtAZeroAmongTheCharacters) {
  String s = S("x");
  const C text[] = {'a', 'b', 0, 'c', 'd'};
  EXPECT_EQ(&s.Append(text, 5), &s);
  ExpectOwned(s, "xab");
  s.Append(T("cdef").c_str(), 2);
  ExpectOwned(s, "xabcd");
}

TEST_BOTH(AppendOfNothingKeepsTheBlock) {
  String s = S("abc");
  C* const block = s.m_pchData;
  const C zero = 0;
  s.Append(nullptr, 5).Append(&zero, 5).Append(T("x").c_str(), 0);
  s += String();
  EXPECT_EQ(s.m_pchData, block);
  ExpectOwned(s, "abc");
  String empty;
  empty.Append(nullptr, 5);
  ExpectNil(empty);
}

TEST_BOTH(AppendUsesSpareRoomAndThenGrowsExactly) {
  String s = S("abc");
  s.GetBuffer(6);
  s.GetData()->nDataLength = 3;  // a block with three characters to spare
  C* const block = s.m_pchData;
  s.Append(T("def").c_str(), 3);
  EXPECT_EQ(s.m_pchData, block);
  ExpectOwned(s, "abcdef");
  s.Append(T("g").c_str(), 1);
  EXPECT_NE(s.m_pchData, block);
  EXPECT_EQ(s.GetAllocLength(), 7);
  ExpectOwned(s, "abcdefg");
}

TEST_BOTH(GrowingGetBufferReadsAsLongUntilReleased) {
  String s = S("abc");
  C* const text = s.GetBuffer(10);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(ArrayAllocations::lastSize, BlockSize<String>(10));
  EXPECT_EQ(s.GetLength(), 10);
  EXPECT_EQ(s.GetAllocLength(), 10);
  for (int i = 3; i <= 10; ++i) EXPECT_EQ(text[i], 0);
  s.ReleaseBuffer(-1);
  EXPECT_EQ(s.GetAllocLength(), 3);
  ExpectOwned(s, "abc");
}

TEST_BOTH(GetBufferWithinTheRoomIsTheTextAsItIs) {
  String s = S("abc");
  C* const text = s.GetBuffer();
  for (int n : {0, 1, 3, -1, INT_MIN}) EXPECT_EQ(s.GetBuffer(n), text);
  ExpectOwned(s, "abc");
  String empty;
  EXPECT_EQ(empty.GetBuffer(0), NilText(empty));
  ExpectNil(empty);
}

TEST_BOTH(ReleaseBufferSetsLengthAndForgetsTheRoom) {
  String s = S("abcdef");
  s.ReleaseBuffer(4);
  ExpectOwned(s, "abcd");
  EXPECT_EQ(s.GetAllocLength(), 4);
  s.m_pchData[1] = 0;
  s.ReleaseBuffer();
  ExpectOwned(s, "a");
  EXPECT_EQ(s.GetAllocLength(), 1);
}

TEST_BOTH(ReleaseBufferNeverWritesOutsideTheBlock) {
  String s = S("abc");
  s.ReleaseBuffer(1000);
  ExpectOwned(s, "abc");
  String empty;
  empty.ReleaseBuffer(5);
  ExpectNil(empty);
}

TEST_BOTH(TextThatBecomesEmptyGivesItsBlockBack) {
  String emptied = S("abc");
  emptied.Empty();
  ExpectNil(emptied);
  emptied.Empty();
  ExpectNil(emptied);
  String released = S("abc");
  released.ReleaseBuffer(0);
  ExpectNil(released);
  String measured = S("abc");
  measured.m_pchData[0] = 0;
  measured.ReleaseBuffer(-1);
  ExpectNil(measured);
  String none = S("abc");
  EXPECT_TRUE(none.AllocBuffer(0));
  ExpectNil(none);
  EXPECT_EQ(ArrayAllocations::made, ArrayAllocations::freed);
}

TEST_BOTH(ComparesByCodeUnitOrIgnoringCase) {
  const struct {
    const char* left;
    const char* right;
    int order, folded;
  } cases[] = {{"abc", "abc", 0, 0},  {"abc", "abd", -1, -1}, {"b", "a", 1, 1},
               {"ab", "abc", -1, -1}, {"ABC", "abc", -1, 0},  {"", "", 0, 0},
               {"", "a", -1, -1},     {"a", "", 1, 1}};
  const auto sign = [](int v) { return (v > 0) - (v < 0); };
  for (const auto& c : cases) {
    EXPECT_EQ(sign(S(c.left).Compare(T(c.right).c_str())), c.order) << c.left << "," << c.right;
    EXPECT_EQ(sign(S(c.left).CompareNoCase(T(c.right).c_str())), c.folded);
  }
  EXPECT_GT(S("a").Compare(nullptr), 0);
  EXPECT_GT(S("a").CompareNoCase(nullptr), 0);
}

TEST_BOTH(ConvertsToAPointerToItsText) {
  String s = S("abc");
  const C* const constant = s;
  C* const changeable = s;
  EXPECT_EQ(constant, s.m_pchData);
  EXPECT_EQ(changeable, s.m_pchData);
  EXPECT_EQ(String::CharNext(constant), constant + 1);
  EXPECT_EQ(String::SafeStrlen(nullptr), 0);
  EXPECT_EQ(String::SafeStrlen(s), 3);
  EXPECT_TRUE(String::tchar_cstrisdigit('7'));
  EXPECT_FALSE(String::tchar_cstrisdigit('a'));
  EXPECT_EQ(String::tchar_cstrtoi(T("12x").c_str()), 12);
  EXPECT_EQ(String::tchar_cstrtoi(T("0x1f").c_str()), 31);
  EXPECT_EQ(String::tchar_cstrtoi(T("010").c_str()), 8);
  EXPECT_EQ(String::tchar_cstrtoi(T("x").c_str()), 0);
}

TEST_BOTH(InternalOperationsKeepTheirContracts) {
  long count = -1;
  EXPECT_EQ(String::InterlockedDecrement(&count), -1);
  EXPECT_EQ(count, -1);
  count = 2;
  EXPECT_EQ(String::InterlockedDecrement(&count), 1);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(String::InterLockInit(), 0);
  EXPECT_EQ(String::InterLockRealese(), 0);

  String s;
  ASSERT_TRUE(s.AllocBuffer(4));
  EXPECT_EQ(s.GetLength(), 4);
  EXPECT_EQ(s.GetAllocLength(), 4);
  EXPECT_EQ(s.GetData()->nRefs, 1);
  for (int i = 0; i <= 4; ++i) EXPECT_EQ(s.m_pchData[i], 0);
  ASSERT_TRUE(s.AssignCopy(2, T("xyz").c_str()));
  ExpectOwned(s, "xy");
  ASSERT_TRUE(s.AssignCopy(0, nullptr));
  ExpectNil(s);
  ASSERT_TRUE(s.ConcatCopy(0, nullptr, 0, nullptr));
  ExpectNil(s);
  ASSERT_TRUE(s.ConcatCopy(2, T("ab").c_str(), 3, T("cde").c_str()));
  ExpectOwned(s, "abcde");
}

TEST_BOTH(AllocBufferLeavesTheOldBlockToItsCaller) {
  String s = S("abc");
  auto* const old = s.GetData();
  ASSERT_TRUE(s.AllocBuffer(5));
  EXPECT_EQ(old->nRefs, 1);
  EXPECT_EQ(old->data()[2], 'c');
  String::Release(old);
  EXPECT_EQ(ArrayAllocations::freed, 1u);
}

// Two holders of one block, as the count allows although no operation makes them.
TEST_BOTH(ChangingABlockWithTwoHoldersCopiesItFirst) {
  const auto changes = {+[](String& s) { s.CopyBeforeWrite(); }, +[](String& s) { s.GetBuffer(0); },
                        +[](String& s) { s.GetBuffer(3); }, +[](String& s) { s.ReleaseBuffer(); },
                        +[](String& s) {
                          s += String();
                          s.CopyBeforeWrite();
                        }};
  for (const auto change : changes) {
    String s = S("abc");
    auto* const shared = s.GetData();
    shared->nRefs = 2;
    change(s);
    EXPECT_NE(s.GetData(), shared);
    ExpectOwned(s, "abc");
    EXPECT_EQ(shared->nRefs, 1);
    EXPECT_EQ(shared->data()[0], 'a');
    String::Release(shared);
  }
  String appended = S("abc");
  auto* const shared = appended.GetData();
  shared->nRefs = 2;
  appended += S("d");
  ExpectOwned(appended, "abcd");
  EXPECT_EQ(shared->nRefs, 1);
  appended = T("xy").c_str();
  String::Release(shared);

  String assigned = S("abc");
  auto* const other = assigned.GetData();
  other->nRefs = 2;
  assigned = T("xy").c_str();
  ExpectOwned(assigned, "xy");
  EXPECT_EQ(other->nRefs, 1);
  EXPECT_EQ(other->data()[0], 'a');
  String::Release(other);
  EXPECT_EQ(ArrayAllocations::made, ArrayAllocations::freed + 2);  // `appended`, `assigned`
}

TEST_BOTH(ReleaseDropsOneHolderAndEmptiesTheString) {
  String s = S("abc");
  auto* const shared = s.GetData();
  shared->nRefs = 2;
  s.Release();
  ExpectNil(s);
  EXPECT_EQ(shared->nRefs, 1);
  String::Release(shared);
  String::Release(Nil(s));
  ExpectNil(s);
}

TEST_BOTH(LengthOverflowFailsBeforeAnythingIsAllocated) {
  String s = S("abc");
  C* const block = s.m_pchData;
  ArrayAllocations::Reset();
  EXPECT_FALSE(s.ConcatCopy(INT_MAX, s, 1, s));
  EXPECT_FALSE(s.ConcatCopy(2000000000, s, 2000000000, s));
  EXPECT_FALSE(s.ConcatCopy(3, s, -1, s));
  EXPECT_FALSE(s.ConcatInPlace(INT_MAX, s));
  EXPECT_FALSE(s.AllocBuffer(-1));
  EXPECT_EQ(ArrayAllocations::made, 0u);
  EXPECT_EQ(s.m_pchData, block);
  ExpectOwned(s, "abc");
}

TEST_BOTH(WithoutMemoryGrowingFailsAndAssigningEmpties) {
  const auto longText = T(std::string(200, 'x'));
  String s = S("abc");
  String other(longText.c_str());
  ArrayAllocations::failFrom = 100 + 64;
  EXPECT_EQ(s.GetBuffer(200), nullptr);
  ExpectOwned(s, "abc");
  EXPECT_FALSE(s.AllocBuffer(200));
  ExpectOwned(s, "abc");
  s.Append(longText.c_str(), 200);
  ExpectOwned(s, "abc");
  s += other;
  ExpectOwned(s, "abc");
  EXPECT_FALSE(s.Format(T("%200d").c_str(), 1));
  ExpectOwned(s, "abc");
  ExpectNil(String(longText.c_str()));
  ExpectNil(String(other));
  String assigned = S("abc");
  assigned = longText.c_str();
  ExpectNil(assigned);
  assigned = S("abc");
  assigned = other;
  ExpectNil(assigned);
}

TEST(MyReplace, ReplacesEveryOccurrence) {
  std::wstring text = L"%s-%s";
  EXPECT_EQ(my_replace(text, L"%s", L"%ls"), 0);
  EXPECT_EQ(text, L"%ls-%ls");
}

TEST(MyReplace, SearchesAgainFromTheStart) {
  const struct {
    const wchar_t *text, *from, *to, *result;
  } cases[] = {{L"aaab", L"ab", L"b", L"b"},    {L"xaabb", L"ab", L"", L"x"},
               {L"aaaa", L"aa", L"a", L"a"},    {L"((()))", L"()", L"", L""},
               {L"abcabc", L"c", L"", L"abab"}, {L"", L"a", L"b", L""},
               {L"abc", L"abcd", L"x", L"abc"}, {L"aabab", L"ab", L"ba", L"bbaaa"}};
  for (const auto& c : cases) {
    std::wstring text = c.text;
    EXPECT_EQ(my_replace(text, c.from, c.to), 0);
    EXPECT_EQ(text, c.result) << testing::PrintToString(c.text);
  }
}

TEST(MyReplace, EndsWhereAnEndlessSearchWould) {
  std::wstring text = L"aba";
  EXPECT_EQ(my_replace(text, L"a", L"aa"), 0);
  EXPECT_EQ(text, L"aabaa");
  EXPECT_EQ(my_replace(text, L"", L"x"), 0);
  EXPECT_EQ(text, L"aabaa");
}

}  // namespace
