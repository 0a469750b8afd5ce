// Tests of the hash index through the set of keys: overflow groups, the
// overflow limit, rehashing (growing and at the same size), DeleteAll and
// FreeBuffer, the entry pool, and the prime table. Integer keys are their own
// hash, so positions are chosen by the key: k and k + 31 share a chain.
#include "hashtable.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <vector>

using namespace Tsl;

namespace {

struct Exhausted {};

// Counts blocks, records sizes, and can be told to fail.
struct RecordingHeap {
  static int blocks;
  static int failIn;  // the allocation that fails, counting down; 0: none
  static std::vector<size_t> sizes;
  static void* Alloc(size_t size) {
    if (failIn > 0 && --failIn == 0) throw Exhausted();
    ++blocks;
    sizes.push_back(size);
    return malloc(size);
  }
  static void Free(void* block) {
    if (block != nullptr) --blocks;
    free(block);
  }
};
int RecordingHeap::blocks = 0;
int RecordingHeap::failIn = 0;
std::vector<size_t> RecordingHeap::sizes;

typedef CHashTable<int32_t, CHashKeyTraits<int32_t>, RecordingHeap> CSet;

std::vector<int32_t> KeysInCellOrder(const CSet& set) {
  std::vector<int32_t> keys;
  for (int32_t p = set.GetFirstPosition(); p >= 0; p = set.GetNextPosition(p))
    keys.push_back(set.GetAt(p));
  return keys;
}

}  // namespace

TEST(HashTable, UpperPrimeNumberIsTheNextTablePrime) {
  struct Row {
    int32_t n, prime;
  } rows[] = {{-1, 31}, {0, 31},  {30, 31},           {31, 53},
              {52, 53}, {53, 97}, {1572868, 1572869}, {1610612740, 1610612741}};
  for (const Row& row : rows) EXPECT_EQ(row.prime, UpperPrimeNumber(row.n)) << row.n;
  int32_t beyond = 0;
  try {
    beyond = UpperPrimeNumber(1610612741);
    ADD_FAILURE() << "no internal error";
  } catch (CInternalError* e) {
    EXPECT_STREQ(L"hashtable", e->file);
    EXPECT_EQ(40, e->line);
    delete e;
  }
  EXPECT_EQ(0, beyond);
}

TEST(HashTable, ExpectedCountPicksTheSmallestPrimeAtOrAbove) {
  struct Row {
    int32_t expected, hashSize;
  } rows[] = {{0, 31}, {31, 31}, {50, 53}, {53, 53}, {54, 97}};
  for (const Row& row : rows) {
    CSet set(row.expected);
    EXPECT_EQ(0, set.GetHashSize());  // no index before the first insertion
    set.Add(1);
    EXPECT_EQ(row.hashSize, set.GetHashSize()) << row.expected;
  }
}

TEST(HashTable, LookupsWithoutAnIndexAllocateNothing) {
  CSet set;
  EXPECT_FALSE(set.Has(5));
  EXPECT_EQ(0, set.Remove(5));
  EXPECT_EQ(-1, set.GetFirstPosition());
  EXPECT_EQ(0, RecordingHeap::blocks);
}

TEST(HashTable, ACollisionMovesTheOlderEntryIntoANewGroup) {
  CSet set;
  set.Add(5);
  set.Add(36);
  EXPECT_EQ(35, set.GetIndexSize());
  // Cell 5 is now a link: the older key sits in cell 31, the newer in 32.
  EXPECT_EQ(31, set.FindPosition(5));
  EXPECT_EQ(32, set.FindPosition(36));
  EXPECT_EQ((std::vector<int32_t>{5, 36}), KeysInCellOrder(set));
  // A hole at the group's start does not end the chain, and is reused.
  set.Delete(5);
  EXPECT_TRUE(set.Has(36));
  set.Add(67);
  EXPECT_EQ(31, set.FindPosition(67));
  EXPECT_EQ(35, set.GetIndexSize());
}

TEST(HashTable, ChainsGrowGroupByGroupThroughTheLastCell) {
  CSet set;
  std::vector<int32_t> keys;
  for (int32_t i = 0; i < 8; ++i) keys.push_back(3 + 31 * i);  // eight keys on cell 3
  for (int32_t key : keys) set.Add(key);
  // Primary link, then groups 31..34, 35..38, 39..42: each full group hands
  // its last entry on to the next one.
  EXPECT_EQ(43, set.GetIndexSize());
  EXPECT_EQ(31, set.GetHashSize());
  for (int32_t key : keys) EXPECT_TRUE(set.Has(key)) << key;
  EXPECT_FALSE(set.Has(3 + 31 * 8));
}

TEST(HashTable, TheFifthGroupRehashesToTheNextPrime) {
  CSet set;
  for (int32_t i = 0; i < 4; ++i) {
    set.Add(i);
    set.Add(i + 31);
  }
  set.Add(4);
  EXPECT_EQ(47, set.GetIndexSize());  // 31 + four groups: the limit
  EXPECT_EQ(31, set.GetHashSize());
  set.Add(35);
  EXPECT_EQ(53, set.GetHashSize());
  EXPECT_EQ(10, set.GetCount());
  for (int32_t i = 0; i < 5; ++i) EXPECT_TRUE(set.Has(i) && set.Has(i + 31)) << i;
}

TEST(HashTable, ASparseTableRehashesAtTheSameSize) {
  CSet set;
  for (int32_t round = 0; round < 20; ++round) {
    int32_t a = round % 31, b = a + 31;
    set.Add(a);
    set.Add(b);
    set.Delete(a);
    set.Delete(b);
  }
  set.Add(100);
  set.Add(131);
  EXPECT_EQ(31, set.GetHashSize());
  EXPECT_EQ(2, set.GetCount());
  EXPECT_TRUE(set.Has(100) && set.Has(131));
}

TEST(HashTable, DeleteAllDropsTheGroupsAndKeepsTheSize) {
  CSet set;
  for (int32_t i = 0; i < 12; ++i) set.Add(i * 31);
  set.Add(97);
  int32_t hashSize = set.GetHashSize();
  int blocks = RecordingHeap::blocks;
  set.DeleteAll();
  EXPECT_EQ(hashSize, set.GetIndexSize());
  EXPECT_EQ(hashSize, set.GetHashSize());
  EXPECT_EQ(0, set.GetCount());
  EXPECT_EQ(-1, set.GetFirstPosition());
  EXPECT_FALSE(set.Has(0) || set.Has(97));
  EXPECT_EQ(blocks, RecordingHeap::blocks);     // pages and index kept
  for (int32_t i = 0; i < 13; ++i) set.Add(i);  // the freed entries serve again
  EXPECT_EQ(blocks, RecordingHeap::blocks);
  EXPECT_EQ(13, set.GetCount());
}

TEST(HashTable, FreeBufferReturnsToTheFirstState) {
  CSet set(0, 2);
  for (int32_t i = 0; i < 40; ++i) set.Add(i);
  set.FreeBuffer();
  EXPECT_EQ(0, RecordingHeap::blocks);
  EXPECT_EQ(0, set.GetHashSize());
  EXPECT_EQ(0, set.GetCount());
  RecordingHeap::sizes.clear();
  set.Add(7);
  ASSERT_EQ(2u, RecordingHeap::sizes.size());
  EXPECT_EQ(2 * sizeof(void*) + 2 * sizeof(void*),
            RecordingHeap::sizes[1]);  // the first page again
  EXPECT_TRUE(set.Has(7));
}

TEST(HashTable, PoolPagesDoubleFromTheFirstPageSize) {
  const size_t entry = sizeof(void*), header = 2 * sizeof(void*);
  {
    CSet set(0, 2);
    RecordingHeap::sizes.clear();
    for (int32_t i = 0; i < 31; ++i) set.Add(i);  // distinct cells: no rehash
    std::vector<size_t> expected = {31 * sizeof(uintptr_t)};
    for (size_t entries = 2; entries <= 32; entries *= 2)
      expected.push_back(header + entries * entry);
    EXPECT_EQ(expected, RecordingHeap::sizes);
  }
  {
    // Expecting 50 entries: the first page of 16 doubles to 64 entries.
    CSet set(50);
    RecordingHeap::sizes.clear();
    set.Add(1);
    EXPECT_EQ((std::vector<size_t>{53 * sizeof(uintptr_t), header + 64 * entry}),
              RecordingHeap::sizes);
  }
  EXPECT_EQ(0, RecordingHeap::blocks);
}

TEST(HashTable, AFailedAdditionLeavesTheTableWhole) {
  CSet set;
  for (int32_t i = 0; i < 16; ++i) set.Add(i);  // the first page is full
  RecordingHeap::failIn = 2;                    // the group's cells fit; the new page fails
  EXPECT_THROW(set.Add(100), Exhausted);        // 100 shares cell 7 with key 7
  RecordingHeap::failIn = 0;
  EXPECT_EQ(16, set.GetCount());
  EXPECT_FALSE(set.Has(100));
  for (int32_t i = 0; i < 16; ++i) EXPECT_TRUE(set.Has(i)) << i;
  EXPECT_TRUE(set.Add(100));
  EXPECT_FALSE(set.Add(100));
  EXPECT_EQ(17, int32_t(KeysInCellOrder(set).size()));
}

TEST(HashTable, AgreesWithAPlainSetThroughManyRehashes) {
  std::mt19937 random(11);
  CSet set;
  std::set<int32_t> model;
  for (int i = 0; i < 30000; ++i) {
    uint32_t r = random();
    // Half the keys crowd onto few cells of the larger primes.
    int32_t key = (r & 1) ? int32_t(r % 5000) : int32_t((r >> 8) % 64) * 1543;
    if (r % 5 == 0) {
      EXPECT_EQ(int32_t(model.erase(key)), set.Remove(key));
    } else {
      EXPECT_EQ(model.insert(key).second, set.Add(key));
    }
  }
  EXPECT_EQ(int32_t(model.size()), set.GetCount());
  std::vector<int32_t> keys = KeysInCellOrder(set);
  EXPECT_EQ(model, std::set<int32_t>(keys.begin(), keys.end()));
  EXPECT_EQ(model.size(), keys.size());
}
