// Tests of CMap with string keys: the operations' contracts, references held
// by entries, case-insensitive keys and the checked lookup. The index itself
// is tested through the set of keys.
#include "Map.h"

#include <gtest/gtest.h>

#include "TesselsTestKit.h"

using namespace Tsl;
using TestKit::InternalErrorOf;
using TestKit::Place;

typedef CMap<CUnicodeString, int32_t> CCounts;

TEST(Map, SetReplacesInsertAddsAndTheCheckedFormsRaise) {
  CCounts map;
  map.Set(L"one", 1);
  map.Set(L"one", 11);
  ++map.GetOrCreate(L"three");  // created as 0
  map.Insert(L"k", 1);
  map.Insert(L"k", 2);
  EXPECT_EQ(11, map.Get(L"one"));
  EXPECT_EQ(1, map.Get(L"three"));
  int32_t sum = 0;  // both entries of "k" are found
  for (int32_t p = map.FindPosition(L"k"); p >= 0; p = map.FindNextPosition(L"k", p))
    sum += map.GetValueAt(p);
  EXPECT_EQ(3, sum);
  map.Set(L"k", 9);  // Set leaves one entry of its key
  EXPECT_EQ(3, map.GetCount());
  map.Insert(L"k", 10);
  EXPECT_EQ(2, map.Remove(L"k"));
  EXPECT_EQ(0, map.Remove(L"k"));  // the tolerant form
  EXPECT_EQ(Place(L"Map", 371), InternalErrorOf([&] { map.Delete(L"k"); }));
  EXPECT_EQ(Place(L"Map", 352), InternalErrorOf([&] { map.Get(L"absent"); }));
  EXPECT_EQ(2, map.GetCount());
}

TEST(Map, EntriesHoldOneReferenceAndMayBeSetFromThemselves) {
  CUnicodeString key(L"a key of some length"), value(L"a value of some length");
  {
    CMap<CUnicodeString, CUnicodeString> map;
    for (int round = 0; round < 3; ++round) {
      map.Set(key, value);
      EXPECT_TRUE(key.IsShared() && value.IsShared());
      round == 0 ? map.Delete(key) : round == 1 ? map.DeleteAll() : map.FreeBuffer();
      EXPECT_FALSE(key.IsShared() || value.IsShared()) << "round " << round;
    }
    map.Set(key, L"old");
    int32_t position = map.FindPosition(key);
    map.Set(map.GetKeyAt(position), map.GetValueAt(position) + L"er");
    EXPECT_EQ(CUnicodeString(L"older"), map.Get(key));
  }
  EXPECT_FALSE(key.IsShared() || value.IsShared());
}

TEST(Map, NoCaseKeysFoldForHashAndCompare) {
  CMap<CUnicodeString, int32_t, CNoCaseKeyTraits> folded;
  folded.Set(L"Section", 1);
  folded.Set(L"SECTION", 2);
  EXPECT_EQ(1, folded.GetCount());
  EXPECT_EQ(2, folded.Get(L"sEcTiOn"));
}
