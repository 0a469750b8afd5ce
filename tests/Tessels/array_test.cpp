// Tests of the growing arrays and the owning pointer array: the growth rule,
// element lifetimes across moves, the position checks, inline room.
#include "array.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pointerarray.h"

using namespace Tsl;

namespace {

// An allocation policy that counts the blocks it has out.
struct CountingHeap {
  static int blocks;
  static void* Alloc(size_t size) {
    ++blocks;
    return malloc(size);
  }
  static void Free(void* block) {
    if (block != nullptr) --blocks;
    free(block);
  }
};
int CountingHeap::blocks = 0;

// An element that is not bytewise movable, and that logs its end.
struct Tracked {
  static int live;
  static std::vector<int>* endings;
  int value;
  Tracked(int value = -1) : value(value) { ++live; }
  Tracked(const Tracked& other) : value(other.value) { ++live; }
  Tracked& operator=(const Tracked&) = default;
  ~Tracked() {
    --live;
    if (endings != nullptr) endings->push_back(value);
  }
  bool operator==(const Tracked& other) const { return value == other.value; }
};
int Tracked::live = 0;
std::vector<int>* Tracked::endings = nullptr;

template <class Body>
void ExpectInternalError(const wchar_t* unit, int32_t line, Body body) {
  try {
    body();
    ADD_FAILURE() << "no internal error; expected line " << line;
  } catch (CInternalError* e) {
    EXPECT_STREQ(unit, e->file);
    EXPECT_EQ(line, e->line);
    delete e;
  }
}

template <class Array>
std::vector<int> Values(const Array& array) {
  std::vector<int> values;
  for (const auto& element : array) values.push_back(element.value);
  return values;
}

}  // namespace

TEST(Array, GrowsByHalfTheCapacityAtLeastEight) {
  CArray<int, CountingHeap> array;
  std::vector<int32_t> capacities;
  for (int i = 0; i < 60; ++i) {
    array.Add(i);
    if (capacities.empty() || capacities.back() != array.GetCapacity())
      capacities.push_back(array.GetCapacity());
  }
  EXPECT_EQ((std::vector<int32_t>{8, 16, 24, 36, 54, 81}), capacities);
  for (int i = 0; i < 60; ++i) ASSERT_EQ(i, array[i]);
  EXPECT_EQ(1, CountingHeap::blocks);
}

TEST(Array, GrowthTakesWhatIsMissingWhenThatIsMore) {
  struct Row {
    int32_t from, to, capacity;
  } rows[] = {{8, 9, 16},    {8, 108, 108},   {0, 3, 8},
              {0, 100, 100}, {100, 101, 150}, {100, 200, 200}};
  for (const Row& row : rows) {
    CArray<int> array;
    array.SetSize(row.from);
    array.SetSize(row.to);
    EXPECT_EQ(row.capacity, array.GetCapacity()) << row.from << " -> " << row.to;
  }
}

TEST(Array, RegrowingAfterACutGivesZeroedElements) {
  CArray<int> array;
  for (int i = 1; i <= 3; ++i) array.Add(i);
  array.SetSize(1);
  EXPECT_EQ(8, array.GetCapacity());  // a cut keeps the memory
  array.SetSize(3);
  EXPECT_EQ((std::vector<int>{1, 0, 0}), std::vector<int>(array.begin(), array.end()));
}

TEST(Array, AddingAnOwnElementWhileGrowing) {
  CArray<CUnicodeString> strings;
  for (int i = 0; i < 8; ++i) strings.Add(CUnicodeString::FromNumber(int64_t(i)));
  ASSERT_EQ(strings.GetSize(), strings.GetCapacity());
  strings.Add(strings[3]);  // the source is in the buffer that growth frees
  EXPECT_EQ(CUnicodeString(L"3"), strings[8]);
  CArray<Tracked> tracked;
  for (int i = 0; i < 8; ++i) tracked.Add(Tracked(i));
  tracked.Add(tracked[5]);
  EXPECT_EQ(5, tracked[8].value);
}

TEST(Array, InsertAndDeleteKeepOrderAndLifetimes) {
  {
    CArray<Tracked> array;
    for (int i = 0; i < 5; ++i) array.Add(Tracked(i));
    array.InsertAt(2, Tracked(9));
    array.InsertAt(0, 2);  // two default elements
    EXPECT_EQ((std::vector<int>{-1, -1, 0, 1, 9, 2, 3, 4}), Values(array));
    array.DeleteAt(1, 3);
    EXPECT_EQ((std::vector<int>{-1, 9, 2, 3, 4}), Values(array));
    array.InsertAt(5, array[1]);  // at the end, from inside the array
    EXPECT_EQ((std::vector<int>{-1, 9, 2, 3, 4, 9}), Values(array));
    EXPECT_EQ(6, Tracked::live);
    CArray<Tracked> copy(array);
    copy.DeleteAll();
    EXPECT_EQ(6, Tracked::live);
  }
  EXPECT_EQ(0, Tracked::live);
}

TEST(Array, StringsMoveWithTheirReferences) {
  CUnicodeString kept(L"a string longer than the short pool");
  {
    CArray<CUnicodeString> strings;
    for (int i = 0; i < 20; ++i) strings.InsertAt(0, kept);
    strings.DeleteAt(3, 10);
    EXPECT_TRUE(kept.IsShared());
  }
  EXPECT_FALSE(kept.IsShared());
}

TEST(Array, ElementsEndFromTheHighestPositionDown) {
  std::vector<int> endings;
  {
    CArray<Tracked> array;
    for (int i = 0; i < 4; ++i) array.Add(Tracked(i));
    Tracked::endings = &endings;
  }
  Tracked::endings = nullptr;
  EXPECT_EQ((std::vector<int>{3, 2, 1, 0}), endings);
}

TEST(Array, DeleteAtChecksPositionThenCount) {
  struct Row {
    int32_t position, count, line;
  } rows[] = {{-1, 0, 197}, {4, 0, 198}, {0, -1, 199}, {2, 2, 200}, {-1, -1, 197}};
  for (const Row& row : rows) {
    CArray<int> array;
    array.SetSize(3);
    ExpectInternalError(L"array", row.line, [&] { array.DeleteAt(row.position, row.count); });
    EXPECT_EQ(3, array.GetSize());
  }
  CArray<int> empty;
  empty.DeleteAt(0, 0);  // nothing to do, and no error
  CArray<int> three;
  three.SetSize(3);
  three.DeleteAt(3, 0);  // the end position with nothing to delete is allowed
  EXPECT_EQ(3, three.GetSize());
}

TEST(Array, FreeBufferGivesEverythingBack) {
  CArray<int, CountingHeap> array;
  array.SetSize(100);
  array.FreeBuffer();
  EXPECT_EQ(0, array.GetCapacity());
  EXPECT_EQ(nullptr, array.GetData());
  EXPECT_EQ(0, CountingHeap::blocks);
  array.Add(1);  // and it is usable again
  EXPECT_EQ(1, array[0]);
}

TEST(FastArray, StaysInlineThenGrowsByTheInlineCount) {
  {
    CFastArray<int, 20, CountingHeap> array;
    for (int i = 0; i < 20; ++i) array.Add(i);
    EXPECT_EQ(0, CountingHeap::blocks);
    EXPECT_EQ(20, array.GetCapacity());
    array.Add(20);
    EXPECT_EQ(40, array.GetCapacity());  // the half is at least the inline count
    EXPECT_EQ(1, CountingHeap::blocks);
    array.SetSize(10);
    array.SetCapacity(15);  // up to the inline count: back inline, buffer freed
    EXPECT_EQ(20, array.GetCapacity());
    EXPECT_EQ(0, CountingHeap::blocks);
    for (int i = 0; i < 10; ++i) ASSERT_EQ(i, array[i]);
    array.SetSize(200);
    CFastArray<int, 20, CountingHeap> copy(array);
    EXPECT_EQ(2, CountingHeap::blocks);
    EXPECT_NE(array.GetData(), copy.GetData());
  }
  EXPECT_EQ(0, CountingHeap::blocks);
}

TEST(FastArray, NonTrivialElementsSurviveTheMovesInAndOut) {
  {
    CFastArray<Tracked, 2> array;
    for (int i = 0; i < 5; ++i) array.Add(Tracked(i));
    array.DeleteAt(1, 3);
    array.FreeBuffer();
    EXPECT_EQ(0, Tracked::live);
    array.Add(Tracked(7));
    array.Add(Tracked(8));
    array.Add(Tracked(9));
    array.DeleteAt(2);
    array.SetCapacity(2);
    EXPECT_EQ((std::vector<int>{7, 8}), Values(array));
  }
  EXPECT_EQ(0, Tracked::live);
}

namespace {
// An object that looks back into its array while it dies.
struct Watcher {
  CPointerArray<Watcher>* owner;
  int id;
  std::vector<std::string>* log;
  ~Watcher() {
    std::string seen;
    for (int32_t i = 0; i < owner->GetSize(); ++i)
      seen += (*owner)[i] == nullptr ? "-" : std::to_string((*owner)[i]->id);
    log->push_back(std::to_string(id) + ":" + seen);
  }
};
}  // namespace

TEST(PointerArray, EmptiesEachSlotBeforeItsObjectDiesInAscendingOrder) {
  std::vector<std::string> log;
  CPointerArray<Watcher> array;
  for (int i = 0; i < 5; ++i) array.Add(new Watcher{&array, i, &log});
  array.DeleteAt(1, 2);
  EXPECT_EQ((std::vector<std::string>{"1:0-234", "2:0--34"}), log);
  log.clear();
  Watcher* detached = array.Detach(0);
  array.DeleteAll();
  EXPECT_EQ((std::vector<std::string>{"3:-4", "4:--"}), log);
  EXPECT_EQ(0, array.GetSize());
  delete detached;
}

TEST(PointerArray, DeleteAtChecksInOrder) {
  struct Row {
    int32_t position, count, line;
  } rows[] = {{-1, 1, 61}, {3, 0, 62}, {0, -2, 63}, {1, 2, 64}};
  for (const Row& row : rows) {
    CPointerArray<Tracked> array;
    array.Add(new Tracked(1));
    array.Add(new Tracked(2));
    ExpectInternalError(L"pointerarray", row.line,
                        [&] { array.DeleteAt(row.position, row.count); });
    EXPECT_EQ(2, array.GetSize());
  }
  EXPECT_EQ(0, Tracked::live);
}
