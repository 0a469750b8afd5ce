// Tests of the growing arrays and the owning pointer array: the growth rule,
// element lifetimes across moves, the position checks, inline room.
#include "array.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TesselsTestKit.h"
#include "pointerarray.h"

using namespace Tsl;
using namespace TestKit;

namespace {

// An element that is not bytewise movable, and that logs its end.
struct Tracked {
  static inline int live = 0;
  static inline std::vector<int> endings;
  int value;
  Tracked(int value = -1) : value(value) { ++live; }
  Tracked(const Tracked& other) : value(other.value) { ++live; }
  Tracked& operator=(const Tracked&) = default;
  ~Tracked() {
    --live;
    endings.push_back(value);
  }
};

// An object that looks back into its array while it dies.
struct Watcher {
  static inline std::string log;  // per death: the id, ':', then what each slot holds
  CPointerArray<Watcher>* owner;
  char id;
  ~Watcher() {
    log += std::string(1, id) + ":";
    for (int32_t i = 0; i < owner->GetSize(); ++i) log += (*owner)[i] ? (*owner)[i]->id : '-';
    log += ' ';
  }
};

}  // namespace

TEST(Array, GrowsByWhatIsMissingOrHalfTheCapacityAtLeastEight) {
  CArray<int, CountingHeap> array;
  std::vector<int32_t> capacities;
  for (int i = 0; i < 60; ++i) {
    array.Add(i);
    if (capacities.empty() || capacities.back() != array.GetCapacity())
      capacities.push_back(array.GetCapacity());
  }
  EXPECT_EQ((std::vector<int32_t>{8, 16, 24, 36, 54, 81}), capacities);
  array.FreeBuffer();
  EXPECT_EQ(0, CountingHeap::blocks);

  CArray<int> sized;
  sized.SetSize(8);
  sized.SetSize(108);  // what is missing is more than the half
  EXPECT_EQ(108, sized.GetCapacity());
  // A cut keeps the memory, and growing again gives zeroed elements.
  sized[1] = 1;
  sized.SetSize(1);
  sized.SetSize(2);
  EXPECT_EQ(108, sized.GetCapacity());
  EXPECT_EQ(0, sized[1]);
}

TEST(Array, MovesKeepOrderLifetimesAndReferences) {
  {
    CArray<Tracked> array;
    for (int i = 0; i < 5; ++i) array.Add(Tracked(i));
    array.InsertAt(2, Tracked(9));
    array.InsertAt(0, 2);  // two default elements
    ASSERT_EQ(array.GetSize(), array.GetCapacity());
    array.Add(array[4]);  // the source lies in the buffer that growth frees
    array.DeleteAt(1, 3);
    array.InsertAt(5, array[1]);  // from inside the array
    std::vector<int> values;
    for (const Tracked& element : array) values.push_back(element.value);
    EXPECT_EQ((std::vector<int>{-1, 9, 2, 3, 4, 9, 9}), values);
    EXPECT_EQ(7, Tracked::live);
    Tracked::endings.clear();
  }
  EXPECT_EQ((std::vector<int>{9, 9, 4, 3, 2, 9, -1}), Tracked::endings);  // highest first
  EXPECT_EQ(0, Tracked::live);

  CUnicodeString kept(L"a string longer than the short pool");
  {
    CArray<CUnicodeString> strings;  // moved bytewise, references and all
    for (int i = 0; i < 20; ++i) strings.InsertAt(0, kept);
    strings.DeleteAt(3, 10);
    EXPECT_TRUE(kept.IsShared());
  }
  EXPECT_FALSE(kept.IsShared());
}

TEST(Array, DeleteAtChecksPositionThenCount) {
  // Three elements each time. The last row breaks two rules and names the
  // first; the end position with nothing to delete is no error (line 0).
  const struct {
    int32_t position, count, arrayLine, pointerLine;
  } rows[] = {{-1, 0, 197, 61}, {4, 0, 198, 62},   {0, -1, 199, 63},
              {2, 2, 200, 64},  {-1, -1, 197, 61}, {3, 0, 0, 0}};
  for (const auto& row : rows) {
    CArray<int> array;
    array.SetSize(3);
    CPointerArray<Tracked> pointers;
    for (int i = 0; i < 3; ++i) pointers.Add(new Tracked(i));
    Place inArray = InternalErrorOf([&] { array.DeleteAt(row.position, row.count); });
    Place inPointers = InternalErrorOf([&] { pointers.DeleteAt(row.position, row.count); });
    EXPECT_EQ(row.arrayLine ? Place(L"array", row.arrayLine) : Place(), inArray);
    EXPECT_EQ(row.pointerLine ? Place(L"pointerarray", row.pointerLine) : Place(), inPointers);
    EXPECT_EQ(std::make_pair(3, 3), std::make_pair(array.GetSize(), pointers.GetSize()));
  }
  EXPECT_EQ(0, Tracked::live);
}

TEST(FastArray, StaysInlineThenGrowsByAtLeastTheInlineCount) {
  CFastArray<int, 20, CountingHeap> array;
  array.SetSize(20);
  EXPECT_EQ(0, CountingHeap::blocks);
  array.Add(20);
  EXPECT_EQ(40, array.GetCapacity());
  array.SetSize(10);
  array.SetCapacity(15);  // up to the inline count: back inline, buffer freed
  EXPECT_EQ(20, array.GetCapacity());
  EXPECT_EQ(0, CountingHeap::blocks);
}

TEST(PointerArray, EmptiesEachSlotBeforeItsObjectDiesInAscendingOrder) {
  CPointerArray<Watcher> array;
  for (char id : std::string("01234")) array.Add(new Watcher{&array, id});
  array.DeleteAt(1, 2);
  Watcher* detached = array.Detach(0);
  array.DeleteAll();
  EXPECT_EQ("1:0-234 2:0--34 3:-4 4:-- ", Watcher::log);
  delete detached;
}
