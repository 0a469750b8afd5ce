// Tests of the intrusive list: link orders, self-unlinking nodes and the
// owning destruction of the list.
#include "list.h"

#include <gtest/gtest.h>

#include <string>

#include "errors.h"

using namespace Tsl;

namespace {

std::string endings;

// A node that notes its end, and whether it still saw a list then.
struct Item : CListNode<Item> {
  char name;
  explicit Item(char name) : name(name) {}
  ~Item() override {
    endings += name;
    if (GetList() != nullptr || GetNext() != nullptr || GetPrevious() != nullptr) endings += '!';
  }
};

// The names first to last, checked against the walk from last to first.
std::string Order(const CList<Item>& list) {
  std::string forward, backward;
  for (Item* item = list.GetFirst(); item != nullptr; item = item->GetNext()) forward += item->name;
  for (Item* item = list.GetLast(); item != nullptr; item = item->GetPrevious())
    backward.insert(0, 1, item->name);
  EXPECT_EQ(forward, backward);
  return forward;
}

}  // namespace

TEST(List, InsertionsKeepFirstLastAndNeighbours) {
  CList<Item> list;
  Item* b = new Item('b');
  list.AddTail(b);
  list.AddHead(new Item('a'));
  Item* d = new Item('d');
  list.AddTail(d);
  list.InsertBefore(d, new Item('c'));
  list.InsertAfter(d, new Item('e'));
  list.InsertAfter(b, new Item('x'));
  EXPECT_EQ("abxcde", Order(list));
  EXPECT_EQ(6, list.GetCount());
  EXPECT_EQ(&list, b->GetList());
}

TEST(List, DeletingANodeUnlinksItWherever) {
  struct Row {
    const char* initial;
    char victim;
    const char* after;
  } rows[] = {{"abc", 'b', "ac"}, {"abc", 'a', "bc"}, {"abc", 'c', "ab"}, {"a", 'a', ""}};
  for (const Row& row : rows) {
    CList<Item> list;
    Item* victim = nullptr;
    for (const char* name = row.initial; *name; ++name) {
      Item* item = new Item(*name);
      list.AddTail(item);
      if (*name == row.victim) victim = item;
    }
    delete victim;
    EXPECT_EQ(row.after, Order(list)) << row.initial << " without " << row.victim;
    if (list.IsEmpty()) {
      EXPECT_EQ(nullptr, list.GetFirst());
      EXPECT_EQ(nullptr, list.GetLast());
    }
  }
}

TEST(List, DestroyingTheListDeletesNodesFirstToLastCutLoose) {
  endings.clear();
  {
    CList<Item> list;
    for (char name : std::string("pqr")) list.AddTail(new Item(name));
  }
  EXPECT_EQ("pqr", endings);  // no '!': each node died without links
}

TEST(List, RemovedNodeMayJoinAnotherList) {
  CList<Item> first, second;
  Item* item = new Item('m');
  first.AddTail(new Item('k'));
  first.AddTail(item);
  first.Remove(item);
  EXPECT_EQ(nullptr, item->GetList());
  second.AddHead(item);
  EXPECT_EQ("k", Order(first));
  EXPECT_EQ("m", Order(second));
}

TEST(List, LinkingANodeThatIsInAListIsAnInternalError) {
  CList<Item> first, second;
  Item* item = new Item('z');
  first.AddTail(item);
  try {
    second.AddTail(item);
    ADD_FAILURE() << "no internal error";
  } catch (CInternalError* e) {
    EXPECT_STREQ(L"list", e->file);
    EXPECT_EQ(50, e->line);
    delete e;
  }
  EXPECT_EQ("z", Order(first));
  EXPECT_TRUE(second.IsEmpty());
}
