// Tests of the intrusive list: link orders, self-unlinking nodes and the
// owning destruction of the list.
#include "list.h"

#include <gtest/gtest.h>

#include <string>

#include "TesselsTestKit.h"

using namespace Tsl;

namespace {

std::string endings;

// A node that notes its end, and whether it still had links then.
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

TEST(List, LinksKeepTheOrderAndTheListOwnsItsNodes) {
  CList<Item> other;
  {
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
    delete b;  // a node deleted in the middle, then at either end
    delete list.GetFirst();
    delete list.GetLast();
    EXPECT_EQ("xcd", Order(list));
    Item* x = list.GetFirst();
    list.Remove(x);
    other.AddTail(x);  // a removed node may join another list, a linked one not
    EXPECT_EQ(TestKit::Place(L"list", 50),
              TestKit::InternalErrorOf([&] { other.AddTail(list.GetFirst()); }));
    endings.clear();
  }
  EXPECT_EQ("cd", endings);  // first to last, and no '!': each cut loose before it died
  EXPECT_EQ("x", Order(other));
  delete other.GetFirst();  // the only node
  EXPECT_EQ(nullptr, other.GetLast());
}
