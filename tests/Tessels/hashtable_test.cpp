// Tests of the hash index through the set of keys: overflow groups and their
// limit, rehashing (growing and at the same size), DeleteAll and FreeBuffer,
// the entry pool, and the prime table. Integer keys are their own hash, so a
// key chooses its cell: with hash size 31, k and k + 31 share a chain.
#include "hashtable.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <vector>

#include "TesselsTestKit.h"

using namespace Tsl;
using TestKit::CountingHeap;

namespace {

typedef CHashTable<int32_t, CHashKeyTraits<int32_t>, CountingHeap> CSet;

std::vector<int32_t> KeysInCellOrder(const CSet& set) {
  std::vector<int32_t> keys;
  for (int32_t p = set.GetFirstPosition(); p >= 0; p = set.GetNextPosition(p))
    keys.push_back(set.GetAt(p));
  return keys;
}

}  // namespace

TEST(HashTable, HashSizesComeFromThePrimeTableAtTheFirstAddition) {
  EXPECT_EQ(1610612741, UpperPrimeNumber(1610612740));  // the last prime, then nothing
  EXPECT_EQ(TestKit::Place(L"hashtable", 40),
            TestKit::InternalErrorOf([] { UpperPrimeNumber(1610612741); }));

  const struct { int32_t expected, hashSize; } sizes[] = {{0, 31}, {50, 53}, {53, 53}, {54, 97}};
  for (const auto& row : sizes) {
    CSet set(row.expected);
    EXPECT_FALSE(set.Has(1) || set.Remove(1) || set.GetFirstPosition() >= 0);
    EXPECT_EQ(0, CountingHeap::blocks) << "no index before the first addition";
    set.Add(1);
    EXPECT_EQ(row.hashSize, set.GetHashSize()) << row.expected;
  }
}

TEST(HashTable, CollisionsFillOverflowGroupsUpToTheLimitThenRehash) {
  CSet set;
  set.Add(5);
  set.Add(36);
  // Cell 5 is now a link: the older key sits in cell 31, the newer in 32.
  EXPECT_EQ(35, set.GetIndexSize());
  EXPECT_EQ(31, set.FindPosition(5));
  EXPECT_EQ(32, set.FindPosition(36));
  EXPECT_EQ((std::vector<int32_t>{5, 36}), KeysInCellOrder(set));
  // A hole at the group's start does not end the chain, and is reused.
  set.Delete(5);
  EXPECT_TRUE(set.Has(36));
  set.Add(67);
  EXPECT_EQ(31, set.FindPosition(67));
  // A full group hands its last entry on to the next one: cell 3's eight
  // keys take the groups 35..38, 39..42 and 43..46, and 31 + 16 cells is
  // the limit for hash size 31.
  for (int32_t i = 0; i < 8; ++i) set.Add(3 + 31 * i);
  EXPECT_EQ(47, set.GetIndexSize());
  set.Add(4);
  set.Add(35);  // a fifth group: the table grows to the next prime
  EXPECT_EQ(53, set.GetHashSize());
  for (int32_t key : {36, 67, 4, 35}) EXPECT_TRUE(set.Has(key)) << key;
  for (int32_t i = 0; i < 8; ++i) EXPECT_TRUE(set.Has(3 + 31 * i)) << i;
}

TEST(HashTable, ASparseTableRehashesAtTheSameSize) {
  CSet set;  // many pairs added and deleted use up the groups, not the table
  for (int32_t round = 0; round < 20; ++round) {
    set.Add(round % 31);
    set.Add(round % 31 + 31);
    set.Remove(round % 31);
    set.Remove(round % 31 + 31);
  }
  set.Add(100);
  set.Add(131);
  EXPECT_EQ(31, set.GetHashSize());
  EXPECT_TRUE(set.Has(100) && set.Has(131));
}

TEST(HashTable, DeleteAllKeepsSizeAndPagesFreeBufferGivesAllBack) {
  CSet set(0, 2);                                    // first pages of two entries
  for (int32_t i = 0; i < 12; ++i) set.Add(i * 31);  // four groups on cell 0
  set.Add(97);
  int blocks = CountingHeap::blocks;
  set.DeleteAll();
  EXPECT_EQ(31, set.GetIndexSize());
  EXPECT_EQ(31, set.GetHashSize());
  EXPECT_EQ(-1, set.GetFirstPosition());
  for (int32_t i = 0; i < 13; ++i) set.Add(i);  // the freed entries serve again
  EXPECT_EQ(blocks, CountingHeap::blocks);

  set.FreeBuffer();
  EXPECT_EQ(0, CountingHeap::blocks);
  CountingHeap::sizes.clear();
  for (int32_t i = 0; i < 31; ++i) set.Add(i);  // pages double from the first size again
  std::vector<size_t> expected = {31 * sizeof(uintptr_t)};
  for (size_t entries = 2; entries <= 32; entries *= 2)
    expected.push_back((2 + entries) * sizeof(void*));
  EXPECT_EQ(expected, CountingHeap::sizes);
}

TEST(HashTable, AFailedAdditionLeavesTheTableWhole) {
  CSet set;
  for (int32_t i = 0; i < 16; ++i) set.Add(i);          // the first page is full
  CountingHeap::failIn = 2;                             // the group's cells fit; the new page fails
  EXPECT_THROW(set.Add(100), CountingHeap::Exhausted);  // 100 shares cell 7 with key 7
  CountingHeap::failIn = 0;
  EXPECT_EQ(16, int32_t(KeysInCellOrder(set).size()));
  EXPECT_FALSE(set.Has(100));
  EXPECT_TRUE(set.Has(7));
  EXPECT_TRUE(set.Add(100));
  EXPECT_EQ(17, set.GetCount());
}

TEST(HashTable, AgreesWithAPlainSetThroughManyRehashes) {
  std::mt19937 random(11);
  CSet set;
  std::set<int32_t> model;
  for (int i = 0; i < 30000; ++i) {
    uint32_t r = random();
    // Half the keys crowd onto few cells of the larger primes.
    int32_t key = (r & 1) ? int32_t(r % 5000) : int32_t((r >> 8) % 64) * 1543;
    if (r % 5 == 0)
      ASSERT_EQ(int32_t(model.erase(key)), set.Remove(key));
    else
      ASSERT_EQ(model.insert(key).second, set.Add(key));
  }
  std::vector<int32_t> keys = KeysInCellOrder(set);
  EXPECT_EQ(model.size(), keys.size());
  EXPECT_EQ(model, std::set<int32_t>(keys.begin(), keys.end()));
}
