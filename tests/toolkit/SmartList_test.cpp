#include "SmartList.h"

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>

namespace {

struct Item {
  int id = 0;
  std::string text;
  bool operator==(const Item& other) const { return id == other.id; }
};

class SmartList : public testing::Test {
 protected:
  void SetUp() override {
    for (int i = 0; i < 4; ++i) m_list.AddItem({i, std::string(1, static_cast<char>('a' + i))});
  }
  static std::string Ids(CSmartList<Item>& list) {
    std::string ids;
    for (int i = 0; i < list.GetCount(); ++i) ids += std::to_string(list.GetItem(i).id);
    return ids;
  }
  CSmartList<Item> m_list;
};

TEST_F(SmartList, AddItemAppendsACopyAndTellsTheCount) {
  Item item{7, "x"};
  EXPECT_EQ(m_list.AddItem(item), 5);
  item.text = "changed";
  EXPECT_EQ(m_list.GetItem(4).text, "x");
  EXPECT_EQ(Ids(m_list), "01237");
  EXPECT_EQ(m_list.AddItem(m_list.GetItem(0)), 6);
  EXPECT_EQ(m_list.GetItem(5).text, "a");
}

TEST_F(SmartList, GetDataCopiesAndTellsTheCount) {
  Item out;
  EXPECT_EQ(m_list.GetData(2, out), 4);
  EXPECT_EQ(out.text, "c");
  EXPECT_EQ(m_list.GetData(0, out), 4);
  EXPECT_EQ(out.text, "a");
}

TEST_F(SmartList, GetDataOutsideTheListOnlyTellsTheCount) {
  Item out{7, "kept"};
  for (int index : {-1, 4, INT_MIN, INT_MAX}) EXPECT_EQ(m_list.GetData(index, out), 4);
  EXPECT_EQ(out.text, "kept");
  CSmartList<Item> empty;
  EXPECT_EQ(empty.GetData(0, out), 0);
  EXPECT_EQ(out.text, "kept");
}

TEST_F(SmartList, ItemsAreReachedByReference) {
  m_list.GetItem(1).text = "x";
  EXPECT_EQ(m_list[1].text, "x");
  EXPECT_EQ(&m_list[1], &m_list.GetItem(1));
}

TEST_F(SmartList, RemoveByIndexMovesTheRestUp) {
  m_list.RemoveItem(1);
  EXPECT_EQ(Ids(m_list), "023");
  m_list.RemoveItem(2);
  EXPECT_EQ(Ids(m_list), "02");
}

TEST_F(SmartList, RemoveOutsideTheListDoesNothing) {
  m_list.RemoveItem(-1);
  m_list.RemoveItem(4);
  EXPECT_EQ(Ids(m_list), "0123");
  CSmartList<Item> empty;
  empty.RemoveItem(0);
  EXPECT_EQ(empty.GetCount(), 0);
}

TEST_F(SmartList, RemoveByValueTakesTheFirstThatEquals) {
  m_list.AddItem({1, "second"});
  m_list.RemoveItem(Item{1, "compared by id"});
  EXPECT_EQ(Ids(m_list), "0231");
  m_list.RemoveItem(Item{9, ""});
  EXPECT_EQ(Ids(m_list), "0231");
  m_list.RemoveItem(m_list.GetItem(0));
  EXPECT_EQ(Ids(m_list), "231");
}

TEST_F(SmartList, ClearRemovesAll) {
  m_list.Clear();
  EXPECT_EQ(m_list.GetCount(), 0);
  EXPECT_TRUE(m_list.m_vecList.empty());
}

TEST_F(SmartList, AssignmentCopiesEveryItemInOrder) {
  CSmartList<Item> other;
  other.AddItem({9, "gone"});
  other = m_list;
  m_list.GetItem(0).text = "changed";
  EXPECT_EQ(Ids(other), "0123");
  EXPECT_EQ(other.GetItem(0).text, "a");
  const CSmartList<Item> copy(other);
  EXPECT_EQ(copy.m_vecList.size(), 4u);
}

TEST_F(SmartList, AssignmentToItselfClears) {
  const CSmartList<Item>& same = m_list;
  m_list = same;
  EXPECT_EQ(m_list.GetCount(), 0);
}

// Notes the operations that assignment goes through.
class Recording : public CSmartList<Item> {
 public:
  using CSmartList<Item>::operator=;
  long AddItem(Item item) override {
    calls += 'A';
    return CSmartList<Item>::AddItem(item);
  }
  void Clear() override {
    calls += 'C';
    CSmartList<Item>::Clear();
  }
  std::string calls;
};

TEST_F(SmartList, AssignmentClearsAndAddsThroughTheTable) {
  Recording list;
  list = m_list;
  EXPECT_EQ(list.calls, "CAAAA");
}

TEST_F(SmartList, ItemsAreDestroyedWhenTheyAreRemoved) {
  const auto shared = std::make_shared<int>(1);
  CSmartList<std::shared_ptr<int>> list;
  list.AddItem(shared);
  list.AddItem(shared);
  EXPECT_EQ(shared.use_count(), 3);
  list.RemoveItem(0);
  EXPECT_EQ(shared.use_count(), 2);
  list.Clear();
  EXPECT_EQ(shared.use_count(), 1);
}

}  // namespace
